#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "io/platform/windows/SystemCalls.h"
#include "tests/io/PipeTest.h"

namespace Corvane {
namespace Testing {

/// A call that fails and does not tell why.
const DWORD NO_CODE = 0xFFFFFFFF;

/// What a call of the system is to say.
struct Answer {
    /// 0 for success, or NO_CODE.
    DWORD error = 0;
    /// Of calls that move bytes: how many.
    DWORD count = 0;
};

/// Stands in the place of the system while it lives, without any pipe: each call says what the test has asked for,
/// first in, first out, and when nothing is left, that it has succeeded. Its handles are numbers, from 1000 on.
///
/// Each operation that it calls pending must be waited for before its record, or the handle of its pipe, goes.
class FakeSystem {
 public:
    FakeSystem() {
        instance = this;
        table.createNamedPipe = createNamedPipe;
        table.connectNamedPipe = connectNamedPipe;
        table.createFile = createFile;
        table.waitNamedPipe = waitNamedPipe;
        table.readFile = readFile;
        table.writeFile = writeFile;
        table.getOverlappedResult = getOverlappedResult;
        table.cancelIoEx = cancelIoEx;
        table.createEvent = createEvent;
        table.waitForSingleObject = waitForSingleObject;
        table.closeHandle = closeHandle;
        Io::Platform::substituteCalls(&table);
    }
    ~FakeSystem() {
        EXPECT_TRUE(pending.empty()) << "the system was never asked what became of it";
        Io::Platform::substituteCalls(nullptr);
        instance = nullptr;
    }
    FakeSystem(const FakeSystem&) = delete;
    FakeSystem& operator=(const FakeSystem&) = delete;

    std::deque<Answer> onCreateNamedPipe, onConnect, onCreateFile, onWaitNamedPipe, onRead, onWrite, onResult;
    std::deque<Answer> onCancel, onCreateEvent;
    /// What waits return.
    std::deque<DWORD> onWait;
    /// What successful reads bring.
    std::string incoming;

    /// Called within each call, once that is noted, with its name: what another thread does at this very moment.
    std::function<void(const std::string& name)> onCall;

    /// Each call with its arguments, in order; handles as their numbers.
    Lines made;
    /// The handles that are open.
    std::vector<std::uintptr_t> open;

    /// The calls of one kind.
    Lines madeOf(const std::string& name) const {
        Lines result;
        for (const std::string& call : made) {
            if (call.rfind(name + "(", 0) == 0) {
                result.push_back(call);
            }
        }
        return result;
    }

    /// The file of a pipe that is open.
    static constexpr std::uintptr_t FIRST_HANDLE = 1000;

 private:
    template <class... Arguments>
    void note(const char* name, const Arguments&... arguments) {
        std::string call = std::string(name) + "(";
        const char* separator = "";
        ((call += separator + text(arguments), separator = ", "), ...);
        made.push_back(call + ")");
        if (onCall) {
            onCall(name);
        }
    }

    /// Notes an operation that is to say `answer`.
    void begin(HANDLE pipe, const OVERLAPPED* record, const Answer& answer) {
        EXPECT_EQ(pending.count(record), 0u) << "the record is the system's";
        if (answer.error == ERROR_IO_PENDING) {
            pending[record] = pipe;
        }
    }
    /// A call about an operation must name the record that it began with.
    void expectPending(HANDLE pipe, const OVERLAPPED* record) {
        const auto found = pending.find(record);
        EXPECT_TRUE(found != pending.end() && found->second == pipe) << made.back();
    }
    static std::string text(DWORD value) { return std::to_string(value); }
    static std::string text(int value) { return std::to_string(value); }
    static std::string text(const char* value) { return value == nullptr ? "null" : value; }
    static std::string text(void* value) {
        return value == nullptr ? "null" : std::to_string(reinterpret_cast<std::intptr_t>(value));
    }
    /// Length, descriptor and whether handles are inherited.
    static std::string text(const SECURITY_ATTRIBUTES* attributes) {
        return attributes == nullptr
                   ? "null"
                   : "{" + text(attributes->nLength) + " " + text(attributes->lpSecurityDescriptor) + " " +
                         text(attributes->bInheritHandle) + "}";
    }
    /// Whether there is a record, and with which event.
    static std::string text(const OVERLAPPED* record) {
        if (record == nullptr) {
            return "all";
        }
        EXPECT_EQ(record->Offset, 0u);
        EXPECT_EQ(record->OffsetHigh, 0u);
        return "event " + text(record->hEvent);
    }

    static Answer next(std::deque<Answer>& answers, DWORD count = 0) {
        Answer answer{0, count};
        if (!answers.empty()) {
            answer = answers.front();
            answers.pop_front();
        }
        return answer;
    }
    static BOOL say(const Answer& answer) {
        if (answer.error != 0) {
            SetLastError(answer.error == NO_CODE ? 0 : answer.error);
        }
        return answer.error == 0;
    }
    HANDLE newHandle(const Answer& answer, HANDLE none) {
        if (!say(answer)) {
            return none;
        }
        open.push_back(nextHandle);
        return reinterpret_cast<HANDLE>(nextHandle++);
    }

