// How many threads there are, and what happens when none is free.

#include <Poco/Thread.h>

#include <memory>
#include <thread>

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
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

const std::string WAITING = "INFO: Waiting for thread to process CvPipe worker pipe/Worker-4";
const std::string STILL_WAITING = "DEBUG: Still waiting for thread to process CvPipe worker pipe/Worker-4";
const std::string DONE_WAITING = "INFO: Done waiting for thread to process CvPipe worker pipe/Worker-4";
const std::string INCREASE = "INFO: Increase the MAX_REQUEST_PROCESSORS value if this propelem persists.";
const std::string ACCEPTED = "DEBUG: ServerCvPipe pipe has accepted a CvPipe connection.";

class ThreadWaitTest : public ServerTest {
 protected:
    explicit ThreadWaitTest(int logLevel = 4) : log(logLevel) {}

    void start(int maxRequestProcessors) {
        service.server.setOption(CvtpServer::MAX_REQUEST_PROCESSORS, maxRequestProcessors);
        service.start();
    }

    /// Connects clients whose connections stay, and so keep a thread each. They send nothing yet: a worker that has
    /// just answered might still be looking whether it is to give up.
    void connect(int count) {
        for (int i = 0; i < count; ++i) {
            clients.push_back(std::make_unique<RawClient>("pipe"));
        }
        while (service.server.totalRequestProcessors() < static_cast<int>(clients.size())) {
            std::this_thread::yield();
        }
    }

    LogCapture log;
    std::vector<std::unique_ptr<RawClient>> clients;
    RunningServer service{"pipe"};
};

// The size of the pool.

struct PoolCase {
    int option;
    int threads;
};

void PrintTo(const PoolCase& pool, std::ostream* out) {
    *out << pool.option;
}

class PoolSizeTest : public ThreadWaitTest, public ::testing::WithParamInterface<PoolCase> {};

TEST_P(PoolSizeTest, HoldsSoManyConnections) {
    const int threads = GetParam().threads;
    start(GetParam().option);
    EXPECT_EQ(service.server.idleRequestProcessors(), threads);
    for (int used = 1; used <= threads; ++used) {
        connect(1);
        EXPECT_EQ(service.server.idleRequestProcessors(), threads - used);
    }
    EXPECT_THAT(log.texts(), Not(Contains(StartsWith("INFO: Waiting"))));
    const RawClient tooMany("pipe");
    EXPECT_TRUE(log.waitFor("INFO: Waiting for thread to process CvPipe worker pipe/Worker-" +
                            std::to_string(threads + 1)));
}

INSTANTIATE_TEST_SUITE_P(Options, PoolSizeTest,
                         ::testing::Values(PoolCase{1, 3}, PoolCase{2, 3}, PoolCase{3, 3}, PoolCase{4, 4},
                                           PoolCase{5, 5}, PoolCase{12, 12}, PoolCase{-1, 3},
                                           PoolCase{-2147483647, 3}));

TEST_F(ThreadWaitTest, AnUnboundedPoolBeginsWithFiveAndGrowsByTwo) {
    start(0);
    EXPECT_EQ(service.server.idleRequestProcessors(), 5);
    connect(5);
    EXPECT_EQ(service.server.idleRequestProcessors(), 0);
    connect(1);
    EXPECT_EQ(service.server.idleRequestProcessors(), 1);
    connect(1);
    EXPECT_EQ(service.server.idleRequestProcessors(), 0);
    connect(1);
    EXPECT_EQ(service.server.idleRequestProcessors(), 1);
    EXPECT_EQ(service.server.totalRequestProcessors(), 8);
    EXPECT_THAT(log.texts(), Not(Contains(StartsWith("INFO: Waiting"))));
    service.stop();
    EXPECT_TRUE(log.has(summaryLine("pipe", 0, 0, 8, 0, 0, 8)));
}

