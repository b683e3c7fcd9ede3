#include <memory>
#include <string>
#include <utility>

#include "cvtp/internal/Logging.h"
#include "io/platform/PipePlatform.h"
#include "io/platform/windows/OverlappedOperation.h"
#include "io/platform/windows/PipeChannel.h"
#include "io/platform/windows/PipeName.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using namespace Internal::Cvtp;

int openFailed(DWORD error) {
    if (isError()) {
        logError("Could not open pipe. GLE=" + std::to_string(error));
    }
    return OPEN_FAILED;
}

int openTimedOut(const std::string& path, DWORD wait) {
    if (isDebug()) {
        logDebug("Could not open pipe " + path + " after " + std::to_string(wait) + " milliseconds.");
    }
    return OPEN_TIMED_OUT;
}

/// One try to open the pipe.
///
/// @param error the code of the system after a failure.
/// @return whether it is open.
bool tryOpen(const std::string& path, bool readable, bool writable, Handle& pipe, DWORD& error) {
    const DWORD access = (readable ? GENERIC_READ : 0) | (writable ? GENERIC_WRITE : 0);
    // A success need not change the code, and it is logged.
    SetLastError(ERROR_SUCCESS);
    pipe =
        Handle(calls().createFile(path.c_str(), access, 0, nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    error = GetLastError();
    if (!pipe.isOpen()) {
        return false;
    }
    if (isDebug()) {
        logDebug("CreateFile - " + path + " handle=" + pipe.text() + " GetLastError=" + std::to_string(error));
    }
    return true;
}

/// Opens the pipe; while it is busy, waits for an instance and tries again, without limit to the number of tries.
///
/// @return SUCCESS, OPEN_TIMED_OUT, OPEN_FAILED or OPEN_DENIED.
int openPipe(const std::string& path, bool readable, bool writable, int timeoutMs, Handle& pipe) {
    DWORD error = ERROR_SUCCESS;
    while (!tryOpen(path, readable, writable, pipe, error)) {
        if (error == ERROR_ACCESS_DENIED) {
            return OPEN_DENIED;
        }
        if (error != ERROR_PIPE_BUSY) {
            return openFailed(error);
        }
        if (isDebug()) {
            logDebug("Waiting for named pipe.");
        }
        // Another client may take the instance first; then the wait starts afresh, with its full time.
        const DWORD wait = waitTime(timeoutMs);
        if (!calls().waitNamedPipe(path.c_str(), wait)) {
            return openTimedOut(path, wait);
        }
    }
    return SUCCESS;
}

}  // namespace

int openChannel(const std::string& path, bool readable, bool writable, int timeoutMs, ChannelHandle& channel) {
    channel.reset();
    int code = checkPipeName(path);
    if (code != 0) {
        return openFailed(static_cast<DWORD>(code));
    }
    PipeEnd end;
    const int result = openPipe(path, readable, writable, timeoutMs, end.pipe);
    if (result != SUCCESS) {
        return result;
    }
    code = end.createEvents();
    // Also without events: closing the channel gives the handle back.
    channel = std::make_shared<PipeChannel>(std::move(end));
    return code;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
