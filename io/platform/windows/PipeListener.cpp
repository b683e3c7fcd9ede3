#include "io/platform/windows/PipeListener.h"

#include <chrono>
#include <exception>
#include <string>
#include <utility>

#include "cvtp/internal/Logging.h"
#include "io/platform/windows/PipeChannel.h"
#include "io/platform/windows/PipeName.h"
#include "io/platform/windows/PipeSecurity.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using namespace Internal::Cvtp;

const DWORD BUFFER_SIZE = 65536;

/// After an accept that failed, for want of memory for an instance mostly, the next one would fail as well at once.
const std::chrono::milliseconds FAILURE_PAUSE(100);

void logValue(const char* text, long long value) {
    if (isDebug()) {
        logDebug(text + std::to_string(value));
    }
}

void logAcceptError(DWORD code) {
    logValue("ServerCvPipe_acceptPipe error = ", code);
}

int logResult(int result) {
    logValue("ServerCvPipe_acceptPipe retval = ", result);
    return result;
}

int createFailed(DWORD code) {
    if (isError()) {
        logError("CreateNamedPipe failed: " + std::to_string(code));
    }
    return failureCode(code);
}

/// Also called by destructors, which nothing may leave: a line for which there is no memory is missing.
///
/// @param isCancelled what cancelAll() has said; if not, with this `error`.
void logClose(const Handle& pipe, const Handle& event, bool isCancelled, DWORD error) noexcept {
    try {
        if (isDebug()) {
            logDebug("Close Handles: handle=" + pipe.text() + " event= " + event.text());
        }
        // Also when there was nothing to cancel; deliberate.
        if (!isCancelled && isInfo()) {
            logInfo("ServerCvPipe_closePipe CancelIoEx failed. Error code : " + std::to_string(error));
        }
    } catch (const std::exception&) {
        return;
    }
}

void closeNothing() {
    const Handle none;
    // Not asked: the value that means no handle is to some calls the process itself.
    logClose(none, none, false, ERROR_INVALID_HANDLE);
}

/// @return 0 or the code of the system.
int createPipe(const std::string& path, bool readable, bool writable, bool firstInstance, PipeInstance& instance) {
    SECURITY_ATTRIBUTES attributes = pipeSecurityAttributes();
    // The flag of the first instance is 0x00080000, which makes a name that has one already fail. 0x80000000 in an
    // open mode would be FILE_FLAG_WRITE_THROUGH, and would let a second server take the clients of the first.
    const DWORD openMode = FILE_FLAG_OVERLAPPED | (readable ? PIPE_ACCESS_INBOUND : 0) |
                           (writable ? PIPE_ACCESS_OUTBOUND : 0) |
                           (firstInstance ? FILE_FLAG_FIRST_PIPE_INSTANCE : 0);
    // Bytes without message limits, and calls that block. The last number is the system's default wait of clients.
    const DWORD pipeMode = PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT;
    instance.end.pipe = Handle(calls().createNamedPipe(path.c_str(), openMode, pipeMode, PIPE_UNLIMITED_INSTANCES,
                                                       BUFFER_SIZE, BUFFER_SIZE, 0, &attributes));
    if (!instance.end.pipe.isOpen()) {
        return createFailed(GetLastError());
    }
    const int code = instance.end.createEvents();
    if (code == 0 && isDebug()) {
        logDebug("bindPipe: handle=" + instance.end.pipe.text() + " event=" + instance.end.event.text());
    }
    return code;
}

}  // namespace

PipeListener::PipeListener(std::shared_ptr<PipeInstance> instance) : current(std::move(instance)) {}

bool PipeListener::isClosed() {
    const std::lock_guard<std::mutex> lock(mutex);
    return closed;
}

std::shared_ptr<PipeInstance> PipeListener::getInstance() {
    const std::lock_guard<std::mutex> lock(mutex);
    return current;
}

void PipeListener::replace(std::shared_ptr<PipeInstance> fresh) {
    // What was there before goes with `fresh`, outside the lock.
    const std::lock_guard<std::mutex> lock(mutex);
    if (!closed) {
        current.swap(fresh);
    }
}

int PipeListener::accept(int timeoutMs, ChannelHandle& channel) {
    const std::shared_ptr<PipeInstance> instance = getInstance();
    if (isClosed()) {
        logAcceptError(ERROR_OPERATION_ABORTED);
        return ABORTED;
    }
    if (!instance) {
        // The last attempt to create one has failed; the caller makes another.
        logAcceptError(ERROR_INVALID_HANDLE);
        return logResult(acceptFailed(ERROR_INVALID_HANDLE));
    }
    const bool isTakenUp = instance->connecting.isPending();
    int result = connect(*instance, timeoutMs);
    if (result == ABORTED && isTakenUp && !isClosed()) {
        // The system ends what a thread has left pending when that thread ends.
        result = connect(*instance, timeoutMs);
    }
    if (result == ABORTED || (result == SUCCESS && !handOver(instance, channel))) {
        return ABORTED;
    }
    return logResult(result);
}

