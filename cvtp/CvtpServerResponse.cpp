#include "cvtp/CvtpServerResponse.h"

#include <charconv>
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

std::string reasonOf(int code) {
    // Not [], which would add the code to the table that all threads read.
    const auto found = CvtpMessage::STATUS_REASONS.find(code);
    return found == CvtpMessage::STATUS_REASONS.end() ? "None" : found->second;
}

}  // namespace

CvtpServerResponse::CvtpServerResponse(CvtpServer* server, std::ostream* out, Xml::Utf8String* scratch)
    : statusCode(STATUS_SERVER_ERROR),
      reasonPhrase(reasonOf(STATUS_SERVER_ERROR)),
      server(server),
      outputStream(out),
      writer(std::make_unique<CvtpMessageOutImpl>(this, Internal::Cvtp::TAG_REPLY, scratch)),
      bufferSize(server->getIntegerOption(CvtpServer::BUFFER_SIZE)) {
    writer->setProgram(HEADER_SERVER, server->getStringOption(CvtpServer::SERVER_NAME));
}

CvtpServerResponse::~CvtpServerResponse() {
    // Before the writer, which it refers to.
    bodyStream.reset();
}

void CvtpServerResponse::setStatusCode(int code) {
    setStatusCode(code, reasonOf(code));
}

void CvtpServerResponse::setStatusCode(int code, const std::string& reason) {
    statusCode = code;
    reasonPhrase = reason;
}

void CvtpServerResponse::setReasonPhrase(const std::string& reason) {
    reasonPhrase = reason;
}

std::ostream* CvtpServerResponse::getBodyStream() {
    if (bodyStream == nullptr && bodyBegun) {
        bodyStream = std::make_unique<CvtpOStream>(bufferSize, false, *outputStream);
        bodyStream->seal();
    } else if (bodyStream == nullptr) {
        writer->setHeader(HEADER_TRANSFER_ENCODING, HEADER_CHUNKED_ENCODING);
        bodyStream = std::make_unique<CvtpOStream>(bufferSize, true, *outputStream, writer.get());
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
        writer->writeHeadAndBody(*outputStream, bufferSize);
    } else {
        bodyStream->send();
    }
    sent = true;
}

void CvtpServerResponse::sendError(int code, const std::string& message) {
    statusCode = code;
    reasonPhrase = message;
    // A body given before has left its length there, and the client would wait for it.
    writer->removeHeader(HEADER_CONTENT_LENGTH);
    setBody("", 0);
    send();
}

std::string CvtpServerResponse::getStartLine() {
    char code[std::numeric_limits<std::int32_t>::digits10 + 2];
    const char* const end = std::to_chars(code, code + sizeof code, statusCode).ptr;
    std::string memory;
    return StringUtils::joined({CvtpMessageOutImpl::versionText(), " ",
                                std::string_view(code, static_cast<std::size_t>(end - code)), " ",
                                StringUtils::onOneLine(reasonPhrase, memory)});
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
