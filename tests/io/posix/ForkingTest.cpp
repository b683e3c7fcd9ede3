// What a child that was forked finds, which has none of the other threads of its parent.

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <sstream>
#include <thread>

#include "io/CvPipe.h"
#include "io/PipeStreams.h"
#include "io/platform/PipePlatform.h"
#include "tests/io/posix/PosixTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;

/// How far the fork of the test is, as its handlers tell.
struct ForkInTest {
    std::mutex lock;
    std::condition_variable changed;
    bool began = false;
    bool ended = false;
};

ForkInTest& forkInTest() {
    static ForkInTest* const instance = new ForkInTest;
    return *instance;
}

void note(bool ForkInTest::*step) {
    const std::lock_guard<std::mutex> guard(forkInTest().lock);
    forkInTest().*step = true;
    forkInTest().changed.notify_all();
}

TEST(ForkingTest, AChildFindsALockFreeThatAnotherThreadHad) {
    static std::mutex& shared = *new std::mutex;
    Platform::holdWhileForking(shared);
    // The last one to be registered is called first, before the fork.
    ASSERT_EQ(::pthread_atfork([] { note(&ForkInTest::began); }, [] { note(&ForkInTest::ended); }, nullptr), 0);
    Gate locked;
    Gate looked;
    std::thread holder([&locked, &looked] {
        {
            const std::lock_guard<std::mutex> held(shared);
            locked.open();
            std::unique_lock<std::mutex> guard(forkInTest().lock);
            forkInTest().changed.wait(guard, [] { return forkInTest().began; });
            // A fork that does not wait for this thread ends meanwhile.
            forkInTest().changed.wait_for(guard, std::chrono::milliseconds(200), [] { return forkInTest().ended; });
        }
        // The thread sanitizer calls a thread that ends before the child a leak of the child's.
        looked.pass();
    });
    locked.pass();
    ChildProcess child([] { return shared.try_lock() ? 0 : 1; });
    EXPECT_EQ(child.wait(), 0);
    looked.open();
    holder.join();
    // And the parent has it back.
    EXPECT_TRUE(shared.try_lock());
    shared.unlock();
}

TEST(ForkingTest, AChildDestroysItsCopyOfAPipeWhateverOtherThreadsDid) {
    std::atomic<bool> ended{false};
    const auto useStreams = [&ended] {
        std::stringbuf buffer;
        while (!ended) {
            PipeStreams::keep(PipeStreams::takeInput(&buffer), false);
        }
    };
    std::thread first(useStreams);
    std::thread second(useStreams);
    int ends = 0;
    for (int i = 0; i < 30; ++i) {
        auto pipe = std::make_unique<CvPipe>();
        pipe->bind("pipe", true, true);
        pipe->getInputStream();
        ChildProcess child([&pipe] {
            // One that waits for a thread that is not there ends, too.
            ::alarm(10);
            pipe.reset();
            return 0;
        });
        ends += child.wait() == 0 ? 1 : 0;
    }
    ended = true;
    first.join();
    second.join();
    EXPECT_EQ(ends, 30);
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
