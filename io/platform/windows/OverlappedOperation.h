#pragma once

#include <windows.h>

namespace Corvane {
namespace Io {
namespace Platform {

/// How long the system's waits last for a timeout of the library, for which 0 and below mean forever.
inline DWORD waitTime(int timeoutMs) {
    return timeoutMs <= 0 ? INFINITE : static_cast<DWORD>(timeoutMs);
}

/// Asks the system to end all that is pending on the handle, no matter which thread began it.
///
/// @param error the code of the system, if it refuses, which it also does when there is nothing to end.
/// @return whether it will.
bool cancelAll(HANDLE handle, DWORD& error);

/// The record of an operation that the system works on in the background, one after the other.
///
/// While an operation is pending the system writes to the record and to the buffer of the operation, so neither may
/// lie in a stack frame that the call may leave earlier, and whoever owns them calls settle() before they go.
///
/// Not for several threads at once, but for CancelIoEx() on the handle, which any thread may call.
class OverlappedOperation {
 public:
    OverlappedOperation() = default;
    OverlappedOperation(const OverlappedOperation&) = delete;
    OverlappedOperation& operator=(const OverlappedOperation&) = delete;

    /// The record for the next operation. None may be pending.
    ///
    /// @param event manual-reset, not owned, used by this record alone; the system resets it when an operation
    ///        begins and sets it when it is done.
    OVERLAPPED* prepare(HANDLE event);

    /// Notes that the system has answered ERROR_IO_PENDING.
    void setPending() { pending = true; }
    bool isPending() const { return pending; }

    /// Waits until the pending operation is done.
    ///
    /// @return what WaitForSingleObject() says: 0, or WAIT_TIMEOUT, or a failure.
    DWORD wait(int timeoutMs) const;

    /// Takes the result of the pending operation, which is none from then on; waits for it if need be.
    ///
    /// @param count the bytes that it moved.
    /// @return 0 or the code of the system.
    DWORD finish(HANDLE handle, DWORD& count);

    /// Asks the system to end the pending operation. It may have ended already, so a failure means nothing.
    void cancel(HANDLE handle);

    /// Ends the operation if one is pending, and waits until the system has let go of record and buffer.
    void settle(HANDLE handle);

 private:
    OVERLAPPED record{};
    bool pending = false;
};

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