TEST_F(ThreadWaitTest, ThePeakIsTheMostThatThereWereAtOnce) {
    start(5);
    connect(3);
    clients.clear();
    // Each is finished when its thread is free again.
    while (service.server.idleRequestProcessors() < 5) {
        std::this_thread::yield();
    }
    const RawClient fourth("pipe");
    EXPECT_TRUE(log.waitFor("DEBUG: Activated worker thread pipe/Worker-4 (1)."));
    service.stop();
    EXPECT_TRUE(log.has(summaryLine("pipe", 0, 0, 4, 3, 0, 3)));
}

TEST_F(ThreadWaitTest, AThreadIsNamedAfterThePipeAndTheWorkerThatItRuns) {
    std::string name;
    service.handler.onPost = [&name](CvtpServerRequest& request, CvtpServerResponse& response) {
        name = Poco::Thread::current()->getName();
        FunctionHandler::echo(request, response);
    };
    service.start();
    EXPECT_EQ(RawClient("pipe").post("hello"), "hello");
    service.stop();
    // The pool adds the number of the thread.
    EXPECT_THAT(name, StartsWith("pipe/Worker-1 ("));
}

// The wait.

TEST_F(ThreadWaitTest, AsksTheOthersToGiveUpAndLogsEachPass) {
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 3000);
    start(3);
    connect(3);
    const StopWatch watch;
    RawClient fourth("pipe");
    fourth.send(RawClient::postBytes("fourth"));
    EXPECT_TRUE(log.waitFor(STILL_WAITING));
    while (log.count(STILL_WAITING) < 3) {
        std::this_thread::yield();
    }
    // Whole passes lie behind, of a tenth of the idle timeout each.
    const int passes = log.count(STILL_WAITING);
    EXPECT_GE(watch.elapsed(), (passes - 1) * 300);
    EXPECT_EQ(clients[1]->post("last"), "last");
    EXPECT_EQ(clients[1]->receiveToEnd(), "");
    EXPECT_EQ(fourth.receiveBody(), "fourth");
    EXPECT_TRUE(log.has("DEBUG: Give up CvtpServer/Worker-2 for a new request waiting for a worker thread."));
    EXPECT_TRUE(log.waitFor("DEBUG: Activated worker thread pipe/Worker-4 (3)."));

    Lines lines = linesOfThread(log, "DEBUG: CvTpServer is running on Pipe pipe");
    EXPECT_GE(std::count(lines.begin(), lines.end(), STILL_WAITING), passes);
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    lines.erase(lines.begin(), std::find(lines.begin(), lines.end(), WAITING) - 1);
    EXPECT_THAT(lines, ElementsAre(ACCEPTED, WAITING, STILL_WAITING, "DEBUG: Deleting idle worker pipe/Worker-2",
                                   "DEBUG: Deleting worker CvtpServer/Worker-2", DONE_WAITING, INCREASE,
                                   "DEBUG: Activated worker thread pipe/Worker-4 (3)."));
}

TEST_F(ThreadWaitTest, CountsTheWaitAndThePeak) {
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 3000);
    start(3);
    connect(3);
    RawClient fourth("pipe");
    fourth.send(RawClient::postBytes("fourth"));
    EXPECT_TRUE(log.waitFor(WAITING));
    clients[0]->close();
    EXPECT_EQ(fourth.receiveBody(), "fourth");
    EXPECT_TRUE(log.waitFor("DEBUG: Activated worker thread pipe/Worker-4 (3)."));
    service.stop();
    EXPECT_TRUE(log.has(summaryLine("pipe", 1, 0, 4, 1, 1, 3)));
}

TEST_F(ThreadWaitTest, AsksNobodyToGiveUpAnyMoreOnceAThreadIsThere) {
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 3000);
    start(3);
    connect(3);
    RawClient fourth("pipe");
    fourth.send(RawClient::postBytes("fourth"));
    EXPECT_TRUE(log.waitFor(WAITING));
    clients[0]->close();
    EXPECT_EQ(fourth.receiveBody(), "fourth");
    EXPECT_TRUE(log.waitFor("DEBUG: Activated worker thread pipe/Worker-4 (3)."));
    // Each has two requests more in it.
    EXPECT_EQ(clients[1]->post("goes on"), "goes on");
    EXPECT_EQ(clients[1]->post("goes on"), "goes on");
    EXPECT_EQ(clients[2]->post("goes on"), "goes on");
    EXPECT_EQ(clients[2]->post("goes on"), "goes on");
    EXPECT_THAT(log.texts(), Not(Contains(StartsWith("DEBUG: Give up"))));
}

