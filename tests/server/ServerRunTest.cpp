// The accept loop: how it begins, what keeps it going, and what it logs.

#include <stdexcept>

#include <future>
#include <locale>
#include <string>
#include <thread>
#include "io/ServerCvPipe.h"

#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpServer;
using ::testing::ElementsAre;

using ServerRunTest = ServerTest;

const std::string INTERRUPTED =
    "DEBUG: CvtpServer pipe was interrupted. The CvtpServer will shutdown. accept aborted";
const std::string STOPPED = "INFO: CvtpServer pipe is stopped.";

TEST_F(ServerRunTest, LogsItsLifeAtDebug) {
    const LogCapture log;
    {
        RunningServer service("pipe");
        service.start();
        // The listening pipe logs this once, when the server is in accept.
        EXPECT_TRUE(log.waitFor("DEBUG: Calling ConnectNamedPipe."));
    }
    EXPECT_THAT(serverLines(log),
                ElementsAre("DEBUG: CvTpServer is using Pipe pipe", "DEBUG: CvTpServer is running on Pipe pipe",
                            INTERRUPTED, summaryLine("pipe", 0, 0, 0, 0, 0, 0), STOPPED));
}

TEST_F(ServerRunTest, LogsNoSummaryWithoutDebug) {
    const LogCapture log(3);
    {
        RunningServer service("pipe");
        service.start();
        EXPECT_EQ(RawClient("pipe").post("hello"), "hello");
    }
    EXPECT_THAT(serverLines(log), ElementsAre(STOPPED));
}

TEST_F(ServerRunTest, IsRunningFromTheStartToTheShutdown) {
    RunningServer service("pipe");
    Gate ready;
    service.handler.onReady = [&] {
        ready.wait();
        return true;
    };
    service.start();
    EXPECT_TRUE(service.server.isRunning());
    ready.open();
    EXPECT_EQ(RawClient("pipe").post("hello"), "hello");
    EXPECT_TRUE(service.server.isRunning());
    service.server.shutdown();
    EXPECT_FALSE(service.server.isRunning());
    service.join();
    EXPECT_FALSE(service.server.isRunning());
}

TEST_F(ServerRunTest, AsksTheHandlerOnceAndBeforeTheFirstClientIsAccepted) {
    const LogCapture log;
    RunningServer service("pipe");
    Gate ready;
    std::atomic<int> asked{0};
    service.handler.onReady = [&] {
        ++asked;
        ready.wait();
        return true;
    };
    service.start();
    RawClient client("pipe");
    client.send(RawClient::postBytes("hello"));
    EXPECT_FALSE(log.has("DEBUG: Calling ConnectNamedPipe."));
    ready.open();
    EXPECT_EQ(client.receiveBody(), "hello");
    EXPECT_EQ(RawClient("pipe").post("again"), "again");
    EXPECT_EQ(asked, 1);
}

TEST_F(ServerRunTest, ReturnsAtOnceWhenTheHandlerIsNotReady) {
    const LogCapture log;
    RunningServer service("pipe");
    service.handler.onReady = [] { return false; };
    // Is there before the server runs, and is not accepted.
    RawClient client("pipe");
    client.send(RawClient::notifyBytes("hello"));
    service.start();
    service.join();
    EXPECT_FALSE(service.server.isRunning());
    EXPECT_FALSE(log.has("DEBUG: Calling ConnectNamedPipe."));
    EXPECT_THAT(serverLines(log),
                ElementsAre("DEBUG: CvTpServer is using Pipe pipe", "DEBUG: CvTpServer is running on Pipe pipe",
                            summaryLine("pipe", 0, 0, 0, 0, 0, 0), STOPPED));
}

TEST_F(ServerRunTest, StopsInOrderWhenTheHandlerThrowsWhileAskedWhetherItIsReady) {
    const LogCapture log(3);
    RunningServer service("pipe");
    service.handler.onReady = []() -> bool { throw std::runtime_error("no disk"); };
    service.start();
    EXPECT_THROW(service.join(), std::runtime_error);
    EXPECT_FALSE(service.server.isRunning());
    EXPECT_THAT(serverLines(log), ElementsAre(STOPPED));
}

