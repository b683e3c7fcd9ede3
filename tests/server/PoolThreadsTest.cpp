// The threads of the pool as the system sees them, which only Linux tells of: how many there are, and their stacks.

#include <pthread.h>

#include <filesystem>
#include <thread>

#include "tests/server/OwnProcess.h"
#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpServerRequest;
using Cvtp::CvtpServerResponse;

using PoolThreadsTest = ServerTest;

/// The threads of this process.
std::ptrdiff_t threadCount() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::distance(begin(tasks), end(tasks));
}

/// The size of the calling thread's stack, in bytes.
std::size_t stackSize() {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    std::size_t size = 0;
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
    return size;
}

TEST_F(PoolThreadsTest, ThreeAreThereBeforeTheFirstClient) {
    // One more runs the server. A thread of before that was joined may still be counted for a moment, so this looks
    // again.
    const std::ptrdiff_t expected = 1 + 3;
    std::ptrdiff_t added = 0;
    for (int round = 0; round < 10 && added != expected; ++round) {
        RunningServer service("pipe");
        std::atomic<std::ptrdiff_t> inRun{0};
        service.handler.onReady = [&inRun] {
            inRun = threadCount();
            return true;
        };
        const std::ptrdiff_t before = threadCount();
        service.start();
        service.stop();
        added = inRun - before;
    }
    EXPECT_EQ(added, expected);
}

/// While it lives, no thread can be started: none has room for a stack of that size.
class NoRoomForThreads {
 public:
    NoRoomForThreads() {
        pthread_getattr_default_np(&before);
        pthread_attr_t huge;
        pthread_attr_init(&huge);
        pthread_attr_setstacksize(&huge, std::size_t{1} << (sizeof(void*) * 8 - 2));
        pthread_setattr_default_np(&huge);
        pthread_attr_destroy(&huge);
    }
    ~NoRoomForThreads() {
        pthread_setattr_default_np(&before);
        pthread_attr_destroy(&before);
    }
    NoRoomForThreads(const NoRoomForThreads&) = delete;
    NoRoomForThreads& operator=(const NoRoomForThreads&) = delete;

 private:
    pthread_attr_t before;
};

void runWithoutRoomForThreads() {
    FunctionHandler handler;
    handler.onReady = [] {
        ADD_FAILURE() << "nobody can be served";
        return true;
    };
    Cvtp::CvtpServer server("pipe", 1);
    server.setHandler(&handler);
    const LogCapture log(3);
    {
        const NoRoomForThreads noRoom;
        server.run();
    }
    EXPECT_FALSE(server.isRunning());
    EXPECT_EQ(server.idleRequestProcessors(), 0);
    EXPECT_EQ(log.texts(), Lines({"ERROR: The CvtpServer on the named pipe pipe could not start its threads. "
                                  "System exception: cannot start thread"}));
}

TEST_F(PoolThreadsTest, ThatCannotBeStartedAreToldOf) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    // The pool loses the memory of a thread that does not start, which a leak checker would tell of.
    EXPECT_EXIT(
        {
            runWithoutRoomForThreads();
            leave();
        },
        ::testing::ExitedWithCode(0), "");
}

TEST_F(PoolThreadsTest, HaveStacksOfTheSizeThatIsUsual) {
    RunningServer service("pipe");
    std::atomic<std::size_t> ofWorker{0};
    service.handler.onPost = [&ofWorker](CvtpServerRequest& request, CvtpServerResponse& response) {
        ofWorker = stackSize();
        FunctionHandler::echo(request, response);
    };
    service.start();
    EXPECT_EQ(RawClient("pipe").post("hello"), "hello");
    service.stop();
    std::size_t usual = 0;
    std::thread([&usual] { usual = stackSize(); }).join();
    EXPECT_EQ(ofWorker, usual);
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
