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

bool isContinuation(std::string_view line) {
    return !line.empty() && (line.front() == ' ' || line.front() == '\t');
}

void appendContinuation(std::string& value, const std::string& line) {
    if (!value.empty()) {
        value += ' ';
    }
    value += StringUtils::trimmed(line, StringUtils::WHITE_SPACE_SET);
}

}  // namespace

CvtpMessageInImpl::CvtpMessageInImpl(std::istream* in, const char* tag, Xml::Utf8String* decoder, int bufferSize)
    : in(in), tag(tag), encoding(decoder), bufferSize(bufferSize) {
    reader = this;
}

CvtpMessageInImpl::~CvtpMessageInImpl() = default;

std::string CvtpMessageInImpl::getStartLine() {
    readHead();
    return hasStartLine() ? std::string(startLine.view()) : placeholder();
}

std::string CvtpMessageInImpl::getHeader(const std::string& name) const {
    return headers.all().get(name);
}

std::vector<std::string> CvtpMessageInImpl::getHeaders(const std::string& name) const {
    return headers.all().getAll(name);
}

std::vector<std::string> CvtpMessageInImpl::getHeaderNames() const {
    return headers.all().names();
}

std::string_view CvtpMessageInImpl::receivedStartLine() {
    readHead();
    return startLine.view();
}

void CvtpMessageInImpl::getBody(char*& data, std::size_t& length) {
    data = nullptr;
    length = 0;
    readHead();
    requireBody();
    if (framing == Framing::CHUNKED) {
        length = StreamUtil::readToEnd(stream(), data);
        return;
    }
    if (!takeBodyAhead(data)) {
        readCountedBody(data);
    }
    length = bodyLength > 0 ? static_cast<std::size_t>(bodyLength) : 0;
}

/// Takes a body that has arrived as a whole, and that nobody watches, without its decoder.
bool CvtpMessageInImpl::takeBodyAhead(char*& data) {
    if (isBodyTaken || bodyDecoder || bodyLength <= 0 || isInputTraced() || isDebug()) {
        return false;
    }
    StreamUtil::PipeBuffer* const pipe = StreamUtil::pipeBufferOf(*in);
    if (pipe == nullptr || pipe->ahead().size() < static_cast<std::uint64_t>(bodyLength)) {
        return false;
    }
    const std::size_t length = static_cast<std::size_t>(bodyLength);
    data = StreamUtil::copyOf(pipe->ahead().substr(0, length));
    pipe->skip(length);
    isBodyTaken = true;
    return true;
}

/// From the decoder while nobody has the stream. A failure leaves the stream as if it had been read from.
void CvtpMessageInImpl::readCountedBody(char*& data) {
    if (bodyStream) {
        StreamUtil::readLength(*bodyStream, data, bodyLength);
        return;
    }
    try {
        StreamUtil::readLength(decoder(), data, bodyLength);
    } catch (...) {
        stream().breakOff(decoder().isAtEnd());
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
        bodyStream = std::make_unique<CvtpIStream>(decoder());
    }
    return *bodyStream;
}

IStreamBuffer<char>& CvtpMessageInImpl::decoder() {
    if (!bodyDecoder && framing == Framing::CHUNKED) {
        bodyDecoder.emplace(*in, bufferSize);
    } else if (!bodyDecoder) {
        bodyDecoder.emplace(*in, bodyLength, bufferSize);
        if (isBodyTaken) {
            bodyDecoder->skipAll();
        }
    }
    return *bodyDecoder;
}

void CvtpMessageInImpl::awaitStartLine() {
    if (startLineTried) {
        return;
    }
    startLineTried = true;
    while (startLine.empty()) {
        if (const auto taken = StreamUtil::takeLine(*in)) {
            startLine.assign(*taken);
        } else {
            std::string line;
            StreamUtil::readLine(*in, line);
            startLine.assign(line);
        }
    }
    if (isInputTraced() || isDebug()) {
        traceStartLine();
    }
}

void CvtpMessageInImpl::traceStartLine() const {
    const std::string line = StringUtils::joined({tag, startLine.view()});
    if (isInputTraced()) {
        traceInput(line, true);
    }
    if (isDebug()) {
        logDebug(line);
    }
}

bool CvtpMessageInImpl::hasStartLine() const {
    return !startLine.empty();
}

bool CvtpMessageInImpl::isWholeBodyRead() const {
    if (bodyDecoder) {
        return bodyDecoder->isComplete();
    }
    return framing == Framing::COUNTED && (isBodyTaken || bodyLength <= 0);
}

void CvtpMessageInImpl::readHead() {
    awaitStartLine();
    if (headersTried || !hasStartLine()) {
        return;
    }
    headersTried = true;
    readHeaders();
    findFraming();
}

/// Takes the headers straight from the buffer of the pipe, if all have arrived and none is continued in a further
/// line.
bool CvtpMessageInImpl::readHeadersAhead() {
    StreamUtil::PipeBuffer* const pipe = StreamUtil::pipeBufferOf(*in);
    // The trace shows lines as they are read.
    if (pipe == nullptr || isInputTraced()) {
        return false;
    }
    std::size_t size = 0;
    auto line = StreamUtil::lookAhead(*pipe);
    while (line && !line->text.empty()) {
        size += line->size;
        line = StreamUtil::lookAhead(*pipe, size);
        if (line && isContinuation(line->text)) {
            return false;
        }
    }
    if (!line) {
        return false;
    }
    headers.keep(pipe->ahead().substr(0, size));
    pipe->skip(size + line->size);
    return true;
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

void CvtpMessageInImpl::findFraming() {
    const std::string_view contentLength = headers.firstValue(HEADER_CONTENT_LENGTH);
    if (!contentLength.empty()) {
        bodyLength = parseContentLength(contentLength);
        framing = Framing::COUNTED;
    } else if (headers.firstValue(HEADER_TRANSFER_ENCODING) == HEADER_CHUNKED_ENCODING) {
        framing = Framing::CHUNKED;
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
    if (framing == Framing::UNKNOWN) {
        fail("Failed to read the message start line and headers, and do not have body of the message.",
             CODE_NO_HEAD);
    }
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
