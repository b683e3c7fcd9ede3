#include "cvtp/internal/RequestWorker.h"

#include <algorithm>
#include <exception>
#include <istream>
#include <new>
#include <ostream>
#include <utility>

#include "cvtp/CvtpHandler.h"
#include "cvtp/CvtpServer.h"
#include "cvtp/CvtpServerRequest.h"
#include "cvtp/CvtpServerResponse.h"
#include "cvtp/internal/FaultGuard.h"
#include "cvtp/internal/Logging.h"
#include "cvtp/internal/StreamUtil.h"
#include "io/CvPipe.h"
#include "io/Exceptions.h"
#include "io/PipeStreams.h"
#include "support/StringUtils.h"
#include "support/Utf8String.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

using Corvane::Cvtp::CvtpMessage;
using Corvane::Cvtp::CvtpServer;
using Corvane::Cvtp::CvtpServerRequest;
using Corvane::Cvtp::CvtpServerResponse;
using Io::CvPipeException;
using Io::IllegalStateException;
using Io::InterruptedException;
using Io::TimeoutException;

namespace {

const std::streamsize READ_OVER_PIECE = 64 * 1024;

/// Buffers that begin and end with a page can be given back to the system while nothing is in them. Where pages are
/// larger they stay. Bytes.
const std::size_t PAGE_SIZE = 4096;

/// For what ends a worker, which must go on whatever happens: a line for which there is no memory is missing.
template <class Log>
void tryToLog(const Log& log) noexcept {
    try {
        log();
    } catch (const std::exception&) {
        return;
    }
}

std::size_t inWholePages(std::size_t size) {
    return (size + PAGE_SIZE - 1) / PAGE_SIZE * PAGE_SIZE;
}

}  // namespace

RequestWorker::RequestWorker(std::unique_ptr<Io::CvPipe> pipe, CvtpServer* server, const std::string& name)
    : server(server),
      pipe(std::move(pipe)),
      name(name),
      fullName(StringUtils::joined({server->getStringOption(CvtpServer::SERVER_NAME), "/", name})),
      bufferSize(static_cast<std::size_t>(std::max(server->getIntegerOption(CvtpServer::BUFFER_SIZE), 1))),
      bufferRoom(inWholePages(bufferSize)),
      buffers(static_cast<char*>(::operator new(2 * bufferRoom, std::align_val_t(PAGE_SIZE), std::nothrow))) {}

RequestWorker::~RequestWorker() {
    tryToLog([this] {
        if (isDebug()) {
            logDebug("Deleting worker " + fullName);
        }
    });
    // Before the buffers, on which its streams stand.
    pipe.reset();
}

void RequestWorker::run() {
    started = true;
    const FaultGuard::Filter filter = FaultGuard::getFilter();
    if (!filter) {
        serve();
        return;
    }
    if (FaultGuard::run(filter, [this] { serve(); })) {
        return;
    }
    // The handler faulted. Pipe and busy flag stay as they are, so this object still exists. A worker that was
    // stopped must not touch the server, which is stopping already.
    if (!stopRequested) {
        server->shutdown();
    }
}

bool RequestWorker::isBusy() const {
    return busy;
}

void RequestWorker::setCancel(bool cancel) {
    cancelRequested = cancel;
}

std::string RequestWorker::getName() const {
    return name;
}

void RequestWorker::stop() {
    tryToLog([this] {
        if (isDebug()) {
            logDebug("Stopping worker " + fullName);
        }
    });
    stopRequested = true;
    closePipe();
}

void RequestWorker::closePipe() {
    if (!pipeClosed.exchange(true)) {
        pipe->close();
    }
}

void RequestWorker::dropUnlessStarted() {
    if (!started) {
        busy = false;
    }
}

void RequestWorker::serve() {
    try {
        installInputBuffer();
        // One for all messages of the connection, so that its memory is allocated once.
        Xml::Utf8String scratch;
        while (!stopRequested && serveRequest(scratch)) {
            // An idle connection keeps nothing of its last request.
            reader.reset();
            writer.reset();
        }
    } catch (...) {
        tryToLog([] { logInfo("Application error detected. The pipe will be closed."); });
    }
    tryToLog([this] {
        if (isDebug()) {
            logDebug("Closing CvPipe (" + fullName + "). ");
        }
    });
    closePipe();
    busy = false;
}

void RequestWorker::installInputBuffer() {
    if (buffers == nullptr) {
        throw std::bad_alloc();
    }
    in = Io::PipeStreams::inputOf(*pipe);
    in->rdbuf()->pubsetbuf(buffers.get(), static_cast<std::streamsize>(bufferSize));
}

void RequestWorker::FreePages::operator()(char* pages) const {
    ::operator delete(pages, std::align_val_t(PAGE_SIZE));
}

void RequestWorker::installOutputBuffer() {
    if (out == nullptr) {
        out = Io::PipeStreams::outputOf(*pipe);
        out->rdbuf()->pubsetbuf(buffers.get() + bufferRoom, static_cast<std::streamsize>(bufferSize));
    }
}

/// Waits for the next request, with as little memory as possible: most of a server's connections may be idle.
///
/// @return false at the end of the connection.
bool RequestWorker::awaitBytes() const {
    const auto* const output = out != nullptr ? StreamUtil::PipeBuffer::from(out->rdbuf()) : nullptr;
    const bool isOutputEmpty = output == nullptr || output->room() == static_cast<std::streamsize>(bufferSize);
    Io::PipeStreams::setIdleMemory(*pipe, buffers.get(), isOutputEmpty ? 2 * bufferRoom : bufferRoom);
    const bool isEnd = in->rdbuf()->sgetc() == std::char_traits<char>::eof();
    Io::PipeStreams::setIdleMemory(*pipe, nullptr, 0);
    return !isEnd;
}

