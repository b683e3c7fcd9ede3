// What happens at the very moment at which the server asks for memory: that there is none, or that it is shut down
// just then. It has a program of its own, which gives out its memory itself.

#include <Poco/ThreadPool.h>

#include <array>
#include <cstddef>
#include <limits>
#include <new>
#include <string>
#include <thread>

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

/// A program with its memory watched knows the blocks of a text by their size, if it is long.
const std::string LONG_NAME(1000, 's');
const std::string WORKER_1 = LONG_NAME + "/Worker-1";

std::size_t blockOf(const std::string& text) {
    return text.size() + 1;
}

TEST_F(AllocationTest, WithoutMemoryForALineAWorkerClosesItsConnection) {
    const LogCapture log;
    RunningServer service("pipe");
    service.server.setOption(CvtpServer::SERVER_NAME, LONG_NAME);
    service.start();
    const std::size_t size = blockOf("Closing CvPipe (" + WORKER_1);
    WatchedMemory::watch(size, size, haveNoMemory);
    RawClient client("pipe");
    client.send("PUSH /r CVTP/1.0\r\n\r\n");
    EXPECT_EQ(client.receiveToEnd(), "");
    EXPECT_FALSE(WatchedMemory::isWatching());
}

TEST_F(AllocationTest, WithoutMemoryForALineAWorkerIsDeleted) {
    const LogCapture log;
    RunningServer service("pipe");
    service.server.setOption(CvtpServer::SERVER_NAME, LONG_NAME);
    service.start();
    const int threads = service.server.idleRequestProcessors();
    EXPECT_EQ(RawClient("pipe").post("first"), "first");
    while (service.server.idleRequestProcessors() < threads) {
        std::this_thread::yield();
    }
    const std::size_t size = blockOf("Deleting worker " + WORKER_1);
    WatchedMemory::watch(size, size, haveNoMemory);
    EXPECT_EQ(RawClient("pipe").post("second"), "second");
    EXPECT_FALSE(WatchedMemory::isWatching());
}

TEST_F(AllocationTest, WithoutMemoryForALineAWorkerThatRunsIsStoppedAndNotDeleted) {
    const std::string name(200, 'p');
    const LogCapture log;
    RunningServer service(name);
    service.server.setOption(CvtpServer::MAX_REQUEST_PROCESSORS, 3);
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 1000);
    service.start();
    std::array<RawClient, 3> clients{RawClient(name), RawClient(name), RawClient(name)};
    RawClient fourth(name);
    EXPECT_TRUE(log.waitFor("INFO: Waiting for thread to process CvPipe worker " + name + "/Worker-4"));
    const std::size_t size = blockOf("Done waiting for thread to process CvPipe worker " + name + "/Worker-4");
    WatchedMemory::watch(size, size, haveNoMemory);
    clients[0].close();
    EXPECT_THROW(service.join(), std::bad_alloc);
    EXPECT_FALSE(WatchedMemory::isWatching());
    EXPECT_TRUE(log.has("DEBUG: Stopping worker CvtpServer/Worker-4"));
    EXPECT_EQ(fourth.receiveToEnd(), "");
}

TEST_F(AllocationTest, WithoutMemoryForTheStackOfAFaultGuardAConnectionIsServed) {
    RunningServer service("pipe");
    CvtpServer::setExceptionHandler([](unsigned int, void*) { return 0; });
    service.start();
    WatchedMemory::watch(64 * 1024, 64 * 1024, haveNoMemory);
    EXPECT_EQ(RawClient("pipe").post("hello"), "hello");
#ifndef __SANITIZE_ADDRESS__
    // The address sanitizer gives each thread such a stack before.
    EXPECT_FALSE(WatchedMemory::isWatching());
#endif
    CvtpServer::setExceptionHandler(nullptr);
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
