#include "io/platform/windows/SecurityDescriptorBuilder.h"

#include "cvtp/internal/Logging.h"
#include "io/platform/windows/AccountSid.h"
#include "io/platform/windows/SecurityResources.h"
#include "io/platform/windows/TokenSid.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using Internal::Cvtp::isError;
using Internal::Cvtp::logError;

EXPLICIT_ACCESS_A readAndWrite(PSID trustee, TRUSTEE_TYPE type) {
    EXPLICIT_ACCESS_A access = {};
    access.grfAccessPermissions = GENERIC_READ | GENERIC_WRITE;
    access.grfAccessMode = SET_ACCESS;
    access.grfInheritance = NO_INHERITANCE;
    access.Trustee.pMultipleTrustee = nullptr;
    access.Trustee.MultipleTrusteeOperation = NO_MULTIPLE_TRUSTEE;
    access.Trustee.TrusteeForm = TRUSTEE_IS_SID;
    access.Trustee.TrusteeType = type;
    // The form above says that this is no text.
    access.Trustee.ptstrName = static_cast<char*>(trustee);
    return access;
}

/// Null for none.
Sid readGroupSid(const AccessSettings& settings) {
    if (!settings.group.empty()) {
        return lookUpAccountSid(settings.group);
    }
    return settings.groupHasAccess ? readPrimaryGroupSid() : Sid();
}

/// @param group null for no second entry.
AccessList createAccessList(PSID owner, PSID group) {
    EXPLICIT_ACCESS_A entries[2] = {readAndWrite(owner, TRUSTEE_IS_USER), readAndWrite(group, TRUSTEE_IS_GROUP)};
    PACL list = nullptr;
    const DWORD code = securityCalls().setEntriesInAcl(group == nullptr ? 1 : 2, entries, nullptr, &list);
    if (code != ERROR_SUCCESS) {
        logSecurityFailure("SetEntriesInAcl Error: ", code);
        return AccessList();
    }
    return AccessList(list);
}

/// @param group null for none. Null after a failure. What is returned refers to `list` and `group`.
LocalMemory createDescriptor(ACL* list, PSID group) {
    LocalMemory descriptor =
        allocateLocal<LocalMemory>(SECURITY_DESCRIPTOR_MIN_LENGTH, "LocalAlloc Security descriptor. Error: ");
    if (!descriptor) {
        return descriptor;
    }
    if (!securityCalls().initializeSecurityDescriptor(descriptor.get(), SECURITY_DESCRIPTOR_REVISION)) {
        logSecurityFailure("Initialize a security descriptor. Error: ");
        return LocalMemory();
    }
    if (!securityCalls().setSecurityDescriptorDacl(descriptor.get(), TRUE, list, FALSE)) {
        logSecurityFailure("SetSecurityDescriptorDacl Error: ");
        return LocalMemory();
    }
    if (!securityCalls().setSecurityDescriptorGroup(descriptor.get(), group, FALSE)) {
        logSecurityFailure("SetSecurityDescriptorGroup Error: ");
        return LocalMemory();
    }
    return descriptor;
}

/// For what lives as long as the process.
template <class Owner>
void keepForever(Owner& owner) {
    static_cast<void>(owner.release());
}

}  // namespace

PSECURITY_DESCRIPTOR buildSecurityDescriptor(const AccessSettings& settings) {
    Sid owner = readOwnerSid();
    if (!owner) {
        if (isError()) {
            logError("The Owner SID was not retrieved.");
        }
        return nullptr;
    }
    Sid group = readGroupSid(settings);
    AccessList list = createAccessList(owner.get(), settings.groupHasAccess ? group.get() : nullptr);
    if (!list) {
        return nullptr;
    }
    LocalMemory descriptor = createDescriptor(list.get(), group.get());
    if (!descriptor) {
        return nullptr;
    }
    // Of the owner the list has a copy, and the descriptor does not refer to him; kept all the same, deliberately.
    keepForever(owner);
    keepForever(group);
    keepForever(list);
    return descriptor.release();
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