TEST_F(ServerRunTest, WithoutAHandlerItLogsAndReturns) {
    const LogCapture log(3);
    CvtpServer server("pipe", 1);
    server.run();
    EXPECT_FALSE(server.isRunning());
    EXPECT_THAT(serverLines(log),
                ElementsAre("ERROR: The CvtpServer on the named pipe pipe cannot run without a handler."));
}

TEST_F(ServerRunTest, WithoutAPipeItLogsAndReturns) {
    FunctionHandler handler;
    CvtpServer server("no\\pipe", 1);
    server.setHandler(&handler);
    const LogCapture log(3);
    server.run();
    EXPECT_FALSE(server.isRunning());
    EXPECT_EQ(server.idleRequestProcessors(), 0);
    EXPECT_THAT(serverLines(log), ElementsAre("ERROR: The CvtpServer cannot run without its named pipe no\\pipe."));
}

TEST_F(ServerRunTest, DoesNotRunAgainAfterAShutdown) {
    RunningServer service("pipe");
    service.start();
    service.stop();
    const LogCapture log(3);
    service.server.run();
    EXPECT_FALSE(service.server.isRunning());
    EXPECT_THAT(serverLines(log),
                ElementsAre("ERROR: The CvtpServer cannot run again on the named pipe pipe, which is closed."));
}

TEST_F(ServerRunTest, GoesOnAfterAnAcceptThatTimedOut) {
    const LogCapture log(3);
    RunningServer service("pipe");
    service.server.setOption(CvtpServer::ACCEPT_TIMEOUT, 20);
    service.start();
    const std::string timedOut =
        "INFO: CvtpServer failed to accept a CvPipe on the named pipe pipe. CvPipe accept timeout";
    EXPECT_TRUE(log.waitFor(timedOut));
    EXPECT_EQ(RawClient("pipe").post("hello"), "hello");
    const int before = log.count(timedOut);
    while (log.count(timedOut) == before) {
        std::this_thread::yield();
    }
    EXPECT_EQ(RawClient("pipe").post("again"), "again");
    service.stop();
    EXPECT_EQ(log.texts().back(), STOPPED);
}

TEST_F(ServerRunTest, WaitsForAClientWithoutEndByDefault) {
    const LogCapture log;
    RunningServer service("pipe");
    service.start();
    EXPECT_TRUE(log.waitFor("DEBUG: Calling ConnectNamedPipe."));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(log.count("DEBUG: Calling ConnectNamedPipe."), 1);
}

TEST_F(ServerRunTest, LogsEachConnection) {
    const LogCapture log;
    RunningServer service("pipe");
    service.start();
    RawClient first("pipe");
    first.post("hello");
    EXPECT_TRUE(log.waitFor("DEBUG: Activated worker thread pipe/Worker-1 (1)."));
    RawClient second("pipe");
    second.post("hello");
    EXPECT_TRUE(log.waitFor("DEBUG: Activated worker thread pipe/Worker-2 (2)."));
    EXPECT_EQ(service.server.totalRequestProcessors(), 2);
    EXPECT_THAT(linesOfThread(log, "DEBUG: CvTpServer is running on Pipe pipe"),
                ElementsAre("DEBUG: CvTpServer is running on Pipe pipe",
                            "DEBUG: ServerCvPipe pipe has accepted a CvPipe connection.",
                            "DEBUG: Activated worker thread pipe/Worker-1 (1).",
                            "DEBUG: ServerCvPipe pipe has accepted a CvPipe connection.",
                            "DEBUG: Activated worker thread pipe/Worker-2 (2)."));
}

TEST_F(ServerRunTest, ClearsFinishedWorkersAwayAtTheNextConnection) {
    const LogCapture log;
    RunningServer service("pipe");
    service.server.setOption(CvtpServer::SERVER_NAME, "Orders");
    service.start();
    RawClient("pipe").post("hello");
    EXPECT_TRUE(log.waitFor(closingLine("Orders/Worker-1")));
    EXPECT_EQ(service.server.totalRequestProcessors(), 1);
    // The last thing that a worker does comes after its last line.
    while (!log.has("DEBUG: Deleting idle worker pipe/Worker-1")) {
        RawClient("pipe").post("hello");
    }
    service.stop();
    EXPECT_EQ(service.server.totalRequestProcessors(), 0);
    const Lines lines = linesOfThread(log, "DEBUG: CvTpServer is running on Pipe pipe");
    const auto deleting = std::find(lines.begin(), lines.end(), "DEBUG: Deleting idle worker pipe/Worker-1");
    ASSERT_NE(deleting, lines.end());
    EXPECT_EQ(*(deleting + 1), "DEBUG: Deleting worker Orders/Worker-1");
}

