// Shutdown at every moment.

#include <algorithm>
#include <memory>
#include <random>

#include "io/Exceptions.h"
#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpServer;
using Cvtp::CvtpServerRequest;
using Cvtp::CvtpServerResponse;
using ::testing::AnyOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;
using ::testing::StartsWith;

using ServerStopTest = ServerTest;

const std::string INTERRUPTED_WAIT = "DEBUG: InterruptedException - CvtpServer/Worker-1. CvPipe read aborted.";

/// A server that waits for its workers when it need not takes 4 seconds for it.
const long long WITHOUT_WAITING_MS = 3000;

/// How often the listening pipe was closed. A connection's line has no blank before "event".
int listenerCloses(const LogCapture& log) {
    const Lines lines = log.texts();
    return static_cast<int>(std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
        return line.rfind("DEBUG: Close Handles: handle=", 0) == 0 && line.find(" event= ") != std::string::npos;
    }));
}

TEST_F(ServerStopTest, TwiceClosesThePipeOnce) {
    const LogCapture log;
    {
        RunningServer service("pipe");
        service.start();
        service.server.shutdown();
        EXPECT_EQ(listenerCloses(log), 1);
        service.server.shutdown();
        service.join();
        service.server.shutdown();
    }
    EXPECT_EQ(listenerCloses(log), 1);
}

TEST_F(ServerStopTest, WhileTheHandlerIsAskedWhetherItIsReady) {
    const LogCapture log;
    RunningServer service("pipe");
    Gate ready;
    service.handler.onReady = [&] {
        ready.wait();
        return true;
    };
    service.start();
    service.server.shutdown();
    ready.open();
    service.join();
    EXPECT_FALSE(log.has("DEBUG: Calling ConnectNamedPipe."));
    EXPECT_EQ(log.texts().back(), "INFO: CvtpServer pipe is stopped.");
}

TEST_F(ServerStopTest, ByTheHandlerThatIsAskedWhetherItIsReady) {
    const LogCapture log;
    RunningServer service("pipe");
    service.handler.onReady = [&] {
        service.server.shutdown();
        return true;
    };
    service.start();
    service.join();
    EXPECT_FALSE(log.has("DEBUG: Calling ConnectNamedPipe."));
}

TEST_F(ServerStopTest, InAccept) {
    const LogCapture log;
    RunningServer service("pipe");
    service.start();
    EXPECT_TRUE(log.waitFor("DEBUG: Calling ConnectNamedPipe."));
    service.stop();
    EXPECT_TRUE(log.has("DEBUG: CvtpServer pipe was interrupted. The CvtpServer will shutdown. accept aborted"));
}

TEST_F(ServerStopTest, ByAHandlerOfARequest) {
    RunningServer service("pipe");
    service.handler.onPost = [&](CvtpServerRequest& request, CvtpServerResponse& response) {
        FunctionHandler::echo(request, response);
        service.server.shutdown();
    };
    service.start();
    EXPECT_EQ(RawClient("pipe").post("hello"), "hello");
    service.join();
    EXPECT_FALSE(service.server.isRunning());
}

TEST_F(ServerStopTest, WithConnectionsWaitingForARequestInterruptsThem) {
    const LogCapture log;
    RunningServer service("pipe");
    service.start();
    RawClient first("pipe");
    first.post("hello");
    EXPECT_TRUE(log.waitFor("DEBUG: Activated worker thread pipe/Worker-1 (1)."));
    RawClient second("pipe");
    second.post("hello");
    EXPECT_TRUE(log.waitFor("DEBUG: Activated worker thread pipe/Worker-2 (2)."));
    const StopWatch watch;
    service.stop();
    EXPECT_LT(watch.elapsed(), WITHOUT_WAITING_MS);
    EXPECT_EQ(first.receiveToEnd(), "");
    EXPECT_EQ(second.receiveToEnd(), "");
    Lines lines = linesOfThread(log, "DEBUG: CvTpServer is running on Pipe pipe");
    lines.erase(lines.begin(), lines.begin() + 5);
    EXPECT_THAT(
        lines,
        ElementsAre("DEBUG: CvtpServer pipe was interrupted. The CvtpServer will shutdown. accept aborted",
                    "DEBUG: Stopping worker CvtpServer/Worker-1", "DEBUG: Stopping worker CvtpServer/Worker-2",
                    "DEBUG: Deleting worker CvtpServer/Worker-1", "DEBUG: Deleting worker CvtpServer/Worker-2",
                    summaryLine("pipe", 2, 0, 2, 0, 0, 2), "INFO: CvtpServer pipe is stopped."));
    const std::string begin = "DEBUG: Begin processing of POST request (CvtpServer/Worker-1).";
    const std::string complete = "DEBUG: Complete processing of POST request (CvtpServer/Worker-1).";
    // A worker that was not back at its wait yet sees the stop before it.
    EXPECT_THAT(workerLines(log), AnyOf(ElementsAre(begin, complete, INTERRUPTED_WAIT, closingLine()),
                                        ElementsAre(begin, complete, closingLine())));
}

