#pragma once

#include <memory>

#include "io/platform/windows/SecurityCalls.h"

namespace Corvane {
namespace Io {
namespace Platform {

struct TokenRelease {
    void operator()(void* token) const { securityCalls().closeHandle(token); }
};

struct LocalRelease {
    void operator()(void* memory) const { securityCalls().localFree(memory); }
};

struct SidRelease {
    // FreeSid although LocalAlloc made the memory; deliberate. Both work on the heap of the process.
    void operator()(void* sid) const { securityCalls().freeSid(sid); }
};

/// An access token that is open.
using Token = std::unique_ptr<void, TokenRelease>;
using LocalMemory = std::unique_ptr<void, LocalRelease>;
/// A security identifier: of a user, of a group.
using Sid = std::unique_ptr<void, SidRelease>;
using AccessList = std::unique_ptr<ACL, LocalRelease>;

/// Logs `text` at ERROR, followed by `code`.
void logSecurityFailure(const char* text, DWORD code);

/// The same with the code that the system's last call has left. To be called before any other call.
void logSecurityFailure(const char* text);

/// Memory filled with zeros; null after a failure, which is logged with the text `failure`.
template <class Owner>
Owner allocateLocal(SIZE_T size, const char* failure) {
    Owner memory(securityCalls().localAlloc(LPTR, size));
    if (!memory) {
        logSecurityFailure(failure);
    }
    return memory;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
