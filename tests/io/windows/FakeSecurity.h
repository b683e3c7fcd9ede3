#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "io/platform/windows/PipeSecurity.h"
#include "io/platform/windows/SecurityCalls.h"
#include "tests/io/PipeTest.h"
#include "tests/io/windows/SecurityText.h"

namespace Corvane {
namespace Testing {

/// Stands in the place of the system's security while it lives: with a process, a user and groups of its own, of
/// which it tells the same on each machine, and with failures where the test asks for them. Whatever else the calls
/// do is the system's own work. It starts without a descriptor from before, and leaves none behind.
class FakeSecurity {
 public:
    static constexpr const char* OWNER = "S-1-5-21-1-2-3-1001";
    static constexpr const char* PRIMARY_GROUP = "S-1-5-21-1-2-3-513";
    /// The only account that has a name, and its name.
    static constexpr const char* READERS = "S-1-5-21-1-2-3-2002";
    static constexpr const char* NAME_OF_READERS = "Readers";

    FakeSecurity() {
        instance = this;
        table.openProcessToken = openProcessToken;
        table.getTokenInformation = getTokenInformation;
        table.closeHandle = closeHandle;
        table.localAlloc = localAlloc;
        table.localFree = localFree;
        table.copySid = copySid;
        table.isValidSid = isValidSid;
        table.freeSid = freeSid;
        table.lookupAccountName = lookupAccountName;
        table.setEntriesInAcl = setEntriesInAcl;
        table.initializeSecurityDescriptor = initializeSecurityDescriptor;
        table.setSecurityDescriptorDacl = setSecurityDescriptorDacl;
        table.setSecurityDescriptorGroup = setSecurityDescriptorGroup;
        Io::Platform::forgetPipeSecurity();
        Io::Platform::substituteSecurityCalls(&table);
    }
    ~FakeSecurity() {
        Io::Platform::substituteSecurityCalls(nullptr);
        Io::Platform::forgetPipeSecurity();
        for (const auto& entry : allocated) {
            ::LocalFree(entry.first);
        }
        instance = nullptr;
    }
    FakeSecurity(const FakeSecurity&) = delete;
    FakeSecurity& operator=(const FakeSecurity&) = delete;

    /// Makes the call `name` fail with `code` when it comes for the `time`th time, from 1 on.
    void fail(const std::string& name, int time, DWORD code) { failures[{name, time}] = code; }

    /// Each call with its arguments, in order. Memory is "#" and a number, counted up with each allocation; a
    /// security identifier that is not the library's own is its text.
    Lines made;

    /// The memory that is not freed yet, as above.
    Lines memory() const {
        Lines result;
        for (const auto& entry : allocated) {
            result.push_back(entry.second);
        }
        std::sort(result.begin(), result.end());
        return result;
    }

    int openTokens = 0;

 private:
    static inline const HANDLE TOKEN = reinterpret_cast<HANDLE>(std::uintptr_t{77});

    /// Notes a call. @return true when it is to fail, with its code as the last error.
    bool fails(const std::string& name, const Lines& arguments) {
        std::string call = name + "(";
        const char* separator = "";
        for (const std::string& argument : arguments) {
            call += separator + argument;
            separator = ", ";
        }
        made.push_back(call + ")");
        const auto found = failures.find({name, ++times[name]});
        if (found == failures.end()) {
            return false;
        }
        SetLastError(found->second);
        return true;
    }
    void keep(void* memory) {
        EXPECT_NE(memory, nullptr);
        allocated[memory] = "#" + std::to_string(++allocations);
        made.back() += " = " + allocated[memory];
    }
    std::string text(const void* memory) const {
        const auto found = allocated.find(const_cast<void*>(memory));
        return memory == nullptr ? "null" : found == allocated.end() ? "unknown" : found->second;
    }
    static std::string text(DWORD value) { return std::to_string(value); }
    void release(const std::string& name, void* memory) {
        fails(name, {text(memory)});
        EXPECT_EQ(allocated.erase(memory), 1u) << name << " of what is not allocated";
        ::LocalFree(memory);
    }