TEST_F(ServerStopTest, InterruptsTheWaitForARequest) {
    // Nothing tells that a worker waits, so a server may be stopped just before; not each of many.
    bool seen = false;
    for (int round = 0; round < 100 && !seen; ++round) {
        const LogCapture log;
        RunningServer service("pipe");
        service.start();
        RawClient client("pipe");
        client.post("hello");
        std::this_thread::sleep_for(std::chrono::milliseconds(round));
        service.stop();
        seen = log.has(INTERRUPTED_WAIT);
    }
    EXPECT_TRUE(seen);
}

TEST_F(ServerStopTest, WithFinishedWorkersStopsNoneOfThem) {
    const LogCapture log;
    RunningServer service("pipe");
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 1);
    service.start();
    RawClient client("pipe");
    EXPECT_EQ(client.receiveToEnd(), "");
    EXPECT_TRUE(log.waitFor(closingLine()));
    EXPECT_TRUE(log.waitFor("DEBUG: Activated worker thread pipe/Worker-1 (1)."));
    // The worker stops being busy after its last line, and its thread is free after that.
    while (service.server.idleRequestProcessors() < 5) {
        std::this_thread::yield();
    }
    const StopWatch watch;
    service.stop();
    EXPECT_LT(watch.elapsed(), WITHOUT_WAITING_MS);
    EXPECT_FALSE(log.has("DEBUG: Stopping worker CvtpServer/Worker-1"));
    EXPECT_EQ(log.count("DEBUG: Deleting worker CvtpServer/Worker-1"), 1);
}

TEST_F(ServerStopTest, InterruptsAHandlerThatReadsABody) {
    const LogCapture log;
    RunningServer service("pipe");
    service.server.setOption(CvtpServer::RECEIVE_TIMEOUT, 0);
    Gate reading;
    service.handler.onPost = [&](CvtpServerRequest& request, CvtpServerResponse& response) {
        reading.open();
        FunctionHandler::echo(request, response);
    };
    service.start();
    RawClient client("pipe");
    client.send("POST /r CVTP/1.0\r\nContent-Length: 5\r\n\r\nhel");
    reading.wait();
    service.stop();
    EXPECT_EQ(client.receiveToEnd(), "");
    EXPECT_THAT(
        workerLines(log),
        ElementsAre("DEBUG: Begin processing of POST request (CvtpServer/Worker-1).",
                    "ERROR: InterruptedException - CvtpServer/Worker-1. CvPipe read aborted.", closingLine()));
}

TEST_F(ServerStopTest, LetsAHandlerFinishThatIsNotOnThePipe) {
    const LogCapture log;
    RunningServer service("pipe");
    Gate working;
    Gate done;
    service.handler.onNotify = [&](CvtpServerRequest&) {
        working.open();
        done.wait();
    };
    service.start();
    RawClient client("pipe");
    client.send(RawClient::notifyBytes("hello"));
    working.wait();
    service.server.shutdown();
    EXPECT_TRUE(log.waitFor("DEBUG: Stopping worker CvtpServer/Worker-1"));
    done.open();
    service.join();
    EXPECT_TRUE(log.has("DEBUG: Complete processing of NOTIFY request (CvtpServer/Worker-1)."));
    EXPECT_TRUE(log.has("DEBUG: Deleting worker CvtpServer/Worker-1"));
    EXPECT_THAT(log.texts(), Not(Contains(StartsWith("INFO: *"))));
}