/// Waits for a client. A wait that has timed out is still pending and is taken up, which the log does not tell from
/// one that begins.
int PipeListener::connect(PipeInstance& instance, int timeoutMs) {
    DWORD error = ERROR_IO_PENDING;
    if (!instance.connecting.isPending()) {
        if (calls().connectNamedPipe(instance.end.pipe.get(),
                                     instance.connecting.prepare(instance.end.event.get()))) {
            return SUCCESS;
        }
        error = GetLastError();
        if (error == ERROR_IO_PENDING) {
            // First of all: from here on the record is the system's, whatever else fails.
            instance.connecting.setPending();
        }
    }
    logAcceptError(error);
    switch (error) {
        case ERROR_PIPE_CONNECTED:
            return SUCCESS;
        case ERROR_IO_PENDING:
            // close() sets the flag before it cancels, so either it has found this wait or the flag is seen here.
            if (isClosed()) {
                instance.connecting.cancel(instance.end.pipe.get());
            }
            return awaitConnect(instance, timeoutMs);
        default:
            return acceptFailed(error);
    }
}

int PipeListener::awaitConnect(PipeInstance& instance, int timeoutMs) {
    const DWORD status = instance.connecting.wait(timeoutMs);
    logValue("ServerCvPipe_acceptPipe WaitForSingleObject status = ", status);
    if (status != WAIT_OBJECT_0 && isClosed()) {
        // A close that came as the wait ended: the wait was ended by it, and was not too long.
        instance.connecting.settle(instance.end.pipe.get());
        return ABORTED;
    }
    if (status == WAIT_TIMEOUT) {
        return ACCEPT_TIMED_OUT;
    }
    if (status != WAIT_OBJECT_0) {
        pause();
        return ACCEPT_WAIT_FAILED;
    }
    DWORD count = 0;
    const DWORD error = instance.connecting.finish(instance.end.pipe.get(), count);
    logValue("GetOverlappedResult - GetLastError=", error);
    switch (error) {
        case ERROR_SUCCESS:
        case ERROR_PIPE_CONNECTED:
        case ERROR_IO_PENDING:
            return SUCCESS;
        case ERROR_OPERATION_ABORTED:
            return ABORTED;
        default:
            return acceptFailed(error);
    }
}

int PipeListener::acceptFailed(DWORD error) {
    if (isError()) {
        logError("Connect error: " + std::to_string(error));
    }
    // A client that came and has gone again says nothing about the next.
    if (error != ERROR_NO_DATA) {
        pause();
    }
    return ACCEPT_FAILED;
}

/// Keeps a server that accepts again and again from spinning.
void PipeListener::pause() {
    std::unique_lock<std::mutex> lock(mutex);
    closing.wait_for(lock, FAILURE_PAUSE, [this] { return closed; });
}

/// Makes the connected instance a channel. Not after a close, which may be working on the handle at this moment.
bool PipeListener::handOver(const std::shared_ptr<PipeInstance>& instance, ChannelHandle& channel) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (closed) {
        return false;
    }
    channel = std::make_shared<PipeChannel>(std::move(instance->end));
    current.reset();
    return true;
}

void PipeListener::close() {
    std::shared_ptr<PipeInstance> instance;
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (closed) {
            // Closed and logged already, by whoever won a race or holds a copy of the server's pipe.
            return;
        }
        closed = true;
        instance.swap(current);
    }
    closing.notify_all();
    if (instance) {
        DWORD error = ERROR_SUCCESS;
        // Before anything is logged, which takes its time, and may fail.
        const bool isCancelled = cancelAll(instance->end.pipe.get(), error);
        logClose(instance->end.pipe, instance->end.event, isCancelled, error);
    } else {
        closeNothing();
    }
}

int createInstance(const std::string& path, bool readable, bool writable, bool firstInstance,
                   ListenerHandle& listener) {
    if (firstInstance) {
        listener.reset();
        const int code = checkPipeName(path);
        if (code != 0) {
            return createFailed(static_cast<DWORD>(code));
        }
    } else if (!listener) {
        // Without a first instance the name belongs to somebody else, and another instance of it would take his
        // clients.
        return createFailed(ERROR_INVALID_HANDLE);
    } else if (listener->isClosed()) {
        return SUCCESS;
    }
    auto instance = std::make_shared<PipeInstance>();
    const int code = createPipe(path, readable, writable, firstInstance, *instance);
    if (code != 0) {
        return code;
    }
    if (firstInstance) {
        listener = std::make_shared<PipeListener>(std::move(instance));
    } else {
        listener->replace(std::move(instance));
    }
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
    logAcceptError(ERROR_INVALID_HANDLE);
    if (isError()) {
        logError("Connect error: " + std::to_string(ERROR_INVALID_HANDLE));
    }
    return logResult(ACCEPT_FAILED);
}

int closeListener(const ListenerHandle& listener) {
    if (listener) {
        listener->close();
    } else {
        closeNothing();
    }
    return SUCCESS;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
