#include "io/platform/windows/OverlappedOperation.h"

#include "io/platform/windows/SystemCalls.h"

namespace Corvane {
namespace Io {
namespace Platform {

bool cancelAll(HANDLE handle, DWORD& error) {
    const bool isCancelled = calls().cancelIoEx(handle, nullptr) != FALSE;
    error = isCancelled ? ERROR_SUCCESS : GetLastError();
    return isCancelled;
}

OVERLAPPED* OverlappedOperation::prepare(HANDLE event) {
    record = OVERLAPPED{};
    record.hEvent = event;
    return &record;
}

DWORD OverlappedOperation::wait(int timeoutMs) const {
    return calls().waitForSingleObject(record.hEvent, waitTime(timeoutMs));
}

DWORD OverlappedOperation::finish(HANDLE handle, DWORD& count) {
    // The code counts whether or not the call fails, and a call that succeeds leaves the code as it was: without
    // this it would be that of any call before.
    SetLastError(ERROR_SUCCESS);
    calls().getOverlappedResult(handle, &record, &count, TRUE);
    const DWORD error = GetLastError();
    pending = false;
    return error;
}

void OverlappedOperation::cancel(HANDLE handle) {
    calls().cancelIoEx(handle, &record);
}

void OverlappedOperation::settle(HANDLE handle) {
    if (pending) {
        DWORD count = 0;
        cancel(handle);
        finish(handle, count);
    }
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
