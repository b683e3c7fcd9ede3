#pragma once

#include <windows.h>

namespace Corvane {
namespace Io {
namespace Platform {

/// The calls that the transport makes on the system. A test puts others in their place: it forces failures that the
/// system shows only rarely, and sees the arguments of each call. A call that fails leaves its reason in
/// GetLastError(), here as in the system.
struct SystemCalls {
    decltype(&::CreateNamedPipeA) createNamedPipe = &::CreateNamedPipeA;
    decltype(&::ConnectNamedPipe) connectNamedPipe = &::ConnectNamedPipe;
    decltype(&::CreateFileA) createFile = &::CreateFileA;
    decltype(&::WaitNamedPipeA) waitNamedPipe = &::WaitNamedPipeA;
    decltype(&::ReadFile) readFile = &::ReadFile;
    decltype(&::WriteFile) writeFile = &::WriteFile;
    decltype(&::GetOverlappedResult) getOverlappedResult = &::GetOverlappedResult;
    decltype(&::CancelIoEx) cancelIoEx = &::CancelIoEx;
    decltype(&::CreateEventA) createEvent = &::CreateEventA;
    decltype(&::WaitForSingleObject) waitForSingleObject = &::WaitForSingleObject;
    decltype(&::CloseHandle) closeHandle = &::CloseHandle;
};

/// What a function that returns the code of the system returns after a call that has failed with `code`. A call may
/// fail and leave no code, which must not look like a success.
inline int failureCode(DWORD code) {
    return static_cast<int>(code != ERROR_SUCCESS ? code : ERROR_GEN_FAILURE);
}

/// The table that is in use, at first that of the system itself.
const SystemCalls& calls();

/// Puts `table` (not owned) in the place of the one that is in use; null puts the system's own back. To be called
/// while no thread is inside a call of a pipe.
void substituteCalls(const SystemCalls* table);

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
