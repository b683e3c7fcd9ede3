#include "cvtp/internal/RecursiveMutex.h"

// A lock on the system's own mutex object and the system's own thread ids: the conditional below is the point of
// this file. The transport is built on it, so it cannot use the transport's platform folder.
#ifdef _WIN32
#include <windows.h>
#else
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

#include <mutex>
#include <system_error>

namespace Corvane {
namespace Internal {
namespace Cvtp {

#ifdef _WIN32

std::uint32_t currentThreadId() {
    return GetCurrentThreadId();
}

class RecursiveMutex::SystemMutex {
 public:
    /// @throws std::system_error the system has no more of them.
    SystemMutex() : handle(CreateMutexA(nullptr, FALSE, nullptr)) {
        if (handle == nullptr) {
            // Nothing would ever be locked, and nobody would notice.
            throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateMutex");
        }
    }
    ~SystemMutex() { CloseHandle(handle); }
    SystemMutex(const SystemMutex&) = delete;
    SystemMutex& operator=(const SystemMutex&) = delete;

    void lock() {
        // WAIT_ABANDONED is no failure: the last owner has ended without unlocking, and the lock is this thread's
        // now.
        WaitForSingleObject(handle, INFINITE);
    }
    void unlock() { ReleaseMutex(handle); }

 private:
    HANDLE handle;
};

#else

namespace {

/// The system call costs more than a lock, so each thread asks once. A variable of this model is found without a
/// call, which each lock and each unlock would make.
__attribute__((tls_model("initial-exec"))) thread_local std::uint32_t cachedThreadId = 0;

/// The one thread of a forked child has another id than the thread that forked.
void forgetThreadId() {
    cachedThreadId = 0;
}

}  // namespace

std::uint32_t currentThreadId() {
    if (cachedThreadId == 0) {
        static const int registered = pthread_atfork(nullptr, nullptr, forgetThreadId);
        static_cast<void>(registered);
        cachedThreadId = static_cast<std::uint32_t>(syscall(SYS_gettid));
    }
    return cachedThreadId;
}

class RecursiveMutex::SystemMutex {
 public:
    void lock() { mutex.lock(); }
    void unlock() { mutex.unlock(); }

 private:
    std::mutex mutex;
};

#endif

RecursiveMutex::RecursiveMutex() : mutex(std::make_unique<SystemMutex>()) {}

RecursiveMutex::~RecursiveMutex() = default;

void RecursiveMutex::lock() {
    const std::uint32_t self = currentThreadId();
    // Only this thread ever stores its own id, so a match cannot be stale.
    if (owner.load(std::memory_order_relaxed) == self) {
        ++count;
        return;
    }
    mutex->lock();
    owner.store(self, std::memory_order_relaxed);
    count = 1;
}

void RecursiveMutex::unlock() {
    if (owner.load(std::memory_order_relaxed) != currentThreadId()) {
        return;
    }
    if (--count <= 0) {
        owner.store(0, std::memory_order_relaxed);
        mutex->unlock();
    }
}

RecursiveLock::RecursiveLock(RecursiveMutex* mutex) : mutex(mutex) {
    if (mutex != nullptr) {
        mutex->lock();
    }
}

RecursiveLock::~RecursiveLock() {
    if (mutex != nullptr) {
        mutex->unlock();
    }
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
