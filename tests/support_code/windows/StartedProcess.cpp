#include "tests/support_code/StartedProcess.h"

#include <windows.h>

#include <stdexcept>
#include <thread>
#include <utility>

namespace Corvane {
namespace Testing {

namespace {

void require(bool succeeded, const char* what) {
    if (!succeeded) {
        throw std::runtime_error(what);
    }
}

/// Closes a handle at the end.
class OwnedHandle {
 public:
    OwnedHandle() = default;
    explicit OwnedHandle(HANDLE value) : value(value == INVALID_HANDLE_VALUE ? nullptr : value) {}
    OwnedHandle(OwnedHandle&& other) noexcept : value(std::exchange(other.value, nullptr)) {}
    OwnedHandle& operator=(OwnedHandle&& other) noexcept {
        std::swap(value, other.value);
        return *this;
    }
    ~OwnedHandle() { close(); }
    OwnedHandle(const OwnedHandle&) = delete;
    OwnedHandle& operator=(const OwnedHandle&) = delete;

    void close() {
        if (value != nullptr) {
            ::CloseHandle(std::exchange(value, nullptr));
        }
    }
    HANDLE get() const { return value; }
    bool isOpen() const { return value != nullptr; }

 private:
    HANDLE value = nullptr;
};

/// Makes a handle pass on to the processes that this one starts.
SECURITY_ATTRIBUTES passedOn() {
    SECURITY_ATTRIBUTES attributes = {};
    attributes.nLength = sizeof attributes;
    attributes.bInheritHandle = TRUE;
    return attributes;
}

/// Both ends of a channel of bytes. `own`, which is one of them, does not pass on.
void makeChannel(OwnedHandle& reading, OwnedHandle& writing, const OwnedHandle& own) {
    SECURITY_ATTRIBUTES attributes = passedOn();
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    require(::CreatePipe(&readEnd, &writeEnd, &attributes, 0) != 0, "no pipe");
    reading = OwnedHandle(readEnd);
    writing = OwnedHandle(writeEnd);
    require(::SetHandleInformation(own.get(), HANDLE_FLAG_INHERIT, 0) != 0, "the pipe would pass on");
}

/// An argument as programs take it apart again: in quotes, with a backslash before each quote, and with twice as
/// many of those backslashes that come before a quote.
std::string quoted(const std::string& argument) {
    std::string text = "\"";
    std::size_t backslashes = 0;
    for (const char c : argument) {
        if (c == '"') {
            text.append(backslashes + 1, '\\');
        }
        backslashes = c == '\\' ? backslashes + 1 : 0;
        text.push_back(c);
    }
    return text.append(backslashes, '\\') + "\"";
}

std::string commandLineOf(const std::vector<std::string>& command) {
    std::string line;
    for (const std::string& argument : command) {
        line += (line.empty() ? "" : " ") + quoted(argument);
    }
    return line;
}

class Process : public StartedProcess {
 public:
    Process(const std::vector<std::string>& command, const std::string& errorFile) {
        OwnedHandle childInput;
        OwnedHandle childOutput;
        OwnedHandle childError;
        makeChannel(childInput, input, input);
        makeChannel(output, childOutput, output);
        STARTUPINFOA startup = {};
        startup.cb = sizeof startup;
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = childInput.get();
        startup.hStdOutput = childOutput.get();
        startup.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
        if (!errorFile.empty()) {
            SECURITY_ATTRIBUTES attributes = passedOn();
            childError = OwnedHandle(::CreateFileA(errorFile.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &attributes,
                                                   CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
            require(childError.isOpen(), "no file for standard error");
            startup.hStdError = childError.get();
        }
        PROCESS_INFORMATION started = {};
        std::string line = commandLineOf(command);
        require(::CreateProcessA(command.front().c_str(), line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                                 &startup, &started) != 0,
                "the process does not start");
        ::CloseHandle(started.hThread);
        process = OwnedHandle(started.hProcess);
        number = started.dwProcessId;
        watchdog = std::thread([this] { watch(); });
    }

    ~Process() override {
        kill();
        watchdog.join();
    }

    void write(const std::string& text) override {
        DWORD count = 0;
        ::WriteFile(input.get(), text.data(), static_cast<DWORD>(text.size()), &count, nullptr);
    }

    void endInput() override { input.close(); }

    bool readMore(std::string& text) override {
        char block[4096];
        DWORD count = 0;
        if (!::ReadFile(output.get(), block, sizeof block, &count, nullptr)) {
            count = 0;
        }
        text.append(block, count);
        return count > 0;
    }

    void kill() override {
        // The number becomes its exit status.
        ::TerminateProcess(process.get(), static_cast<UINT>(KILLED));
    }

    int wait() override {
        ::WaitForSingleObject(process.get(), INFINITE);
        DWORD status = 0;
        require(::GetExitCodeProcess(process.get(), &status) != 0, "no exit status");
        return static_cast<int>(status);
    }

    unsigned long id() const override { return number; }

 private:
    void watch() {
        const std::chrono::milliseconds limit = LIMIT;
        if (::WaitForSingleObject(process.get(), static_cast<DWORD>(limit.count())) == WAIT_TIMEOUT) {
            kill();
        }
    }

    OwnedHandle input;
    OwnedHandle output;
    OwnedHandle process;
    DWORD number = 0;
    std::thread watchdog;
};

}  // namespace

std::unique_ptr<StartedProcess> StartedProcess::start(const std::vector<std::string>& command,
                                                      const std::string& errorFile) {
    return std::make_unique<Process>(command, errorFile);
}

}  // namespace Testing
}  // namespace Corvane
