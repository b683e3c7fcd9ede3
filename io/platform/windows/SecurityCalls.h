#pragma once

#include <windows.h>
// Needs the header above.
#include <aclapi.h>

namespace Corvane {
namespace Io {
namespace Platform {

/// The calls that give a pipe its access rights. A test puts others in their place: it forces each failure, and
/// sees the arguments of each call and what becomes of all that is allocated. A call that fails leaves its reason
/// in GetLastError(), here as in the system, except setEntriesInAcl, which returns it.
struct SecurityCalls {
    decltype(&::OpenProcessToken) openProcessToken = &::OpenProcessToken;
    decltype(&::GetTokenInformation) getTokenInformation = &::GetTokenInformation;
    decltype(&::CloseHandle) closeHandle = &::CloseHandle;
    decltype(&::LocalAlloc) localAlloc = &::LocalAlloc;
    decltype(&::LocalFree) localFree = &::LocalFree;
    decltype(&::CopySid) copySid = &::CopySid;
    decltype(&::IsValidSid) isValidSid = &::IsValidSid;
    decltype(&::FreeSid) freeSid = &::FreeSid;
    decltype(&::LookupAccountNameA) lookupAccountName = &::LookupAccountNameA;
    decltype(&::SetEntriesInAclA) setEntriesInAcl = &::SetEntriesInAclA;
    decltype(&::InitializeSecurityDescriptor) initializeSecurityDescriptor = &::InitializeSecurityDescriptor;
    decltype(&::SetSecurityDescriptorDacl) setSecurityDescriptorDacl = &::SetSecurityDescriptorDacl;
    decltype(&::SetSecurityDescriptorGroup) setSecurityDescriptorGroup = &::SetSecurityDescriptorGroup;
};

/// The table that is in use, at first that of the system itself.
const SecurityCalls& securityCalls();

/// Puts `table` (not owned) in the place of the one that is in use; null puts the system's own back. To be called
/// while no thread creates an instance of a pipe.
void substituteSecurityCalls(const SecurityCalls* table);

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