TEST_F(ServerStopTest, InterruptsAHandlerWhoseAnswerTheClientDoesNotRead) {
    const LogCapture log;
    RunningServer service("pipe");
    // More than a pipe holds.
    const std::string large(16 * 1024 * 1024, 'x');
    service.handler.onPost = [&large](CvtpServerRequest&, CvtpServerResponse& response) {
        FunctionHandler::reply(response, large);
    };
    service.start();
    RawClient client("pipe");
    client.send(RawClient::postBytes("hello"));
    // The answer has begun, and cannot end.
    EXPECT_EQ(client.receive(8), "CVTP/1.0");
    const StopWatch watch;
    service.stop();
    // A write gives up by itself after 10 seconds.
    EXPECT_LT(watch.elapsed(), 8000);
    EXPECT_THAT(
        workerLines(log),
        ElementsAre("DEBUG: Begin processing of POST request (CvtpServer/Worker-1).",
                    "ERROR: InterruptedException - CvtpServer/Worker-1. Pipe write aborted.", closingLine()));
    EXPECT_TRUE(log.has("DEBUG: Deleting worker CvtpServer/Worker-1"));
}

TEST_F(ServerStopTest, WaitsNoStepWhereNoWorkerIsBusy) {
    // A step takes 100 ms. Not each of many on a busy machine, but one of them shows that there is none.
    long long shortest = 1000;
    for (int round = 0; round < 50 && shortest >= 100; ++round) {
        RunningServer service("pipe");
        service.start();
        RawClient client("pipe");
        client.post("hello");
        const StopWatch watch;
        service.stop();
        shortest = std::min(shortest, watch.elapsed());
    }
    EXPECT_LT(shortest, 100);
}

TEST_F(ServerStopTest, ClosesEachConnectionOnce) {
    const LogCapture log;
    {
        RunningServer service("pipe");
        service.start();
        RawClient client("pipe");
        client.post("hello");
        service.stop();
    }
    EXPECT_THAT(log.texts(), Not(Contains(StartsWith("INFO: CvPipe_closePipe"))));
    EXPECT_THAT(log.texts(), Not(Contains(StartsWith("DEBUG: Close Handles: handle=-1"))));
}

TEST_F(ServerStopTest, AHandlerMayAskForTheThreadsMeanwhile) {
    RunningServer service("pipe");
    service.server.setOption(CvtpServer::RECEIVE_TIMEOUT, 0);
    Gate reading;
    std::atomic<int> idle{-1};
    service.handler.onNotify = [&](CvtpServerRequest& request) {
        reading.open();
        // Ends when the worker is stopped; the time until the server waits for it is short.
        request.getBodyStream()->exceptions(std::ios_base::goodbit);
        request.getBodyStream()->get();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        idle = service.server.idleRequestProcessors();
    };
    service.start();
    RawClient client("pipe");
    client.send("NOTIFY /r CVTP/1.0\r\nContent-Length: 5\r\n\r\n");
    reading.wait();
    const StopWatch watch;
    service.stop();
    // The pool waits 10 seconds for a handler that waits for the pool.
    EXPECT_LT(watch.elapsed(), 8000);
    EXPECT_EQ(idle, 0);
}

/// One round: a server with a client or two is shut down at a random moment of its life, from a thread that does
/// not wait until run() has returned; the server is destroyed right after that.
void stopAtARandomMoment(std::minstd_rand& random) {
    const auto pause = std::chrono::microseconds(random() % 1500);
    const bool silentClient = random() % 2 == 0;
    FunctionHandler handler;
    auto server = std::make_unique<CvtpServer>("pipe", 1);
    ASSERT_TRUE(server->isBound());
    server->setHandler(&handler);
    std::promise<void> ready;
    std::future<void> begun = ready.get_future();
    handler.onReady = [&ready] {
        ready.set_value();
        return true;
    };
    std::thread stopper([&begun, &pause, target = server.get()] {
        begun.wait();
        std::this_thread::sleep_for(pause);
        target->shutdown();
    });
    std::thread client([silentClient] {
        try {
            RawClient raw("pipe");
            if (!silentClient) {
                raw.send(RawClient::postBytes("hello"));
            }
            const std::string answer = raw.receiveToEnd();
            EXPECT_TRUE(answer.empty() || answer.rfind("CVTP/1.0 200 OK\r\n", 0) == 0) << answer;
        } catch (const Io::CvPipeException&) {
            // Came too late.
        }
    });
    server->run();
    server.reset();
    stopper.join();
    client.join();
}

TEST_F(ServerStopTest, AtThreeHundredRandomMoments) {
    std::minstd_rand random(20240229);
    for (int round = 0; round < 300; ++round) {
        stopAtARandomMoment(random);
    }
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
