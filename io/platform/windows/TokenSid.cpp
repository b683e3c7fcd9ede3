#include "io/platform/windows/TokenSid.h"

#include "cvtp/internal/Logging.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using Internal::Cvtp::isDebug;
using Internal::Cvtp::logDebug;

/// What is read from the token of the process, and what the log says on the way.
struct Reading {
    TOKEN_INFORMATION_CLASS what;
    const char* noMemory;
    const char* notRead;
    const char* noMemoryForSid;
    const char* notCopied;
    const char* valid;
};

// The spelling is deliberate: others search the log for these texts.
const Reading OWNER = {TokenOwner,
                       "LocalAlloc failed for pUserInfo: ",
                       "GetTokenInformation to get user who will become the owner of any objects - Error: ",
                       "LocalAlloc failed for user owner SID: ",
                       "Copy failed for user owner SID: ",
                       "User owner SID is valid. "};
const Reading PRIMARY_GROUP = {TokenPrimaryGroup,
                               "LocalAlloc failed for pPriamryGroupInfo: ",
                               "GetTokenInformation to get primary group information - Error: ",
                               "LocalAlloc failed for primary group SID: ",
                               "Copy failed for primary group SID: ",
                               "Default Process Primary Group SID is valid. "};

Token openToken() {
    HANDLE token = nullptr;
    if (!securityCalls().openProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) {
        logSecurityFailure("OpenProcessToken failed. GetLastError returned: ");
        return Token();
    }
    return Token(token);
}

LocalMemory readInformation(const Reading& reading) {
    const Token token = openToken();
    if (!token) {
        return LocalMemory();
    }
    DWORD size = 0;
    if (!securityCalls().getTokenInformation(token.get(), reading.what, nullptr, 0, &size)) {
        const DWORD code = GetLastError();
        if (code != ERROR_INSUFFICIENT_BUFFER) {
            logSecurityFailure("GetTokenInformation to get buffer size. Error: ", code);
            return LocalMemory();
        }
    }
    LocalMemory information = allocateLocal<LocalMemory>(size, reading.noMemory);
    if (information &&
        !securityCalls().getTokenInformation(token.get(), reading.what, information.get(), size, &size)) {
        logSecurityFailure(reading.notRead);
        return LocalMemory();
    }
    return information;
}

/// The identifier that `information` refers to and holds.
PSID sidIn(const Reading& reading, void* information) {
    return reading.what == TokenOwner ? static_cast<TOKEN_OWNER*>(information)->Owner
                                      : static_cast<TOKEN_PRIMARY_GROUP*>(information)->PrimaryGroup;
}

Sid copyOf(PSID source, const Reading& reading) {
    const DWORD length = ::GetLengthSid(source);
    Sid sid = allocateLocal<Sid>(length, reading.noMemoryForSid);
    if (!sid) {
        return sid;
    }
    if (!securityCalls().copySid(length, sid.get(), source)) {
        logSecurityFailure(reading.notCopied);
        return Sid();
    }
    // One that is not valid is kept, and nothing tells of it; deliberate.
    if (securityCalls().isValidSid(sid.get()) && isDebug()) {
        logDebug(reading.valid);
    }
    return sid;
}

Sid readSid(const Reading& reading) {
    const LocalMemory information = readInformation(reading);
    return information ? copyOf(sidIn(reading, information.get()), reading) : Sid();
}

}  // namespace

Sid readOwnerSid() {
    return readSid(OWNER);
}

Sid readPrimaryGroupSid() {
    return readSid(PRIMARY_GROUP);
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