TEST_F(ThreadWaitTest, EveryBusyWorkerGivesUpAfterItsRequest) {
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 3000);
    Gate working;
    std::atomic<int> atWork{0};
    service.handler.onPost = [&](CvtpServerRequest& request, CvtpServerResponse& response) {
        if (request.getResource() == "/slow") {
            ++atWork;
            working.wait();
        }
        FunctionHandler::echo(request, response);
    };
    start(3);
    connect(3);
    for (const auto& client : clients) {
        client->send(RawClient::postBytes("slow", "/slow"));
    }
    while (atWork < 3) {
        std::this_thread::yield();
    }
    RawClient fourth("pipe");
    EXPECT_TRUE(log.waitFor(STILL_WAITING));
    // Until the second pass, when all were asked.
    while (log.count(STILL_WAITING) < 2) {
        std::this_thread::yield();
    }
    working.open();
    for (const auto& client : clients) {
        EXPECT_EQ(client->receiveBody(), "slow");
        EXPECT_EQ(client->receiveToEnd(), "");
    }
    for (const char* const number : {"1", "2", "3"}) {
        EXPECT_TRUE(log.waitFor(std::string("DEBUG: Give up CvtpServer/Worker-") + number +
                                " for a new request waiting for a worker thread."));
    }
    EXPECT_EQ(fourth.post("fourth"), "fourth");
}

TEST_F(ThreadWaitTest, AClientThatSendsABodyWithoutEndGivesUpToo) {
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 3000);
    service.server.setOption(CvtpServer::RECEIVE_TIMEOUT, 0);
    start(3);
    connect(3);
    // Nobody reads this body, so it is read over.
    std::thread sender([client = clients[0].get()] {
        try {
            client->send("NOTIFY /r CVTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n");
            for (;;) {
                client->send("5\r\nhello\r\n");
            }
        } catch (const Io::CvPipeException&) {
            // The connection was given up.
        }
    });
    EXPECT_TRUE(log.waitFor("DEBUG: Complete processing of NOTIFY request (CvtpServer/Worker-1)."));
    RawClient fourth("pipe");
    EXPECT_EQ(fourth.post("fourth"), "fourth");
    service.stop();
    sender.join();
    EXPECT_TRUE(log.has("DEBUG: Give up CvtpServer/Worker-1 for a new request waiting for a worker thread."));
}

/// At INFO, a wait is told of at its end only when it was long.
class LongWaitTest : public ThreadWaitTest {
 protected:
    LongWaitTest() : ThreadWaitTest(3) {}

    /// Waits for one step of a tenth of this, and gives what the server logged.
    Lines linesAfterAWait(int idleTimeout) {
        service.server.setOption(CvtpServer::IDLE_TIMEOUT, idleTimeout);
        start(3);
        connect(3);
        RawClient fourth("pipe");
        fourth.send(RawClient::postBytes("fourth"));
        EXPECT_TRUE(log.waitFor(WAITING));
        clients[0]->close();
        EXPECT_EQ(fourth.receiveBody(), "fourth");
        // Stopping comes behind whatever the accepting thread still had to say.
        service.stop();
        return serverLines(log);
    }
};

TEST_F(LongWaitTest, OfTwoSecondsIsNotToldOf) {
    EXPECT_THAT(linesAfterAWait(20000), ElementsAre(WAITING, "INFO: CvtpServer pipe is stopped."));
}

TEST_F(LongWaitTest, OfMoreThanTwoSecondsIsToldOf) {
    EXPECT_THAT(linesAfterAWait(20010),
                ElementsAre(WAITING, DONE_WAITING, INCREASE, "INFO: CvtpServer pipe is stopped."));
}

