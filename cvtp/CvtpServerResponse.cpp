#include "cvtp/CvtpServerResponse.h"

#include <array>
#include <charconv>
#include <cstddef>
#include <limits>
#include <string_view>

#include "cvtp/CvtpServer.h"
#include "cvtp/internal/CvtpMessageOutImpl.h"
#include "cvtp/internal/CvtpOStream.h"
#include "cvtp/internal/LogAndThrow.h"
#include "cvtp/internal/TraceTags.h"
#include "io/Exceptions.h"
#include "support/StringUtils.h"

namespace Corvane {
namespace Cvtp {

using Internal::Cvtp::CvtpMessageOutImpl;
using Internal::Cvtp::CvtpOStream;
using Internal::Cvtp::logAndThrow;
using Io::IllegalStateException;

namespace {

/// The digits of a status code.
class CodeText {
 public:
    explicit CodeText(std::int32_t code)
        : size(static_cast<std::size_t>(std::to_chars(digits.data(), digits.data() + digits.size(), code).ptr -
                                        digits.data())) {}

    std::string_view view() const { return {digits.data(), size}; }

 private:
    std::array<char, std::numeric_limits<std::int32_t>::digits10 + 2> digits;
    std::size_t size;
};

}  // namespace

CvtpServerResponse::CvtpServerResponse(CvtpServer* server, std::ostream* out, Xml::Utf8String* scratch)
    : statusCode(STATUS_SERVER_ERROR),
      server(server),
      outputStream(out),
      ownWriter(std::make_unique<CvtpMessageOutImpl>(this, Internal::Cvtp::TAG_REPLY, scratch)),
      writer(ownWriter.get()),
      bufferSize(server->getIntegerOption(CvtpServer::BUFFER_SIZE)) {
    writer->setProgram(HEADER_SERVER, server->getStringOption(CvtpServer::SERVER_NAME));
}

CvtpServerResponse::CvtpServerResponse(CvtpServer* server, std::ostream* out, Xml::Utf8String* scratch,
                                       std::optional<CvtpMessageOutImpl>& memory)
    : statusCode(STATUS_SERVER_ERROR),
      server(server),
      outputStream(out),
      writer(&memory.emplace(this, Internal::Cvtp::TAG_REPLY, scratch)),
      bufferSize(server->getIntegerOption(CvtpServer::BUFFER_SIZE)) {
    writer->setProgram(HEADER_SERVER, server->getStringOption(CvtpServer::SERVER_NAME));
}

CvtpServerResponse::~CvtpServerResponse() {
    // Before the writer, which it refers to.
    bodyStream.reset();
}

void CvtpServerResponse::setStatusCode(int code) {
    statusCode = code;
    hasUsualReason = true;
}

void CvtpServerResponse::setStatusCode(int code, const std::string& reason) {
    statusCode = code;
    setReasonPhrase(reason);
}

void CvtpServerResponse::setReasonPhrase(const std::string& reason) {
    hasUsualReason = false;
    reasonPhrase = reason;
}

/// Looked up when it is needed: most responses set another status than that which they began with.
std::string_view CvtpServerResponse::reason() const {
    if (!hasUsualReason) {
        return reasonPhrase;
    }
    // Not [], which would add the code to the table that all threads read.
    const auto found = STATUS_REASONS.find(statusCode);
    return found == STATUS_REASONS.end() ? std::string_view("None") : found->second;
}

std::ostream* CvtpServerResponse::getBodyStream() {
    if (bodyStream == nullptr && bodyBegun) {
        bodyStream = std::make_unique<CvtpOStream>(bufferSize, false, *outputStream);
        bodyStream->seal();
    } else if (bodyStream == nullptr) {
        writer->setHeader(HEADER_TRANSFER_ENCODING, HEADER_CHUNKED_ENCODING);
        bodyStream = std::make_unique<CvtpOStream>(bufferSize, true, *outputStream, writer);
    }
    return bodyStream.get();
}

void CvtpServerResponse::send() {
    const bool hasBody = writer->getBodyLength() != -1;
    if (!hasBody && bodyStream == nullptr) {
        // "these method" is the wording that operators know; deliberate.
        logAndThrow<IllegalStateException>(
            "Neither the setBody or getBodyStream methods were called. Body data must be provided by one of these "
            "method.");
    }
    if (hasBody && (bodyStream != nullptr || bodyBegun)) {
        logAndThrow<IllegalStateException>(
            "Both the setBody and getBodyStream methods were called. Only one method of providing body data is "
            "permitted.");
    }
    if (hasBody) {
        bodyBegun = true;
        writeHeadAndBody();
    } else {
        bodyStream->send();
    }
    sent = true;
}

void CvtpServerResponse::sendError(int code, const std::string& message) {
    statusCode = code;
    setReasonPhrase(message);
    // A body given before has left its length there, and the client would wait for it.
    writer->removeHeader(HEADER_CONTENT_LENGTH);
    setBody("", 0);
    send();
}

std::string CvtpServerResponse::getStartLine() {
    std::string memory;
    return StringUtils::joined({CvtpMessageOutImpl::versionText(), " ", CodeText(statusCode).view(), " ",
                                StringUtils::onOneLine(reason(), memory)});
}

void CvtpServerResponse::writeHeadAndBody() {
    const CodeText code(statusCode);
    std::string memory;
    const std::string_view oneLine = StringUtils::onOneLine(reason(), memory);
    writer->writeHeadAndBody(*outputStream, {CvtpMessageOutImpl::versionText(), " ", code.view(), " ", oneLine},
                             bufferSize);
}

void CvtpServerResponse::addHeader(const std::string& name, const std::string& value) {
    writer->addHeader(name, value);
}

void CvtpServerResponse::setHeader(const std::string& name, const std::string& value) {
    writer->setHeader(name, value);
}

void CvtpServerResponse::removeHeader(const std::string& name) {
    writer->removeHeader(name);
}

void CvtpServerResponse::setBody(const char* data, std::size_t length) {
    writer->setBody(data, length);
}

bool CvtpServerResponse::isCommitted() const {
    return writer->isCommitted();
}

bool CvtpServerResponse::isSentInPart() const {
    // A head that leaves together with its body is not committed when their one write fails, and may have left in
    // part.
    const bool isBegun = isCommitted() || (bodyBegun && outputStream->fail());
    return isBegun && !sent;
}

}  // namespace Cvtp
}  // namespace Corvane
