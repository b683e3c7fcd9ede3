#include "cvtp/internal/CvtpMessageOutImpl.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include "cvtp/Version.h"
#include "cvtp/internal/CVTP_OBufferWriter.h"
#include "cvtp/internal/LogAndThrow.h"
#include "cvtp/internal/Logging.h"
#include "cvtp/internal/StreamUtil.h"
#include "io/Exceptions.h"
#include "io/PipeBufferBase.h"
#include "support/ShortCopy.h"
#include "support/StringUtils.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

/// With its CR LF.
const std::size_t MAX_HEADER_LINE = 2048;

constexpr std::string_view LINE_END = "\r\n";
constexpr std::string_view NAME_END = ": ";

/// Bytes of a body; fewer cost time, more leave the cache.
const std::size_t COPIED_AT_ONCE = 65536;

/// How many bytes `out` takes before anything leaves it, -1 when it is not the stream of a pipe.
std::streamsize roomOf(const std::ostream& out) {
    const auto* const buffer = Io::PipeBufferBase<char>::from(out.rdbuf());
    return buffer == nullptr ? -1 : buffer->room();
}

/// The bytes that were copied last are in the processor's cache when the body is sent, which begins with the first:
/// so the first are copied last. A body that does not fit into the cache is sent a tenth faster by it.
void copyFromTheEnd(char* target, const char* source, std::size_t length) {
    while (length > COPIED_AT_ONCE) {
        length -= COPIED_AT_ONCE;
        std::memcpy(target + length, source + length, COPIED_AT_ONCE);
    }
    if (length > 0) {
        std::memcpy(target, source, length);
    }
}

}  // namespace

CvtpMessageOutImpl::CvtpMessageOutImpl(Corvane::Cvtp::CvtpMessageOut* owner, const char* tag,
                                       Xml::Utf8String* encoder)
    : owner(owner), tag(tag), encoder(encoder) {}

void CvtpMessageOutImpl::setProgram(const std::string& name, const std::string& value) {
    headers.setProgram(name, value);
}

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
    headers.addLength(length);
    char* const place = placeOfBody(length);
    copyFromTheEnd(place, data, length);
    place[length] = '\0';
    body = place;
    bodyLength = length;
}

/// Memory for so many bytes and a NUL; there is no body until it is used.
char* CvtpMessageOutImpl::placeOfBody(std::size_t length) {
    body = nullptr;
    if (length < smallBody.size()) {
        return smallBody.data();
    }
    largeBody.reset(length < std::numeric_limits<std::size_t>::max() ? static_cast<char*>(std::malloc(length + 1))
                                                                     : nullptr);
    if (!largeBody) {
        throw std::bad_alloc();
    }
    return largeBody.get();
}

bool CvtpMessageOutImpl::isCommitted() const {
    return committed;
}

std::int64_t CvtpMessageOutImpl::getBodyLength() const {
    return body != nullptr ? static_cast<std::int64_t>(bodyLength) : -1;
}

void CvtpMessageOutImpl::writeBody(std::ostream& out) const {
    if (body != nullptr) {
        out.write(body, static_cast<std::streamsize>(bodyLength));
    }
}

void CvtpMessageOutImpl::writeHeaders(std::ostream& out) {
    if (committed) {
        return;
    }
    std::string startLine = owner->getStartLine();
    StringUtils::putOnOneLine(startLine);
    const std::string head = composeHead({startLine});
    writeHead(out, head);
    commit(out, head);
}

void CvtpMessageOutImpl::writeHeadAndBody(std::ostream& out, const StartLine& startLine, int bufferSize) {
    if (writeInOnePiece(out, startLine)) {
        return;
    }
    const std::string head = composeHead(startLine);
    CVTP_OBufferWriter writer(bufferSize, false, out, nullptr);
    writeHead(out, head);
    const bool together = getBodyLength() <= roomOf(out);
    if (!together) {
        commit(out, head);
    }
    if (bodyLength > 0) {
        writer.write(body, static_cast<std::size_t>(bodyLength));
    }
    if (together) {
        commit(out, head);
    }
    writer.close();
}

/// Most messages fit into the buffer of their pipe, and nobody watches them: head and body are composed there, and
/// the pipe is told to send them.
///
/// @return false when this is another message; nothing has been done then.
bool CvtpMessageOutImpl::writeInOnePiece(std::ostream& out, const StartLine& startLine) {
    const std::size_t headSize = measureHead(startLine);
    auto* const buffer = out.good() ? Io::PipeBufferBase<char>::from(out.rdbuf()) : nullptr;
    const std::uint64_t size = headSize + bodyLength;
    if (buffer == nullptr || size > static_cast<std::uint64_t>(buffer->room()) || isDebug() || isOutputTraced()) {
        return false;
    }
    composeHead(startLine, buffer->claim(headSize));
    if (bodyLength > 0) {
        const std::size_t length = static_cast<std::size_t>(bodyLength);
        std::memcpy(buffer->claim(length), body, length);
    }
    try {
        buffer->pubsync();
    } catch (...) {
        StreamUtil::setState(out, std::ios::badbit);
        throw;
    }
    committed = true;
    return true;
}

const std::string& CvtpMessageOutImpl::versionText() {
    static const std::string text = Corvane::Cvtp::Version::CURRENT_VERSION.toString();
    return text;
}

/// @return the size of the whole head. @throws Io::IllegalStateException a header line is too long.
std::size_t CvtpMessageOutImpl::measureHead(const StartLine& startLine) const {
    std::size_t size = 2 * LINE_END.size();
    for (const std::string_view piece : startLine) {
        size += piece.size();
    }
    headers.forEach([&size](std::string_view name, std::string_view values) {
        const std::size_t line = name.size() + NAME_END.size() + values.size() + LINE_END.size();
        if (line > MAX_HEADER_LINE) {
            logAndThrow<Io::IllegalStateException>("The header " + std::string(name) +
                                                   " exceeded the 2048 byte limit.");
        }
        size += line;
    });
    return size;
}

/// @param head has the size that was measured.
void CvtpMessageOutImpl::composeHead(const StartLine& startLine, char* head) const {
    char* place = head;
    for (const std::string_view piece : startLine) {
        place = putShort(place, piece);
    }
    place = putShort(place, LINE_END);
    headers.forEach([&place](std::string_view name, std::string_view values) {
        place = putShort(putShort(putShort(putShort(place, name), NAME_END), values), LINE_END);
    });
    putShort(place, LINE_END);
}

std::string CvtpMessageOutImpl::composeHead(const StartLine& startLine) const {
    std::string head(measureHead(startLine), '\0');
    composeHead(startLine, head.data());
    return head;
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
