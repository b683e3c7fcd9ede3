#include "cvtp/internal/AbstractCvtpRequestImpl.h"

#include <algorithm>
#include <limits>
#include <streambuf>
#include <string_view>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpConnectionManager.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/internal/Answer.h"
#include "cvtp/internal/CvtpOStream.h"
#include "cvtp/internal/LogAndThrow.h"
#include "cvtp/internal/TraceTags.h"
#include "io/CvPipe.h"
#include "io/Exceptions.h"
#include "io/PipeStreams.h"
#include "support/StringUtils.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

using Corvane::Cvtp::CvtpClient;
using Corvane::Cvtp::CvtpResponse;
using Io::BrokenPipeException;
using Io::CvPipeException;
using Io::IllegalStateException;

namespace {

/// A stream at its end has not failed: the pipe itself tells the next write that the other end is gone.
bool hasFailed(const std::ios& stream) {
    return stream.fail() && !stream.eof();
}

/// Less than this at hand is left to a stream's own way of reading. Bytes.
const std::size_t MUCH_AT_HAND = 4096;

/// What a stream has at hand, in the memory where it has it. A class derived from the buffer's may name these
/// members, and what is named so may be called for any buffer.
class AtHand : private std::streambuf {
 public:
    static std::string_view of(const std::istream& stream) {
        const std::streambuf* const buffer = stream.rdbuf();
        if (buffer == nullptr || !stream.good()) {
            return {};
        }
        const char* const begin = (buffer->*&AtHand::gptr)();
        const std::size_t size = static_cast<std::size_t>((buffer->*&AtHand::egptr)() - begin);
        // skip() counts with an int.
        return {begin, std::min<std::size_t>(size, std::numeric_limits<int>::max())};
    }
    static void skip(const std::istream& stream, std::size_t n) {
        (stream.rdbuf()->*&AtHand::gbump)(static_cast<int>(n));
    }
};

}  // namespace

AbstractCvtpRequestImpl::AbstractCvtpRequestImpl(const std::string& method, const std::string& resource, Mode mode,
                                                 CvtpClient* client, const std::string& pipeName)
    : client(client),
      pipeName(pipeName),
      method(method),
      resource(resource),
      mode(mode),
      message(this, TAG_SEND, &encoder) {
    message.setProgram(HEADER_USER_AGENT, client->getStringOption(CvtpClient::USER_AGENT));
}

AbstractCvtpRequestImpl::~AbstractCvtpRequestImpl() {
    try {
        // Null, when there is no pipe, is nothing to the manager.
        client->getManager()->returnPipe(pipe);
    } catch (const IllegalStateException&) {
        // The manager has logged it, and a destructor has nobody to tell.
    } catch (...) {
        // An application's own manager may throw anything; it must not end the process.
    }
}

std::string AbstractCvtpRequestImpl::getStartLine() {
    return StringUtils::joined({method, " ", encoder.encode(resource), " ", CvtpMessageOutImpl::versionText()});
}

void AbstractCvtpRequestImpl::writeHeadAndBody(std::ostream& out, int bufferSize) {
    std::string memory;
    const std::string_view oneLine = StringUtils::onOneLine(method, memory);
    message.writeHeadAndBody(out, {oneLine, " ", encoder.encode(resource), " ", CvtpMessageOutImpl::versionText()},
                             bufferSize);
}

void AbstractCvtpRequestImpl::addHeader(const std::string& name, const std::string& value) {
    message.addHeader(name, value);
}

void AbstractCvtpRequestImpl::setHeader(const std::string& name, const std::string& value) {
    message.setHeader(name, value);
}

void AbstractCvtpRequestImpl::removeHeader(const std::string& name) {
    message.removeHeader(name);
}

void AbstractCvtpRequestImpl::setBody(const char* data, std::size_t length) {
    message.setBody(data, length);
}

bool AbstractCvtpRequestImpl::isCommitted() const {
    return message.isCommitted();
}

std::string AbstractCvtpRequestImpl::getMethod() const {
    return method;
}

void AbstractCvtpRequestImpl::setResource(const std::string& newResource) {
    resource = newResource;
}

std::string AbstractCvtpRequestImpl::getResource() const {
    return resource;
}

void AbstractCvtpRequestImpl::setBodyStream(std::istream* body) {
    bodyStream = body;
    message.addHeader(HEADER_TRANSFER_ENCODING, HEADER_CHUNKED_ENCODING);
}

std::unique_ptr<CvtpResponse> AbstractCvtpRequestImpl::sendRequest() {
    // No count of attempts: each one drops a pipe that was broken, and one that cannot connect anew ends with an
    // exception.
    for (;;) {
        requireOneBody();
        try {
            return sendOnce();
        } catch (BrokenPipeException& lost) {
            afterLostConnection(lost);
        }
    }
}

