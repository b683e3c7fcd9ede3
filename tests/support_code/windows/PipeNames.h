#pragma once

#include <string>

#include "io/platform/PipePlatform.h"
#include "io/platform/windows/SystemCalls.h"

namespace Corvane {
namespace Testing {

/// While it lives, the pipes of this process have names of their own in the system, so that tests that run at the
/// same time do not meet. One at a time, made and destroyed while no other thread works with pipes.
class PipeNames {
 public:
    PipeNames() {
        table.createNamedPipe = createNamedPipe;
        table.createFile = createFile;
        table.waitNamedPipe = waitNamedPipe;
        Io::Platform::substituteCalls(&table);
    }
    ~PipeNames() { Io::Platform::substituteCalls(nullptr); }
    PipeNames(const PipeNames&) = delete;
    PipeNames& operator=(const PipeNames&) = delete;

    /// The name by which other processes know a pipe of this one, and the other way round.
    static std::string forOthers(const std::string& name) {
        return std::to_string(::GetCurrentProcessId()) + "-" + name;
    }

    /// Sets a variable of the environment.
    static void setVariable(const char* name, const std::string& value) {
        ::SetEnvironmentVariableA(name, value.c_str());
    }

    /// The path by which the system knows the pipe.
    static std::string ownPath(const std::string& path) {
        const std::string prefix = Io::Platform::PIPE_PREFIX;
        return prefix + forOthers(path.substr(prefix.size()));
    }

 private:
    static HANDLE WINAPI createNamedPipe(LPCSTR path, DWORD openMode, DWORD pipeMode, DWORD instances,
                                         DWORD outSize, DWORD inSize, DWORD timeout,
                                         LPSECURITY_ATTRIBUTES attributes) {
        return ::CreateNamedPipeA(ownPath(path).c_str(), openMode, pipeMode, instances, outSize, inSize, timeout,
                                  attributes);
    }
    static HANDLE WINAPI createFile(LPCSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes,
                                    DWORD disposition, DWORD flags, HANDLE pattern) {
        return ::CreateFileA(ownPath(path).c_str(), access, share, attributes, disposition, flags, pattern);
    }
    static BOOL WINAPI waitNamedPipe(LPCSTR path, DWORD timeout) {
        return ::WaitNamedPipeA(ownPath(path).c_str(), timeout);
    }

    Io::Platform::SystemCalls table;
};

}  // namespace Testing
}  // namespace Corvane
