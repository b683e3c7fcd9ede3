#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// The operating system's number of the calling thread, as the log shows it.
std::uint32_t currentThreadId();

/// A lock that its owner may take again. It stands on a mutex object of the operating system, and keeps the
/// owner's thread id and how often it was taken.
class RecursiveMutex {
 public:
    /// @throws std::system_error on Windows, when the system has no more mutex objects.
    RecursiveMutex();
    ~RecursiveMutex();
    RecursiveMutex(const RecursiveMutex&) = delete;
    RecursiveMutex& operator=(const RecursiveMutex&) = delete;

    /// Takes the lock; waits without limit while another thread has it.
    void lock();

    /// Gives the lock back once for each time it was taken. Does nothing in a thread that does not own it.
    void unlock();

 private:
    class SystemMutex;

    std::unique_ptr<SystemMutex> mutex;
    /// 0 while nobody owns the lock. Written by the owner only; atomic because others compare it with themselves.
    std::atomic<std::uint32_t> owner{0};
    /// Guarded by the lock itself.
    int count = 0;
};

/// Holds a RecursiveMutex for the length of a block. A null mutex is allowed, and then nothing is held.
class RecursiveLock {
 public:
    explicit RecursiveLock(RecursiveMutex* mutex);
    ~RecursiveLock();
    RecursiveLock(const RecursiveLock&) = delete;
    RecursiveLock& operator=(const RecursiveLock&) = delete;

 private:
    RecursiveMutex* mutex;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