    static HANDLE WINAPI createNamedPipe(LPCSTR path, DWORD openMode, DWORD pipeMode, DWORD instances,
                                         DWORD outSize, DWORD inSize, DWORD timeout,
                                         LPSECURITY_ATTRIBUTES attributes) {
        instance->note("CreateNamedPipeA", path, openMode, pipeMode, instances, outSize, inSize, timeout,
                       attributes);
        return instance->newHandle(next(instance->onCreateNamedPipe), INVALID_HANDLE_VALUE);
    }
    static BOOL WINAPI connectNamedPipe(HANDLE pipe, LPOVERLAPPED record) {
        instance->note("ConnectNamedPipe", pipe, static_cast<const OVERLAPPED*>(record));
        const Answer answer = next(instance->onConnect);
        instance->begin(pipe, record, answer);
        return say(answer);
    }
    static HANDLE WINAPI createFile(LPCSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES attributes,
                                    DWORD disposition, DWORD flags, HANDLE pattern) {
        instance->note("CreateFileA", path, access, share, static_cast<void*>(attributes), disposition, flags,
                       pattern);
        return instance->newHandle(next(instance->onCreateFile), INVALID_HANDLE_VALUE);
    }
    static BOOL WINAPI waitNamedPipe(LPCSTR path, DWORD timeout) {
        instance->note("WaitNamedPipeA", path, timeout);
        return say(next(instance->onWaitNamedPipe));
    }
    static BOOL WINAPI readFile(HANDLE pipe, LPVOID buffer, DWORD length, LPDWORD count, LPOVERLAPPED record) {
        instance->note("ReadFile", pipe, length, static_cast<const OVERLAPPED*>(record));
        const Answer answer = next(instance->onRead, static_cast<DWORD>(instance->incoming.size()));
        instance->begin(pipe, record, answer);
        instance->readBuffer = static_cast<char*>(buffer);
        if (answer.error == 0) {
            instance->deliver(answer.count);
        }
        *count = answer.count;
        return say(answer);
    }
    static BOOL WINAPI writeFile(HANDLE pipe, LPCVOID, DWORD length, LPDWORD count, LPOVERLAPPED record) {
        instance->note("WriteFile", pipe, length, static_cast<const OVERLAPPED*>(record));
        const Answer answer = next(instance->onWrite, length);
        instance->begin(pipe, record, answer);
        *count = answer.count;
        return say(answer);
    }
    static BOOL WINAPI getOverlappedResult(HANDLE pipe, LPOVERLAPPED record, LPDWORD count, BOOL wait) {
        instance->note("GetOverlappedResult", pipe, static_cast<const OVERLAPPED*>(record), wait);
        instance->expectPending(pipe, record);
        instance->pending.erase(record);
        const Answer answer = next(instance->onResult);
        instance->deliver(answer.count);
        *count = answer.count;
        return say(answer);
    }
    static BOOL WINAPI cancelIoEx(HANDLE pipe, LPOVERLAPPED record) {
        instance->note("CancelIoEx", pipe, static_cast<const OVERLAPPED*>(record));
        if (record != nullptr) {
            instance->expectPending(pipe, record);
        }
        return say(next(instance->onCancel));
    }
    static HANDLE WINAPI createEvent(LPSECURITY_ATTRIBUTES attributes, BOOL manual, BOOL initial, LPCSTR name) {
        instance->note("CreateEventA", static_cast<void*>(attributes), manual, initial, name);
        return instance->newHandle(next(instance->onCreateEvent), nullptr);
    }
    static DWORD WINAPI waitForSingleObject(HANDLE event, DWORD timeout) {
        instance->note("WaitForSingleObject", event, timeout);
        DWORD status = WAIT_OBJECT_0;
        if (!instance->onWait.empty()) {
            status = instance->onWait.front();
            instance->onWait.pop_front();
        }
        if (status == WAIT_FAILED) {
            SetLastError(ERROR_INVALID_HANDLE);
        }
        return status;
    }
    static BOOL WINAPI closeHandle(HANDLE handle) {
        instance->note("CloseHandle", handle);
        for (const auto& operation : instance->pending) {
            EXPECT_NE(operation.second, handle) << "an operation is still pending on it";
        }
        const auto place =
            std::find(instance->open.begin(), instance->open.end(), reinterpret_cast<std::uintptr_t>(handle));
        EXPECT_NE(place, instance->open.end()) << "not open: " << handle;
        if (place != instance->open.end()) {
            instance->open.erase(place);
        }
        return TRUE;
    }

    void deliver(DWORD count) {
        incoming.copy(readBuffer, count);
        incoming.erase(0, count);
    }

    static inline FakeSystem* instance = nullptr;
    Io::Platform::SystemCalls table;
    std::uintptr_t nextHandle = FIRST_HANDLE;
    char* readBuffer = nullptr;
    /// The operations that are pending, by their records, with the handles of their pipes.
    std::map<const OVERLAPPED*, HANDLE> pending;
};

}  // namespace Testing
}  // namespace Corvane