/// @return whether the connection goes on.
bool RequestWorker::serveRequest(Xml::Utf8String& scratch) {
    pipe->setReadTimeout(server->getIntegerOption(CvtpServer::IDLE_TIMEOUT));
    CvtpServerRequest request(server, in, &scratch, reader);
    return awaitRequest(request) && processRequest(request, scratch);
}

bool RequestWorker::awaitRequest(CvtpServerRequest& request) {
    try {
        // Most connections end here, in order. An exception for that would cost more than a request.
        if (!awaitBytes()) {
            logInterrupted(StreamUtil::LINE_CUT_OFF);
            return false;
        }
        request.awaitStartLine();
        pipe->setReadTimeout(server->getIntegerOption(CvtpServer::RECEIVE_TIMEOUT));
        request.readHead();
        return true;
    } catch (TimeoutException& e) {
        if (request.hasStartLine()) {
            // Not a client that went quiet, but a request that stopped half way.
            logUnprocessed("CvPipeException", e.getMessage(), request.getMethod());
        } else if (isDebug()) {
            logDebug("TimeoutException - " + fullName + " timed out waiting for a request.  " + e.getMessage());
        }
    } catch (InterruptedException& e) {
        logInterrupted(e.getMessage());
    } catch (CvPipeException& e) {
        logError("CvPipeException - " + fullName + " error while reading request start line. " + e.getMessage());
    }
    return false;
}

bool RequestWorker::processRequest(CvtpServerRequest& request, Xml::Utf8String& scratch) {
    try {
        if (!dispatch(request, scratch)) {
            return false;
        }
    } catch (const IllegalStateException& e) {
        logUnprocessed("IllegalStateException", e.getMessage(), request.getMethod());
        return false;
    } catch (InterruptedException& e) {
        logError("InterruptedException - " + fullName + ". " + e.getMessage());
        return false;
    } catch (CvPipeException& e) {
        logUnprocessed("CvPipeException", e.getMessage(), request.getMethod());
        return false;
    } catch (...) {
        logInfo("Application error detected. The pipe will be closed.");
        return false;
    }
    return !isGivenUp() && readOverBody(request);
}

/// Whether the connection has to make room for another that waits for a thread.
bool RequestWorker::isGivenUp() const {
    if (!cancelRequested) {
        return false;
    }
    if (isDebug()) {
        logDebug("Give up " + fullName + " for a new request waiting for a worker thread.");
    }
    return true;
}

bool RequestWorker::dispatch(CvtpServerRequest& request, Xml::Utf8String& scratch) {
    const std::string_view method = request.methodInStartLine();
    if (method == CvtpMessage::METHOD_NOTIFY) {
        processNotify(request);
        return true;
    }
    if (method == CvtpMessage::METHOD_POST && server->acceptsPost()) {
        return processPost(request, scratch);
    }
    // The parentheses hold the worker, not the method; deliberate.
    logError("Unrecognized request method (" + fullName + "), the full message will be ignored.");
    return false;
}

void RequestWorker::processNotify(CvtpServerRequest& request) {
    if (isDebug()) {
        logDebug("Begin processing of NOTIFY request (" + fullName + ").");
    }
    ++server->notifyRequests;
    server->getHandler()->doNotify(request);
    if (isDebug()) {
        logDebug("Complete processing of NOTIFY request (" + fullName + ").");
    }
}

bool RequestWorker::processPost(CvtpServerRequest& request, Xml::Utf8String& scratch) {
    if (isDebug()) {
        logDebug("Begin processing of POST request (" + fullName + ").");
    }
    installOutputBuffer();
    CvtpServerResponse response(server, out, &scratch, writer);
    ++server->postRequests;
    server->getHandler()->doPost(request, response);
    if (isDebug()) {
        logDebug("Complete processing of POST request (" + fullName + ").");
    }
    if (response.isSentInPart()) {
        // The client would take the next response for the rest of this one.
        logDebug("The response to a POST request was not completed (" + fullName + "). The pipe will be closed.");
        return false;
    }
    return true;
}

/// What the handler left of the body must not be taken for the next request.
bool RequestWorker::readOverBody(CvtpServerRequest& request) {
    if (request.isBodyComplete()) {
        return true;
    }
    try {
        std::istream& body = *request.getBodyStream();
        body.clear();
        // By the piece: a client that sends without end must not keep the thread from others.
        while (body.ignore(READ_OVER_PIECE)) {
            if (isGivenUp()) {
                return false;
            }
        }
    } catch (const CvPipeException&) {
        // Seen below: the body is not complete.
    }
    if (!request.isBodyComplete() && isDebug()) {
        logDebug("The body of a request did not end (" + fullName + "). The pipe will be closed.");
    }
    return request.isBodyComplete();
}

void RequestWorker::logInterrupted(std::string_view reason) const {
    if (isDebug()) {
        logDebug(("InterruptedException - " + fullName + ". ").append(reason));
    }
}

void RequestWorker::logUnprocessed(const char* kind, const std::string& reason, const std::string& method) const {
    logError(std::string(kind) + " - " + fullName + ". " + reason);
    logError("Could not process the " + method + " request. The pipe will be closed.");
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
