#include "tools/cvtp/platform/windows/PipeUser.h"

#include <windows.h>

#include <memory>
#include <type_traits>

namespace Corvane {
namespace Tools {

namespace {

struct HandleCloser {
    void operator()(HANDLE handle) const {
        if (handle != INVALID_HANDLE_VALUE) {
            ::CloseHandle(handle);
        }
    }
};
using Handle = std::unique_ptr<std::remove_pointer_t<HANDLE>, HandleCloser>;

/// The process that serves the pipe; 0 when it does not take this client.
ULONG findServer(const std::string& path) {
    // The server is a stranger and must not act in the name of this user.
    const Handle pipe(::CreateFileA(path.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, SECURITY_SQOS_PRESENT | SECURITY_ANONYMOUS, nullptr));
    ULONG process = 0;
    const bool isKnown =
        pipe.get() != INVALID_HANDLE_VALUE && ::GetNamedPipeServerProcessId(pipe.get(), &process) != FALSE;
    return isKnown ? process : 0;
}

/// Empty when the process cannot be asked.
std::string userOf(ULONG id) {
    const Handle process(::OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, id));
    HANDLE opened = nullptr;
    if (!process || !::OpenProcessToken(process.get(), TOKEN_QUERY, &opened)) {
        return std::string();
    }
    const Handle token(opened);
    DWORD size = 0;
    ::GetTokenInformation(token.get(), TokenUser, nullptr, 0, &size);
    const std::unique_ptr<char[]> information(new char[size + sizeof(TOKEN_USER)]);
    if (!::GetTokenInformation(token.get(), TokenUser, information.get(), size, &size)) {
        return std::string();
    }
    const PSID user = reinterpret_cast<const TOKEN_USER*>(information.get())->User.Sid;
    char name[256];
    char domain[256];
    DWORD nameSize = sizeof name;
    DWORD domainSize = sizeof domain;
    SID_NAME_USE use = SidTypeUnknown;
    return ::LookupAccountSidA(nullptr, user, name, &nameSize, domain, &domainSize, &use) ? std::string(name)
                                                                                          : std::string();
}

}  // namespace

std::string userOfPipe(const std::string& path) {
    const ULONG process = findServer(path);
    return process == 0 ? std::string() : userOf(process);
}

}  // namespace Tools
}  // namespace Corvane
