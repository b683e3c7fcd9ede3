// What happens at the very moment at which the server asks for memory: that there is none, or that it is shut down
// just then. It has a program of its own, which gives out its memory itself.

#include <Poco/ThreadPool.h>

#include <cstddef>
#include <limits>
#include <new>

#include "io/CvPipe.h"
#include "tests/server/ServerTest.h"
#include "tests/support_code/WatchedMemory.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpServer;
using ::testing::ElementsAre;

class AllocationTest : public ServerTest {
 protected:
    ~AllocationTest() override { WatchedMemory::forget(); }
};

[[noreturn]] void haveNoMemory() {
    throw std::bad_alloc();
}

TEST_F(AllocationTest, AShutdownJustBeforeTheAcceptEndsTheServerInOrder) {
    const LogCapture log;
    RunningServer service("pipe");
    service.handler.onReady = [&service] {
        // The pipe for the first client is made between the look at the running flag and the accept.
        WatchedMemory::watch(sizeof(Io::CvPipe), sizeof(Io::CvPipe), [&service] { service.server.shutdown(); });
        return true;
    };
    service.start();
    service.join();
    EXPECT_FALSE(WatchedMemory::isWatching());
    EXPECT_FALSE(service.server.isRunning());
    EXPECT_THAT(serverLines(log),
                ElementsAre("DEBUG: CvTpServer is using Pipe pipe", "DEBUG: CvTpServer is running on Pipe pipe",
                            "DEBUG: CvtpServer pipe was interrupted. The CvtpServer will shutdown. Pipe is closed.",
                            summaryLine("pipe", 0, 0, 0, 0, 0, 0), "INFO: CvtpServer pipe is stopped."));
}

TEST_F(AllocationTest, WithoutMemoryForItsThreadsTheServerLogsAndReturns) {
    FunctionHandler handler;
    CvtpServer server("pipe", 1);
    server.setHandler(&handler);
    const LogCapture log(3);
    WatchedMemory::watch(sizeof(Poco::ThreadPool), std::numeric_limits<std::size_t>::max(), haveNoMemory);
    server.run();
    EXPECT_FALSE(WatchedMemory::isWatching());
    EXPECT_FALSE(server.isRunning());
    EXPECT_EQ(server.idleRequestProcessors(), 0);
    EXPECT_EQ(log.texts(), Lines({"ERROR: The CvtpServer on the named pipe pipe has no memory for its threads."}));
}

TEST_F(AllocationTest, WithoutMemoryForItsBuffersAWorkerClosesItsConnection) {
    const LogCapture log;
    RunningServer service("pipe");
    service.server.setOption(CvtpServer::BUFFER_SIZE, 123457);
    service.start();
    // Those of both directions at once.
    WatchedMemory::watch(2 * 123457, 3 * 123457, haveNoMemory);
    RawClient client("pipe");
    EXPECT_EQ(client.receiveToEnd(), "");
    EXPECT_FALSE(WatchedMemory::isWatching());
    EXPECT_THAT(workerLines(log),
                ElementsAre("INFO: Application error detected. The pipe will be closed.", closingLine()));
    EXPECT_EQ(RawClient("pipe").post("hello"), "hello");
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
