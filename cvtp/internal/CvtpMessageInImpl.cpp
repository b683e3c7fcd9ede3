#include "cvtp/internal/CvtpMessageInImpl.h"

#include <algorithm>

#include "cvtp/Version.h"
#include "cvtp/internal/CvtpIStream.h"
#include "cvtp/internal/FramingNumbers.h"
#include "cvtp/internal/Logging.h"
#include "cvtp/internal/StreamUtil.h"
#include "cvtp/internal/TraceTags.h"
#include "io/Exceptions.h"
#include "support/StringUtils.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

using Corvane::Cvtp::Version;

namespace {

const int CODE_NO_FRAMING = 1011;
const int CODE_NO_HEAD = 1013;

[[noreturn]] void fail(const std::string& message, int code) {
    logError(message);
    throw Io::CvPipeException(message, code);
}

/// The name of a header and its value, without the blanks around it; the name is the whole line when there is no
/// colon. Both stand in the line.
struct HeaderLine {
    explicit HeaderLine(std::string_view line)
        : name(line.substr(0, line.find(':'))),
          value(StringUtils::trimmed(line.substr(std::min(name.size() + 1, line.size())), " \t")) {}

    std::string_view name;
    std::string_view value;
};

bool isContinuation(std::string_view line) {
    return !line.empty() && (line.front() == ' ' || line.front() == '\t');
}

void appendContinuation(std::string& value, const std::string& line) {
    if (!value.empty()) {
        value += ' ';
    }
    value += StringUtils::trimmed(line, StringUtils::WHITE_SPACE);
}

}  // namespace

CvtpMessageInImpl::CvtpMessageInImpl(std::istream* in, const char* tag, Xml::Utf8String* decoder, int bufferSize)
    : in(in), tag(tag), decoder(decoder), bufferSize(bufferSize) {
    reader = this;
}

CvtpMessageInImpl::~CvtpMessageInImpl() = default;

std::string CvtpMessageInImpl::getStartLine() {
    readHead();
    return hasStartLine() ? startLine : placeholder();
}

std::string CvtpMessageInImpl::getHeader(const std::string& name) const {
    return headers.get(name);
}

std::vector<std::string> CvtpMessageInImpl::getHeaders(const std::string& name) const {
    return headers.getAll(name);
}

std::vector<std::string> CvtpMessageInImpl::getHeaderNames() const {
    return headers.names();
}

const std::string& CvtpMessageInImpl::receivedStartLine() {
    readHead();
    return startLine;
}

void CvtpMessageInImpl::getBody(char*& data, std::size_t& length) {
    data = nullptr;
    length = 0;
    readHead();
    requireBody();
    if (isChunked) {
        length = StreamUtil::readToEnd(stream(), data);
    } else {
        readCountedBody(data, bodyLength);
        length = bodyLength > 0 ? static_cast<std::size_t>(bodyLength) : 0;
    }
}

/// From the decoder while nobody has the stream. A failure leaves the stream as if it had been read from.
void CvtpMessageInImpl::readCountedBody(char*& data, std::int64_t length) {
    if (bodyStream) {
        StreamUtil::readLength(*bodyStream, data, length);
        return;
    }
    try {
        StreamUtil::readLength(*bodyDecoder, data, length);
    } catch (...) {
        stream().breakOff(bodyDecoder->isAtEnd());
        throw;
    }
}

std::istream* CvtpMessageInImpl::getBodyStream() {
    readHead();
    requireBody();
    return &stream();
}

CvtpIStream& CvtpMessageInImpl::stream() {
    if (!bodyStream) {
        bodyStream = std::make_unique<CvtpIStream>(*bodyDecoder);
    }
    return *bodyStream;
}

void CvtpMessageInImpl::awaitStartLine() {
    if (startLineTried) {
        return;
    }
    startLineTried = true;
    std::string line;
    while (line.empty()) {
        StreamUtil::readLine(*in, line);
    }
    startLine = std::move(line);
    if (isInputTraced()) {
        traceInput(std::string(tag) + startLine, true);
    }
    if (isDebug()) {
        logDebug(std::string(tag) + startLine);
    }
}

bool CvtpMessageInImpl::hasStartLine() const {
    return !startLine.empty();
}

bool CvtpMessageInImpl::isWholeBodyRead() const {
    return bodyDecoder && bodyDecoder->isComplete();
}

void CvtpMessageInImpl::readHead() {
    awaitStartLine();
    if (headersTried || !hasStartLine()) {
        return;
    }
    headersTried = true;
    readHeaders();
    createDecoder();
}

/// Adds what has arrived already, straight from the buffer of the pipe, as far as that is easy.
///
/// @return whether that was all of the headers.
bool CvtpMessageInImpl::readHeadersAhead() {
    StreamUtil::PipeBuffer* const pipe = StreamUtil::pipeBufferOf(*in);
    // The trace shows lines as they are read.
    if (pipe == nullptr || isInputTraced()) {
        return false;
    }
    auto line = StreamUtil::lookAhead(*pipe);
    while (line && !line->text.empty()) {
        // A header counts when the line behind it has come, which may continue it.
        const auto next = StreamUtil::lookAhead(*pipe, line->size);
        if (!next || isContinuation(next->text)) {
            return false;
        }
        const HeaderLine header(line->text);
        headers.add(header.name, header.value);
        pipe->skip(line->size);
        line = next;
    }
    if (line) {
        pipe->skip(line->size);
    }
    return line.has_value();
}

void CvtpMessageInImpl::readHeaders() {
    if (readHeadersAhead()) {
        return;
    }
    std::string line;
    std::string next;
    readHeaderLine(line);
    while (!line.empty()) {
        const HeaderLine header(line);
        readHeaderLine(next);
        if (isContinuation(next)) {
            std::string whole(header.value);
            for (; isContinuation(next); readHeaderLine(next)) {
                appendContinuation(whole, next);
            }
            headers.add(header.name, whole);
        } else {
            headers.add(header.name, header.value);
        }
        line.swap(next);
    }
}

void CvtpMessageInImpl::readHeaderLine(std::string& line) const {
    StreamUtil::readLine(*in, line);
    if (isInputTraced()) {
        traceInput(line + "\n", false);
    }
}

void CvtpMessageInImpl::createDecoder() {
    const std::string contentLength = headers.get(HEADER_CONTENT_LENGTH);
    if (!contentLength.empty()) {
        bodyLength = parseContentLength(contentLength);
        bodyDecoder.emplace(*in, bodyLength, bufferSize);
    } else if (headers.get(HEADER_TRANSFER_ENCODING) == HEADER_CHUNKED_ENCODING) {
        isChunked = true;
        bodyDecoder.emplace(*in, bufferSize);
    } else {
        fail("The CVTP Message does not have a Content-Length or Transfer-Encoding header", CODE_NO_FRAMING);
    }
}

/// What stands for a start line that could not be read.
std::string CvtpMessageInImpl::placeholder() const {
    const std::string version = Version::CURRENT_VERSION.toString();
    if (tag == TAG_ACCEPT) {
        return METHOD_NONE + " Empty/Resource " + version;
    }
    const auto reason = STATUS_REASONS.find(STATUS_SERVER_ERROR);
    return version + " 500 " + (reason == STATUS_REASONS.end() ? std::string() : reason->second);
}

void CvtpMessageInImpl::requireBody() const {
    if (!bodyDecoder) {
        fail("Failed to read the message start line and headers, and do not have body of the message.",
             CODE_NO_HEAD);
    }
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