TEST_F(ServerRunTest, CountsWhatItDid) {
    const LogCapture log;
    RunningServer service("pipe");
    service.handler.onPost = [](Cvtp::CvtpServerRequest& request, Cvtp::CvtpServerResponse& response) {
        if (request.getResource() == "/fail") {
            throw std::runtime_error("counted nevertheless");
        }
        FunctionHandler::echo(request, response);
    };
    service.handler.onNotify = [](Cvtp::CvtpServerRequest& request) {
        if (request.getResource() == "/fail") {
            throw std::runtime_error("counted, too");
        }
    };
    service.start();
    RawClient first("pipe");
    first.post("1");
    first.post("2");
    first.send(RawClient::notifyBytes("3"));
    first.post("4");
    EXPECT_TRUE(log.waitFor("DEBUG: Activated worker thread pipe/Worker-1 (1)."));
    RawClient second("pipe");
    second.send(RawClient::postBytes("5", "/fail"));
    EXPECT_EQ(second.receiveToEnd(), "");
    EXPECT_TRUE(log.waitFor("DEBUG: Activated worker thread pipe/Worker-2 (2)."));
    first.send(RawClient::notifyBytes("6", "/fail"));
    EXPECT_EQ(first.receiveToEnd(), "");
    service.stop();
    EXPECT_TRUE(log.has(summaryLine("pipe", 4, 2, 2, 0, 0, 2)));
}

TEST_F(ServerRunTest, WithoutADoReadyOfItsOwnAHandlerIsReady) {
    class Silent : public Cvtp::CvtpHandler {
     public:
        void doNotify(Cvtp::CvtpServerRequest&) override { notified.set_value(); }
        void doPost(Cvtp::CvtpServerRequest&, Cvtp::CvtpServerResponse&) override {}

        std::promise<void> notified;
    };
    Silent handler;
    ASSERT_TRUE(handler.doReady());
    Cvtp::CvtpServer server("pipe", 1);
    server.setHandler(&handler);
    std::thread thread([&server] { server.run(); });
    RawClient client("pipe");
    client.send("NOTIFY /r CVTP/1.0\r\nContent-Length: 0\r\n\r\n");
    handler.notified.get_future().wait();
    server.shutdown();
    thread.join();
}

TEST_F(ServerRunTest, TheNumbersOfItsSummaryDoNotFollowTheLocaleOfTheApplication) {
    struct Grouping : std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\1"; }
    };
    LogCapture log;
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Grouping));
    {
        RunningServer service("pipe");
        service.start();
        for (int i = 0; i < 12; ++i) {
            RawClient("pipe").post("x");
        }
    }
    std::locale::global(before);
    EXPECT_THAT(log.log(), ::testing::HasSubstr("    Total POST requests:       12\n"));
}

TEST_F(ServerRunTest, TheThreadsAreCountedAgainAfterTheStop) {
    RunningServer service("pipe");
    service.start();
    service.stop();
    EXPECT_EQ(service.server.idleRequestProcessors(), 5);
}

TEST_F(ServerRunTest, ServesManyClientsAtOnce) {
    RunningServer service("pipe");
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 500);
    service.start();
    const int clients = 8;
    const int rounds = 25;
    std::atomic<int> right{0};
    std::vector<std::thread> threads;
    for (int client = 0; client < clients; ++client) {
        threads.emplace_back([&right, client] {
            for (int round = 0; round < rounds; ++round) {
                const std::string body(static_cast<std::size_t>(client * 1000 + round),
                                       static_cast<char>('a' + client));
                right += RawClient("pipe").post(body) == body ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, clients * rounds);
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
