#include "io/platform/posix/PipeListener.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <memory>
#include <string>
#include <utility>

#include "cvtp/internal/Logging.h"
#include "io/platform/posix/Deadline.h"
#include "io/platform/posix/PipeAddress.h"
#include "io/platform/posix/PipeChannel.h"
#include "io/platform/posix/PipeSecurity.h"
#include "io/platform/posix/SocketCalls.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using namespace Internal::Cvtp;

/// There is no event here, but the lines of the log keep their form.
const char* const NO_EVENT = "-1";

/// What the log says of a wait, in the numbers that it has on every platform.
const int PIPE_CONNECTED = 535;
const int IO_PENDING = 997;
const int OPERATION_ABORTED = 995;
const int WAIT_TIMED_OUT = 258;

/// After an accept that failed, for want of descriptors mostly, the next one would fail as well at once.
const std::chrono::milliseconds FAILURE_PAUSE(100);

void logValue(const char* text, int value) {
    if (isDebug()) {
        logDebug(text + std::to_string(value));
    }
}

void logAcceptError(int code) {
    logValue("ServerCvPipe_acceptPipe error = ", code);
}

void logWaitStatus(int status) {
    logValue("ServerCvPipe_acceptPipe WaitForSingleObject status = ", status);
}

void logOverlappedResult(int code) {
    logValue("GetOverlappedResult - GetLastError=", code);
}

int logResult(int result) {
    logValue("ServerCvPipe_acceptPipe retval = ", result);
    return result;
}

int createFailed(int code) {
    if (isError()) {
        logError("CreateNamedPipe failed: " + std::to_string(code));
    }
    return code;
}

void logCreated(int descriptor) {
    if (isDebug()) {
        logDebug("bindPipe: handle=" + std::to_string(descriptor) + " event=" + NO_EVENT);
    }
}

