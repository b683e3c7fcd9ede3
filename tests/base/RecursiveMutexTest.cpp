#include "cvtp/internal/RecursiveMutex.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>
#include <vector>

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

/// Takes and gives back the lock in a thread of its own; ready once that thread has had it.
std::future<void> lockElsewhere(RecursiveMutex& mutex) {
    return std::async(std::launch::async, [&mutex] { const RecursiveLock lock(&mutex); });
}

bool isReady(const std::future<void>& future, int milliseconds) {
    return future.wait_for(std::chrono::milliseconds(milliseconds)) == std::future_status::ready;
}

TEST(RecursiveMutex, ItsOwnerTakesItAgainWithoutWaiting) {
    RecursiveMutex mutex;
    const RecursiveLock first(&mutex);
    const RecursiveLock second(&mutex);
    const RecursiveLock third(&mutex);
}

TEST(RecursiveMutex, AnotherThreadWaitsUntilItWasGivenBackAsOftenAsTaken) {
    RecursiveMutex mutex;
    mutex.lock();
    mutex.lock();
    std::future<void> other = lockElsewhere(mutex);
    EXPECT_FALSE(isReady(other, 50));
    mutex.unlock();
    EXPECT_FALSE(isReady(other, 50));
    mutex.unlock();
    other.get();
}

TEST(RecursiveMutex, AnUnlockByAnotherThreadDoesNothing) {
    RecursiveMutex mutex;
    mutex.lock();
    std::thread([&mutex] { mutex.unlock(); }).join();
    std::future<void> other = lockElsewhere(mutex);
    EXPECT_FALSE(isReady(other, 50));
    mutex.unlock();
    other.get();
}

TEST(RecursiveMutex, AnUnlockThatIsOneTooManyDoesNothing) {
    RecursiveMutex mutex;
    mutex.unlock();
    mutex.lock();
    mutex.unlock();
    mutex.unlock();
    lockElsewhere(mutex).get();
    mutex.lock();
    std::future<void> other = lockElsewhere(mutex);
    EXPECT_FALSE(isReady(other, 50));
    mutex.unlock();
    other.get();
}

TEST(RecursiveMutex, TheGuardAcceptsNull) {
    const RecursiveLock lock(nullptr);
}

TEST(RecursiveMutex, OneThreadAtATimeIsInside) {
    RecursiveMutex mutex;
    int counter = 0;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 2000; ++n) {
                const RecursiveLock outer(&mutex);
                const RecursiveLock inner(&mutex);
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 8000);
}

TEST(CurrentThreadId, IsTheSameInOneThreadAndDiffersFromOtherLiveThreads) {
    const std::uint32_t own = currentThreadId();
    EXPECT_NE(own, 0U);
    EXPECT_EQ(currentThreadId(), own);
    EXPECT_NE(std::async(std::launch::async, currentThreadId).get(), own);
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