    static BOOL WINAPI openProcessToken(HANDLE process, DWORD access, PHANDLE token) {
        const bool isOwn = process == ::GetCurrentProcess();
        if (instance->fails("OpenProcessToken", {isOwn ? "process" : "unknown", text(access)})) {
            return FALSE;
        }
        ++instance->openTokens;
        *token = TOKEN;
        return TRUE;
    }
    static BOOL WINAPI closeHandle(HANDLE handle) {
        instance->fails("CloseHandle", {handle == TOKEN ? "token" : "unknown"});
        --instance->openTokens;
        return TRUE;
    }
    static BOOL WINAPI getTokenInformation(HANDLE token, TOKEN_INFORMATION_CLASS what, LPVOID buffer, DWORD size,
                                           PDWORD needed) {
        EXPECT_EQ(instance->openTokens, 1);
        if (instance->fails("GetTokenInformation", {token == TOKEN ? "token" : "unknown", std::to_string(what),
                                                    instance->text(buffer), text(size)})) {
            return FALSE;
        }
        const OwnSid sid(what == TokenOwner ? OWNER : PRIMARY_GROUP);
        *needed = static_cast<DWORD>(sizeof(TOKEN_OWNER)) + sid.length();
        if (size < *needed) {
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        // Like the system, first where the identifier is and then the identifier.
        char* const place = static_cast<char*>(buffer) + sizeof(TOKEN_OWNER);
        static_cast<TOKEN_OWNER*>(buffer)->Owner = place;
        return ::CopySid(sid.length(), place, sid.get());
    }
    static HLOCAL WINAPI localAlloc(UINT flags, SIZE_T size) {
        if (instance->fails("LocalAlloc", {text(DWORD{flags}), std::to_string(size)})) {
            return nullptr;
        }
        const HLOCAL memory = ::LocalAlloc(flags, size);
        instance->keep(memory);
        return memory;
    }
    static HLOCAL WINAPI localFree(HLOCAL memory) {
        instance->release("LocalFree", memory);
        return nullptr;
    }
    static PVOID WINAPI freeSid(PSID sid) {
        instance->release("FreeSid", sid);
        return nullptr;
    }
    static BOOL WINAPI copySid(DWORD length, PSID target, PSID source) {
        if (instance->fails("CopySid", {text(length), instance->text(target), sidText(source)})) {
            return FALSE;
        }
        return ::CopySid(length, target, source);
    }
    static BOOL WINAPI isValidSid(PSID sid) {
        return instance->fails("IsValidSid", {instance->text(sid)}) ? FALSE : ::IsValidSid(sid);
    }
    static BOOL WINAPI lookupAccountName(LPCSTR system, LPCSTR name, PSID sid, LPDWORD sidSize, LPSTR domain,
                                         LPDWORD domainSize, PSID_NAME_USE use) {
        EXPECT_EQ(system, nullptr);
        EXPECT_NE(use, nullptr);
        if (instance->fails("LookupAccountNameA", {name, instance->text(sid), text(*sidSize),
                                                   instance->text(domain), text(*domainSize)})) {
            return FALSE;
        }
        if (name != std::string(NAME_OF_READERS)) {
            SetLastError(ERROR_NONE_MAPPED);
            return FALSE;
        }
        static const char DOMAIN_NAME[] = "DOMAIN";
        const OwnSid readers(READERS);
        if (*sidSize < readers.length() || *domainSize < sizeof DOMAIN_NAME) {
            *sidSize = readers.length();
            *domainSize = sizeof DOMAIN_NAME;
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return FALSE;
        }
        std::copy(DOMAIN_NAME, DOMAIN_NAME + sizeof DOMAIN_NAME, domain);
        *use = SidTypeGroup;
        return ::CopySid(*sidSize, sid, readers.get());
    }
    static DWORD WINAPI setEntriesInAcl(ULONG count, PEXPLICIT_ACCESS_A entries, PACL old, PACL* list) {
        Lines arguments{std::to_string(count)};
        for (ULONG i = 0; i < count; ++i) {
            arguments.push_back(instance->entryText(entries[i]));
        }
        arguments.push_back(instance->text(old));
        if (instance->fails("SetEntriesInAclA", arguments)) {
            // The code comes back as the result, and the last error says something else.
            const DWORD code = GetLastError();
            SetLastError(ERROR_GEN_FAILURE);
            return code;
        }
        const DWORD code = ::SetEntriesInAclA(count, entries, old, list);
        EXPECT_EQ(code, DWORD{ERROR_SUCCESS});
        instance->keep(*list);
        return code;
    }
    std::string entryText(const EXPLICIT_ACCESS_A& entry) const {
        const TRUSTEE_A& trustee = entry.Trustee;
        return "{" + text(entry.grfAccessPermissions) + " " + std::to_string(entry.grfAccessMode) + " " +
               text(entry.grfInheritance) + ", trustee " +
               (trustee.pMultipleTrustee == nullptr ? "null " : "set ") +
               std::to_string(trustee.MultipleTrusteeOperation) + " " + std::to_string(trustee.TrusteeForm) + " " +
               std::to_string(trustee.TrusteeType) + " " + text(trustee.ptstrName) + "}";
    }
    static BOOL WINAPI initializeSecurityDescriptor(PSECURITY_DESCRIPTOR descriptor, DWORD revision) {
        return instance->fails("InitializeSecurityDescriptor", {instance->text(descriptor), text(revision)})
                   ? FALSE
                   : ::InitializeSecurityDescriptor(descriptor, revision);
    }
    static BOOL WINAPI setSecurityDescriptorDacl(PSECURITY_DESCRIPTOR descriptor, BOOL present, PACL list,
                                                 BOOL defaulted) {
        return instance->fails("SetSecurityDescriptorDacl", {instance->text(descriptor), std::to_string(present),
                                                             instance->text(list), std::to_string(defaulted)})
                   ? FALSE
                   : ::SetSecurityDescriptorDacl(descriptor, present, list, defaulted);
    }
    static BOOL WINAPI setSecurityDescriptorGroup(PSECURITY_DESCRIPTOR descriptor, PSID group, BOOL defaulted) {
        return instance->fails("SetSecurityDescriptorGroup",
                               {instance->text(descriptor), instance->text(group), std::to_string(defaulted)})
                   ? FALSE
                   : ::SetSecurityDescriptorGroup(descriptor, group, defaulted);
    }

    static inline FakeSecurity* instance = nullptr;
    Io::Platform::SecurityCalls table;
    std::map<std::pair<std::string, int>, DWORD> failures;
    std::map<std::string, int> times;
    std::map<void*, std::string> allocated;
    int allocations = 0;
};

}  // namespace Testing
}  // namespace Corvane