bool AbstractCvtpRequestImpl::hasBodyBytes() const {
    return message.getBodyLength() != -1;
}

void AbstractCvtpRequestImpl::requireOneBody() const {
    if (hasBodyBytes() && bodyStream != nullptr) {
        logAndThrow<IllegalStateException>(
            "Both the setBody and setBodyStream methods were called. Only one method of providing body data is "
            "permitted.");
    }
    if (!hasBodyBytes() && bodyStream == nullptr) {
        // "these method" is the wording that operators know; deliberate.
        logAndThrow<IllegalStateException>(
            "Neither the setBody, or setBodyStream methods were called. Body data must be provided by one of these "
            "method.");
    }
}

std::unique_ptr<CvtpResponse> AbstractCvtpRequestImpl::sendOnce() {
    if (message.isCommitted()) {
        logAndThrow<IllegalStateException>(
            "The start line and headers have already been committed to the request. Cannot send again.");
    }
    bodyOut.reset();
    removePipe();
    pipe = client->getManager()->getPipe(pipeName, mode.letters);
    if (pipe == nullptr) {
        logAndThrow<CvPipeException>("The connection manager has no pipe for " + pipeName + ".");
    }
    std::ostream* const out = Io::PipeStreams::outputOf(*pipe);
    requireIntact(*out);
    std::istream* const in = mode.isAnswered ? Io::PipeStreams::inputOf(*pipe) : nullptr;
    if (in != nullptr) {
        requireIntact(*in);
    }
    const int bufferSize = client->getIntegerOption(CvtpClient::BUFFER_SIZE);
    if (bodyStream != nullptr) {
        bodyOut = std::make_unique<CvtpOStream>(bufferSize, true, *out);
        message.writeHeaders(*out);
        copyBodyStream();
        bodyOut->send();
    } else {
        writeHeadAndBody(*out, bufferSize);
    }
    return in != nullptr ? std::make_unique<Answer>(client, in) : nullptr;
}

void AbstractCvtpRequestImpl::requireIntact(const std::ios& stream) {
    // The pool does not look at the pipes that it is given back. A stream that failed stopped in the middle of a
    // message, and whatever came behind that would be read as its rest.
    if (hasFailed(stream)) {
        if (pipe == refusedPipe) {
            logAndThrow<CvPipeException>("The connection manager gave a failed pipe for " + pipeName + " again.");
        }
        refusedPipe = pipe;
        throw BrokenPipeException("An earlier request failed on this pipe.");
    }
}

void AbstractCvtpRequestImpl::removePipe() {
    if (pipe == nullptr) {
        return;
    }
    Io::CvPipe* const discarded = pipe;
    // First, so that whatever the manager throws, this request does not give the pipe back once more.
    pipe = nullptr;
    client->getManager()->removePipe(discarded);
}

void AbstractCvtpRequestImpl::copyBodyStream() {
    const std::streamsize size = std::max(client->getIntegerOption(CvtpClient::BUFFER_SIZE), 1);
    const std::unique_ptr<char[]> buffer(new char[static_cast<std::size_t>(size)]);
    // The stream had more at hand than it was asked for: it pays to look there, and to copy nothing.
    bool hasMuch = false;
    while (!bodyStream->eof()) {
        std::string_view bytes;
        try {
            if (hasMuch) {
                bodyStream->peek();
            }
            bytes = AtHand::of(*bodyStream);
            if (bytes.size() >= MUCH_AT_HAND) {
                AtHand::skip(*bodyStream, bytes.size());
            } else {
                bodyStream->read(buffer.get(), size);
                bytes = {buffer.get(), static_cast<std::size_t>(bodyStream->gcount())};
                hasMuch = hasMuch || !AtHand::of(*bodyStream).empty();
            }
        } catch (...) {
            // The stream was told to throw. Half a message is on the pipe, which nobody may use after it.
            removePipe();
            throw;
        }
        if (!bytes.empty()) {
            bodyOut->write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        }
        if (bodyStream->fail() && !bodyStream->eof()) {
            removePipe();
            logAndThrow<CvPipeException>("The body stream of the " + method +
                                         " request failed before its end was reached. The pipe was closed.");
        }
    }
}

void AbstractCvtpRequestImpl::afterLostConnection(BrokenPipeException& lost) {
    if (message.isCommitted() && !hasBodyBytes()) {
        removePipe();
        logError("Lost connection to server, the request will be aborted. " + lost.getMessage());
        throw BrokenPipeException(lost);
    }
    if (isDebug()) {
        logDebug("Lost connection to server, attempt request with new connection. " + lost.getMessage());
    }
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
