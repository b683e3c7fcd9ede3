#include "io/platform/windows/AccountSid.h"

#include "cvtp/internal/Logging.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using Internal::Cvtp::isDebug;
using Internal::Cvtp::logDebug;

struct Sizes {
    DWORD sid = 0;
    DWORD domain = 0;
};

bool lookUp(const std::string& name, PSID sid, void* domain, Sizes& sizes) {
    SID_NAME_USE use = SidTypeUnknown;
    return securityCalls().lookupAccountName(nullptr, name.c_str(), sid, &sizes.sid, static_cast<char*>(domain),
                                             &sizes.domain, &use) != FALSE;
}

bool lookUpSizes(const std::string& name, Sizes& sizes) {
    if (!lookUp(name, nullptr, nullptr, sizes)) {
        const DWORD code = GetLastError();
        if (code != ERROR_INSUFFICIENT_BUFFER) {
            // The doubled colon is deliberate.
            logSecurityFailure("LookupAccountName to get buffer size failed. GetLastError returned:: ", code);
            return false;
        }
    }
    return true;
}

}  // namespace

Sid lookUpAccountSid(const std::string& name) {
    Sizes sizes;
    if (!lookUpSizes(name, sizes)) {
        return Sid();
    }
    Sid sid = allocateLocal<Sid>(sizes.sid, "LocalAlloc failed for groupSID: ");
    if (!sid) {
        return Sid();
    }
    // The system wants the name of the domain to be taken as well.
    const LocalMemory domain =
        allocateLocal<LocalMemory>(static_cast<SIZE_T>(sizes.domain) + 1, "LocalAlloc failed for domain: ");
    if (!domain) {
        return Sid();
    }
    if (!lookUp(name, sid.get(), domain.get(), sizes)) {
        logSecurityFailure("LookupAccountName to get group SID - Error: ");
        return Sid();
    }
    // One that is not valid is kept nevertheless; deliberate.
    if (!securityCalls().isValidSid(sid.get()) && isDebug()) {
        logDebug("The SID for: '" + name + "' is invalid.");
    }
    return sid;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
