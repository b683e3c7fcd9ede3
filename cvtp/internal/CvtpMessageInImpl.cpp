#include "cvtp/internal/CvtpMessageInImpl.h"

#include "cvtp/Version.h"
#include "cvtp/internal/CvtpIStream.h"
#include "cvtp/internal/FramingNumbers.h"
#include "cvtp/internal/IStreamBuffer.h"
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

bool isContinuation(const std::string& line) {
    return !line.empty() && (line.front() == ' ' || line.front() == '\t');
}

void appendContinuation(std::string& value, const std::string& line) {
    if (!value.empty()) {
        value += ' ';
    }
    value += StringUtils::trim(line);
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

void CvtpMessageInImpl::getBody(char*& data, std::size_t& length) {
    data = nullptr;
    length = 0;
    readHead();
    requireBodyStream();
    const std::string contentLength = getHeader(HEADER_CONTENT_LENGTH);
    if (!contentLength.empty()) {
        const std::int64_t wanted = parseContentLength(contentLength);
        StreamUtil::readLength(*bodyStream, data, wanted);
        length = wanted > 0 ? static_cast<std::size_t>(wanted) : 0;
    } else if (getHeader(HEADER_TRANSFER_ENCODING) == HEADER_CHUNKED_ENCODING) {
        length = StreamUtil::readToEnd(*bodyStream, data);
    } else {
        throw Io::CvPipeException(
            "The CVTP Request Message does not have a Content-Length or Transfer-Encoding header");
    }
}

std::istream* CvtpMessageInImpl::getBodyStream() {
    readHead();
    requireBodyStream();
    return bodyStream.get();
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
        traceInput(tag + startLine, true);
    }
    if (isDebug()) {
        logDebug(tag + startLine);
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

void CvtpMessageInImpl::readHeaders() {
    std::string line;
    std::string next;
    readHeaderLine(line);
    while (!line.empty()) {
        const std::string::size_type colon = line.find(':');
        std::string value;
        if (colon != std::string::npos) {
            value = StringUtils::trim(line.substr(colon + 1), " \t");
            line.resize(colon);
        }
        for (readHeaderLine(next); isContinuation(next); readHeaderLine(next)) {
            appendContinuation(value, next);
        }
        headers.add(line, value);
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
    const std::string contentLength = getHeader(HEADER_CONTENT_LENGTH);
    if (!contentLength.empty()) {
        bodyDecoder = std::make_unique<IStreamBuffer<char>>(*in, parseContentLength(contentLength), bufferSize);
    } else if (getHeader(HEADER_TRANSFER_ENCODING) == HEADER_CHUNKED_ENCODING) {
        bodyDecoder = std::make_unique<IStreamBuffer<char>>(*in, bufferSize);
    } else {
        fail("The CVTP Message does not have a Content-Length or Transfer-Encoding header", CODE_NO_FRAMING);
    }
    bodyStream = std::make_unique<CvtpIStream>(*bodyDecoder);
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

void CvtpMessageInImpl::requireBodyStream() {
    if (!bodyStream) {
        fail("Failed to read the message start line and headers, and do not have body of the message.",
             CODE_NO_HEAD);
    }
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