/// Also called by destructors, which nothing may leave: a line for which there is no memory is missing.
///
/// @param code of the failure, or 0.
void logClose(int descriptor, int code) noexcept {
    try {
        if (isDebug()) {
            logDebug("Close Handles: handle=" + std::to_string(descriptor) + " event= " + NO_EVENT);
        }
        if (code != 0 && isInfo()) {
            logInfo("ServerCvPipe_closePipe CancelIoEx failed. Error code : " + std::to_string(code));
        }
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace

PipeListener::PipeListener(const PipeAddress& address) : claim(address) {}

PipeListener::~PipeListener() = default;

int PipeListener::open(bool mayRead, bool mayWrite) {
    readable = mayRead;
    writable = mayWrite;
    int code = claim.take();
    if (code == 0) {
        code = claim.announceDirection(readable, writable);
    }
    if (code == 0) {
        code = bindSocket();
    }
    return code;
}

int PipeListener::bindSocket() {
    int code = 0;
    {
        PipeSecurity security;
        code = security.isDefault() ? bindWithDefaultAccess() : bindWith(security);
    }
    if (code != 0) {
        return code;
    }
    // Nobody can connect before this, so whoever can has the access that he shall have.
    return SocketCalls::listenForOne(socket.get()) == 0 ? 0 : errno;
}

int PipeListener::bindWithDefaultAccess() {
    socket = SocketCalls::createSocket(true);
    return socket.isOpen() ? bindFile() : errno;
}

/// A server whose access cannot be set has the default access; that stops no server.
int PipeListener::bindWith(PipeSecurity& security) {
    socket = SocketCalls::createSocket(true);
    if (!socket.isOpen()) {
        return errno;
    }
    const bool isNarrow = security.narrow(socket.get());
    const int code = bindFile();
    if (code != 0 || !isNarrow || security.grant(claim.getAddress().socketFile)) {
        return code;
    }
    // Which access is the default one the system knows alone, and it gives it to a new file.
    claim.removeSocket();
    return bindWithDefaultAccess();
}

int PipeListener::bindFile() {
    if (SocketCalls::bindTo(socket.get(), SocketCalls::socketAddress(claim.getAddress().socketFile)) != 0) {
        return errno;
    }
    return claim.noteSocket();
}

bool PipeListener::isClosed() {
    const std::lock_guard<std::mutex> lock(mutex);
    return closed;
}

/// A socket that blocks takes one call for each client, and nobody learns whether the client was there before.
/// Whoever has to know that, or waits for a limited time, looks first and then waits.
///
/// @return 0 or the code of the system.
int PipeListener::prepareToWait(int timeoutMs) {
    if (!blocking || (timeoutMs <= 0 && !isDebug())) {
        return 0;
    }
    // For good: another thread may be about to wait as well.
    blocking = false;
    return SocketCalls::setBlocking(socket.get(), false) == 0 ? 0 : errno;
}

/// Takes a client that is there, or waits for one if the socket is blocking. A client that has gone again meanwhile
/// is none.
///
/// @return 0 or the code of the system, EAGAIN when there is no client.
int PipeListener::tryAccept(ChannelHandle& channel) {
    for (;;) {
        FileDescriptor client = SocketCalls::acceptClient(socket.get());
        if (client.isOpen()) {
            channel = std::make_shared<PipeChannel>(std::move(client), readable, writable);
            return 0;
        }
        if (errno != EINTR && errno != ECONNABORTED) {
            return errno;
        }
    }
}

/// The client stays in the queue when there was no descriptor for it, so trying again later is all it takes.
int PipeListener::acceptFailed(int error) {
    if (isError()) {
        logError("Connect error: " + std::to_string(error));
    }
    pause();
    return ACCEPT_FAILED;
}

/// Keeps a server that accepts again and again from spinning.
void PipeListener::pause() {
    std::unique_lock<std::mutex> lock(mutex);
    closing.wait_for(lock, FAILURE_PAUSE, [this] { return closed; });
}

int PipeListener::accept(int timeoutMs, ChannelHandle& channel) {
    if (isClosed()) {
        logAcceptError(OPERATION_ABORTED);
        return ABORTED;
    }
    const int unprepared = prepareToWait(timeoutMs);
    const int error = unprepared == 0 ? tryAccept(channel) : unprepared;
    if (error == 0) {
        logAcceptError(PIPE_CONNECTED);
        return logResult(SUCCESS);
    }
    if (isClosed()) {
        logAcceptError(OPERATION_ABORTED);
        return ABORTED;
    }
    if (error == EAGAIN) {
        logAcceptError(IO_PENDING);
        const int result = acceptWaiting(timeoutMs, channel);
        return result == ABORTED ? result : logResult(result);
    }
    logAcceptError(error);
    return logResult(acceptFailed(error));
}

int PipeListener::acceptWaiting(int timeoutMs, ChannelHandle& channel) {
    const Deadline deadline(timeoutMs);
    for (;;) {
        const int ready = SocketCalls::waitFor(socket.get(), POLLIN, deadline.forPoll());
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready < 0) {
            logWaitStatus(errno);
            pause();
            return ACCEPT_WAIT_FAILED;
        }
        if (ready == 0) {
            logWaitStatus(WAIT_TIMED_OUT);
            return ACCEPT_TIMED_OUT;
        }
        int error = tryAccept(channel);
        if (error == EAGAIN && ready == POLLIN) {
            continue;
        }
        if (error == EAGAIN) {
            // A socket that was shut down, or is in trouble, says that there is no client, and no longer waits for
            // one.
            error = EINVAL;
        }
        logWaitStatus(0);
        // close() sets the flag before it shuts the socket down, so whoever was woken by it sees the flag.
        if (error != 0 && isClosed()) {
            logOverlappedResult(OPERATION_ABORTED);
            return ABORTED;
        }
        logOverlappedResult(error);
        return error == 0 ? static_cast<int>(SUCCESS) : acceptFailed(error);
    }
}

/// Whoever is still in the queue must not wait for an answer as long as somebody holds this listener.
void PipeListener::dismissClients() {
    ChannelHandle client;
    while (tryAccept(client) == 0) {
        client.reset();
    }
}

void PipeListener::close() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (closed) {
            // Closed and logged already, by whoever won a race or holds a copy of the server's pipe.
            return;
        }
        closed = true;
        claim.release();
    }
    closing.notify_all();
    // A child that was forked shares the socket and must not end it for its parent.
    const bool isOwner = claim.isOwner();
    // Before anything is logged, which takes its time, and may fail.
    const bool failed = isOwner && SocketCalls::shutDown(socket.get()) != 0;
    logClose(socket.get(), failed ? errno : 0);
    // Only a socket that was shut down says that there is no client, and does not wait for one.
    if (isOwner && !failed) {
        dismissClients();
    }
}

int createInstance(const std::string& path, bool readable, bool writable, bool firstInstance,
                   ListenerHandle& listener) {
    if (!firstInstance) {
        // The listening socket waits for the next client as it did for the last.
        if (!listener) {
            return createFailed(EBADF);
        }
        logCreated(listener->getDescriptor());
        return SUCCESS;
    }
    listener.reset();
    PipeAddress address;
    int code = findPipe(path, PipeSearch::TO_CREATE, address);
    if (code != 0) {
        return createFailed(code);
    }
    const ListenerHandle created = std::make_shared<PipeListener>(address);
    code = created->open(readable, writable);
    if (code != 0) {
        return createFailed(code);
    }
    logCreated(created->getDescriptor());
    listener = created;
    return SUCCESS;
}

int awaitClient(const ListenerHandle& listener, int timeoutMs, ChannelHandle& channel) {
    channel.reset();
    if (isDebug()) {
        logDebug("Calling ConnectNamedPipe.");
    }
    if (listener) {
        return listener->accept(timeoutMs, channel);
    }
    logAcceptError(EBADF);
    if (isError()) {
        logError("Connect error: " + std::to_string(EBADF));
    }
    return logResult(ACCEPT_FAILED);
}

int closeListener(const ListenerHandle& listener) {
    if (listener) {
        listener->close();
    } else {
        logClose(-1, EBADF);
    }
    return SUCCESS;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
