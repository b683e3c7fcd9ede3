#include "cvtp/internal/CvtpMessageOutImpl.h"

#include <cstring>
#include <limits>
#include <new>

#include "cvtp/internal/LogAndThrow.h"
#include "cvtp/internal/Logging.h"
#include "cvtp/internal/StreamUtil.h"
#include "io/Exceptions.h"
#include "io/PipeBufferBase.h"
#include "support/StringUtils.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

/// With its CR LF.
const std::size_t MAX_HEADER_LINE = 2048;

/// How many bytes `out` takes before anything leaves it, -1 when it is not the stream of a pipe.
std::streamsize roomOf(const std::ostream& out) {
    const auto* const buffer = Io::PipeBufferBase<char>::from(out.rdbuf());
    return buffer == nullptr ? -1 : buffer->room();
}

}  // namespace

CvtpMessageOutImpl::CvtpMessageOutImpl(Corvane::Cvtp::CvtpMessageOut* owner, const char* tag,
                                       Xml::Utf8String* encoder)
    : owner(owner), tag(tag), encoder(encoder) {}

std::string CvtpMessageOutImpl::getStartLine() {
    return owner->getStartLine();
}

void CvtpMessageOutImpl::addHeader(const std::string& name, const std::string& value) {
    std::string nameMemory;
    std::string valueMemory;
    headers.add(StringUtils::onOneLine(name, nameMemory), StringUtils::onOneLine(value, valueMemory));
}

void CvtpMessageOutImpl::setHeader(const std::string& name, const std::string& value) {
    std::string nameMemory;
    std::string valueMemory;
    headers.set(StringUtils::onOneLine(name, nameMemory), StringUtils::onOneLine(value, valueMemory));
}

void CvtpMessageOutImpl::removeHeader(const std::string& name) {
    headers.remove(StringUtils::onOneLine(name));
}

void CvtpMessageOutImpl::setBody(const char* data, std::size_t length) {
    // Appended, not replaced, on purpose: a second call leaves both lengths in the header.
    addHeader(HEADER_CONTENT_LENGTH, std::to_string(length));
    body.reset(length < std::numeric_limits<std::size_t>::max() ? static_cast<char*>(std::malloc(length + 1))
                                                                : nullptr);
    if (!body) {
        throw std::bad_alloc();
    }
    if (length > 0) {
        std::memcpy(body.get(), data, length);
    }
    body.get()[length] = '\0';
    bodyLength = length;
}

bool CvtpMessageOutImpl::isCommitted() const {
    return committed;
}

std::int64_t CvtpMessageOutImpl::getBodyLength() const {
    return body ? static_cast<std::int64_t>(bodyLength) : -1;
}

void CvtpMessageOutImpl::writeBody(std::ostream& out) const {
    if (body) {
        out.write(body.get(), static_cast<std::streamsize>(bodyLength));
    }
}

void CvtpMessageOutImpl::writeBody(OWriter& writer) const {
    if (bodyLength > 0) {
        writer.write(body.get(), static_cast<std::size_t>(bodyLength));
    }
}

void CvtpMessageOutImpl::writeHeaders(std::ostream& out) {
    if (committed) {
        return;
    }
    const std::string head = composeHead();
    writeHead(out, head);
    commit(out, head);
}

void CvtpMessageOutImpl::writeHeadAndBody(std::ostream& out, OWriter& body) {
    const std::string head = composeHead();
    writeHead(out, head);
    if (getBodyLength() <= roomOf(out)) {
        writeBody(body);
        commit(out, head);
    } else {
        commit(out, head);
        writeBody(body);
    }
    body.close();
}

std::string CvtpMessageOutImpl::composeHead() const {
    std::string head = owner->getStartLine();
    StringUtils::putOnOneLine(head);
    head += "\r\n";
    for (const auto& header : headers) {
        const std::size_t before = head.size();
        appendHeaderLine(head, header.second);
        if (head.size() - before > MAX_HEADER_LINE) {
            logAndThrow<Io::IllegalStateException>("The header " + header.second.getName() +
                                                   " exceeded the 2048 byte limit.");
        }
    }
    head += "\r\n";
    return head;
}

void CvtpMessageOutImpl::appendHeaderLine(std::string& head, const CvtpHeader& header) {
    head += header.getName();
    head += ": ";
    head += header.getJoined();
    head += "\r\n";
}

void CvtpMessageOutImpl::writeHead(std::ostream& out, const std::string& head) {
    StreamUtil::requireWritable(out);
    out.write(head.data(), static_cast<std::streamsize>(head.size()));
}

/// The head has left when the stream was flushed.
void CvtpMessageOutImpl::commit(std::ostream& out, const std::string& head) {
    out.flush();
    StreamUtil::requireWritable(out);
    committed = true;
    report(head);
}

void CvtpMessageOutImpl::report(const std::string& head) const {
    if (isOutputTraced()) {
        traceOutput(tag + head, true);
    }
    if (isDebug()) {
        logDebug(tag + head);
    }
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