TEST_F(ThreadWaitTest, EndsWithTheServer) {
    // Steps of an hour.
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 36000000);
    start(3);
    connect(3);
    RawClient fourth("pipe");
    EXPECT_TRUE(log.waitFor(STILL_WAITING));
    service.stop();
    EXPECT_EQ(fourth.receiveToEnd(), "");
    Lines lines = linesOfThread(log, "DEBUG: CvTpServer is running on Pipe pipe");
    lines.erase(lines.begin(), std::find(lines.begin(), lines.end(), WAITING));
    EXPECT_THAT(
        lines,
        ElementsAre(WAITING, STILL_WAITING, "DEBUG: Deleting worker CvtpServer/Worker-4",
                    "DEBUG: Stopping worker CvtpServer/Worker-1", "DEBUG: Stopping worker CvtpServer/Worker-2",
                    "DEBUG: Stopping worker CvtpServer/Worker-3", "DEBUG: Deleting worker CvtpServer/Worker-1",
                    "DEBUG: Deleting worker CvtpServer/Worker-2", "DEBUG: Deleting worker CvtpServer/Worker-3",
                    summaryLine("pipe", 0, 0, 4, 0, 0, 3), "INFO: CvtpServer pipe is stopped."));
}

TEST_F(ThreadWaitTest, AWaitInStepsOfNoTimeIsCountedAndNotToldOf) {
    start(3);
    Gate working;
    service.handler.onNotify = [&](CvtpServerRequest&) { working.wait(); };
    connect(3);
    for (const auto& client : clients) {
        client->send(RawClient::notifyBytes(""));
    }
    for (const char* number : {"1", "2", "3"}) {
        EXPECT_TRUE(log.waitFor(std::string("DEBUG: Begin processing of NOTIFY request (CvtpServer/Worker-") +
                                number + ")."));
    }
    // A tenth of it is 0, and so is the sum of all the passes, however long they are.
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 9);
    RawClient fourth("pipe");
    fourth.send(RawClient::postBytes("fourth"));
    EXPECT_TRUE(log.waitFor(WAITING));
    while (log.count(STILL_WAITING) < 5) {
        std::this_thread::yield();
    }
    working.open();
    EXPECT_EQ(fourth.receiveBody(), "fourth");
    // Before the gate goes, no handler may come to it any more.
    service.stop();
    EXPECT_FALSE(log.has(DONE_WAITING));
    EXPECT_FALSE(log.has(INCREASE));
    EXPECT_THAT(log.log(), HasSubstr("    Total waits for thread:    1\n"));
}

class ShortStepTest : public ThreadWaitTest, public ::testing::WithParamInterface<int> {};

TEST_P(ShortStepTest, DoesNotSpin) {
    start(3);
    Gate working;
    service.handler.onNotify = [&](CvtpServerRequest&) { working.wait(); };
    connect(3);
    for (const auto& client : clients) {
        client->send(RawClient::notifyBytes(""));
    }
    // Connections are kept by their handlers from now on, whatever the idle timeout is.
    for (const char* number : {"1", "2", "3"}) {
        EXPECT_TRUE(log.waitFor(std::string("DEBUG: Begin processing of NOTIFY request (CvtpServer/Worker-") +
                                number + ")."));
    }
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, GetParam());
    const RawClient fourth("pipe");
    EXPECT_TRUE(log.waitFor(WAITING));
    const int before = log.count(STILL_WAITING);
    const StopWatch watch;
    // The passes go on without long pauses: it is a step of the smallest time that there is.
    while (log.count(STILL_WAITING) < before + 20 && watch.elapsed() < 15000) {
        std::this_thread::yield();
    }
    EXPECT_LT(watch.elapsed(), 15000);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const int passes = log.count(STILL_WAITING) - before;
    EXPECT_LE(passes, watch.elapsed() + 1);
    working.open();
    // Before the gate goes, no handler may come to it any more.
    service.stop();
}

INSTANTIATE_TEST_SUITE_P(IdleTimeouts, ShortStepTest, ::testing::Values(9, 1, 0, -5));

}  // namespace

}  // namespace Testing
}  // namespace Corvane
