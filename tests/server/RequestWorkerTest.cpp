// One connection: what its worker serves, what ends it, and what it logs.

#include "cvtp/internal/RequestWorker.h"

#include <stdexcept>

#include "io/Exceptions.h"
#include "io/ServerCvPipe.h"
#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpServer;
using Cvtp::CvtpServerRequest;
using Cvtp::CvtpServerResponse;
using Internal::Cvtp::RequestWorker;
using ::testing::ElementsAre;

const std::string BEGIN_POST = "DEBUG: Begin processing of POST request (CvtpServer/Worker-1).";
const std::string COMPLETE_POST = "DEBUG: Complete processing of POST request (CvtpServer/Worker-1).";
const std::string BEGIN_NOTIFY = "DEBUG: Begin processing of NOTIFY request (CvtpServer/Worker-1).";
const std::string COMPLETE_NOTIFY = "DEBUG: Complete processing of NOTIFY request (CvtpServer/Worker-1).";
const std::string UNPROCESSED_POST = "ERROR: Could not process the POST request. The pipe will be closed.";
const std::string CLIENT_GONE =
    "DEBUG: InterruptedException - CvtpServer/Worker-1. "
    "Reached the stream end-of-file before the expected new line.";
const std::string UNRECOGNIZED =
    "ERROR: Unrecognized request method (CvtpServer/Worker-1), the full message will be ignored.";

class RequestWorkerTest : public ServerTest {
 protected:
    /// What the worker logs when a client has sent these bytes and then looks on until the server closes the pipe.
    Lines linesFor(const std::string& bytes) {
        service.start();
        RawClient client("pipe");
        client.send(bytes);
        answer = client.receiveToEnd();
        return workerLines(log);
    }

    LogCapture log;
    RunningServer service{"pipe"};
    std::string answer;
};

TEST_F(RequestWorkerTest, ServesOneRequestAfterAnother) {
    std::vector<std::string> notified;
    service.handler.onNotify = [&](CvtpServerRequest& request) {
        notified.push_back(request.getResource() + " " + FunctionHandler::bodyText(request));
    };
    service.start();
    {
        RawClient client("pipe");
        EXPECT_EQ(client.post("one"), "one");
        client.send(RawClient::notifyBytes("two", "/n"));
        EXPECT_EQ(client.post("three"), "three");
    }
    EXPECT_THAT(workerLines(log), ElementsAre(BEGIN_POST, COMPLETE_POST, BEGIN_NOTIFY, COMPLETE_NOTIFY, BEGIN_POST,
                                              COMPLETE_POST, CLIENT_GONE, closingLine()));
    service.stop();
    EXPECT_THAT(notified, ElementsAre("/n two"));
}

TEST_F(RequestWorkerTest, ServesRequestsThatArriveTogether) {
    service.start();
    RawClient client("pipe");
    client.send(RawClient::postBytes("one") + RawClient::notifyBytes("two") + RawClient::postBytes("three"));
    EXPECT_EQ(client.receiveBody(), "one");
    EXPECT_EQ(client.receiveBody(), "three");
}

TEST_F(RequestWorkerTest, SendsNothingBackForANotify) {
    service.start();
    RawClient client("pipe");
    client.send(RawClient::notifyBytes("hello") + "NONE /r CVTP/1.0\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(client.receiveToEnd(), "");
}

// The four exits.

TEST_F(RequestWorkerTest, ClosesAConnectionThatIsQuietForTheIdleTimeout) {
    service.server.setOption(CvtpServer::RECEIVE_TIMEOUT, 0);
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 50);
    const StopWatch watch;
    EXPECT_THAT(linesFor(""),
                ElementsAre("DEBUG: TimeoutException - CvtpServer/Worker-1 timed out waiting for a request.  "
                            "CvPipe read timeout.",
                            closingLine()));
    EXPECT_GE(watch.elapsed(), 50);
}

TEST_F(RequestWorkerTest, WaitsForTheNextRequestAsLongAsForTheFirst) {
    service.server.setOption(CvtpServer::RECEIVE_TIMEOUT, 0);
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 50);
    EXPECT_THAT(linesFor(RawClient::postBytes("hello")),
                ElementsAre(BEGIN_POST, COMPLETE_POST,
                            "DEBUG: TimeoutException - CvtpServer/Worker-1 timed out waiting for a request.  "
                            "CvPipe read timeout.",
                            closingLine()));
}

TEST_F(RequestWorkerTest, WaitsForARequestWithoutEndWhenTheIdleTimeoutIsZero) {
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 0);
    service.server.setOption(CvtpServer::RECEIVE_TIMEOUT, 20);
    service.start();
    RawClient client("pipe");
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(client.post("hello"), "hello");
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(client.post("hello"), "hello");
}

// In these one of the two timeouts is without end, so that only the other one can have passed.

TEST_F(RequestWorkerTest, AStallInsideTheHeadersIsAFailedRequest) {
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 0);
    service.server.setOption(CvtpServer::RECEIVE_TIMEOUT, 50);
    EXPECT_THAT(linesFor("POST /r CVTP/1.0\r\nContent-Le"),
                ElementsAre("ERROR: CvPipeException - CvtpServer/Worker-1. CvPipe read timeout.", UNPROCESSED_POST,
                            closingLine()));
}

TEST_F(RequestWorkerTest, AStallBehindTheStartLineIsAFailedRequest) {
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 0);
    service.server.setOption(CvtpServer::RECEIVE_TIMEOUT, 50);
    EXPECT_THAT(
        linesFor("NOTIFY /r CVTP/1.0\r\n"),
        ElementsAre("ERROR: CvPipeException - CvtpServer/Worker-1. CvPipe read timeout.",
                    "ERROR: Could not process the NOTIFY request. The pipe will be closed.", closingLine()));
}

TEST_F(RequestWorkerTest, AStallInsideTheBodyIsAFailedRequest) {
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 0);
    service.server.setOption(CvtpServer::RECEIVE_TIMEOUT, 50);
    EXPECT_THAT(linesFor("POST /r CVTP/1.0\r\nContent-Length: 5\r\n\r\nhel"),
                ElementsAre(BEGIN_POST, "ERROR: CvPipeException - CvtpServer/Worker-1. CvPipe read timeout.",
                            UNPROCESSED_POST, closingLine()));
}

TEST_F(RequestWorkerTest, AStallInsideTheStartLineIsAQuietClient) {
    service.server.setOption(CvtpServer::RECEIVE_TIMEOUT, 0);
    service.server.setOption(CvtpServer::IDLE_TIMEOUT, 50);
    EXPECT_THAT(linesFor("POST /r"),
                ElementsAre("DEBUG: TimeoutException - CvtpServer/Worker-1 timed out waiting for a request.  "
                            "CvPipe read timeout.",
                            closingLine()));
}

TEST_F(RequestWorkerTest, AMessageWithoutFramingIsAnError) {
    const std::string reason = "The CVTP Message does not have a Content-Length or Transfer-Encoding header";
    EXPECT_THAT(
        linesFor("POST /r CVTP/1.0\r\nX-A: 1\r\n\r\n"),
        ElementsAre(
            "ERROR: " + reason,
            "ERROR: CvPipeException - CvtpServer/Worker-1 error while reading request start line. " + reason,
            closingLine()));
    EXPECT_EQ(answer, "");
}

TEST_F(RequestWorkerTest, AnUnknownMethodClosesTheConnection) {
    EXPECT_THAT(linesFor("GET /r CVTP/1.0\r\nContent-Length: 0\r\n\r\n"), ElementsAre(UNRECOGNIZED, closingLine()));
    EXPECT_EQ(answer, "");
}

TEST_F(RequestWorkerTest, MethodsAreComparedExactly) {
    service.start();
    int number = 0;
    for (const std::string method : {"post", "POSTS", "NOTIFy", "NONE", ""}) {
        RawClient client("pipe");
        client.send(RawClient::requestBytes(method, "", "/r"));
        EXPECT_EQ(client.receiveToEnd(), "") << method;
        const std::string fullName = "CvtpServer/Worker-" + std::to_string(++number);
        EXPECT_TRUE(
            log.waitFor("ERROR: Unrecognized request method (" + fullName + "), the full message will be ignored."))
            << method;
    }
}

TEST_F(RequestWorkerTest, TheBodyOfAnUnknownMethodIsNotRead) {
    service.server.setOption(CvtpServer::RECEIVE_TIMEOUT, 0);
    // It never comes, and nobody waits for it.
    EXPECT_THAT(linesFor("GET /r CVTP/1.0\r\nContent-Length: 100\r\n\r\n" + RawClient::notifyBytes("smuggled")),
                ElementsAre(UNRECOGNIZED, closingLine()));
    service.stop();
    EXPECT_TRUE(log.has(summaryLine("pipe", 0, 0, 1, 0, 0, 1)));
}

TEST_F(RequestWorkerTest, AConnectionThatWasQuietForAWhileGoesOn) {
    service.start();
    RawClient client("pipe");
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(client.post("hello"), "hello");
        // By then it has given its memory back.
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
    }
}

TEST_F(RequestWorkerTest, TheNameOfTheServerNamesItsWorkersInTheLog) {
    service.server.setOption(CvtpServer::SERVER_NAME, "Orders");
    service.start();
    RawClient("pipe").post("hello");
    EXPECT_THAT(workerLines(log, "Orders/Worker-1"),
                ElementsAre("DEBUG: Begin processing of POST request (Orders/Worker-1).",
                            "DEBUG: Complete processing of POST request (Orders/Worker-1).",
                            "DEBUG: InterruptedException - Orders/Worker-1. "
                            "Reached the stream end-of-file before the expected new line.",
                            closingLine("Orders/Worker-1")));
}

// A server that cannot write.

class NotifyOnlyTest : public ServerTest {
 protected:
    LogCapture log;
    RunningServer service{"pipe", 0};
};

TEST_F(NotifyOnlyTest, ServesNotify) {
    Gate notified;
    service.handler.onNotify = [&](CvtpServerRequest& request) {
        EXPECT_EQ(FunctionHandler::bodyText(request), "hello");
        notified.open();
    };
    service.start();
    {
        RawClient client("pipe", false);
        client.send(RawClient::notifyBytes("hello"));
        notified.wait();
    }
    EXPECT_THAT(workerLines(log), ElementsAre(BEGIN_NOTIFY, COMPLETE_NOTIFY, CLIENT_GONE, closingLine()));
}

TEST_F(NotifyOnlyTest, RefusesPost) {
    service.start();
    RawClient client("pipe", false);
    client.send(RawClient::postBytes("hello"));
    EXPECT_THAT(workerLines(log), ElementsAre(UNRECOGNIZED, closingLine()));
    service.stop();
    EXPECT_TRUE(log.has(summaryLine("pipe", 0, 0, 1, 0, 0, 1)));
}

// Handlers that throw.

TEST_F(RequestWorkerTest, AHandlerThatThrowsIllegalStateException) {
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse&) {
        throw Io::IllegalStateException("not now");
    };
    EXPECT_THAT(linesFor(RawClient::postBytes("hello")),
                ElementsAre(BEGIN_POST, "ERROR: IllegalStateException - CvtpServer/Worker-1. not now",
                            UNPROCESSED_POST, closingLine()));
}

TEST_F(RequestWorkerTest, AHandlerThatThrowsInterruptedException) {
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse&) {
        throw Io::InterruptedException("stopped");
    };
    EXPECT_THAT(
        linesFor(RawClient::postBytes("hello")),
        ElementsAre(BEGIN_POST, "ERROR: InterruptedException - CvtpServer/Worker-1. stopped", closingLine()));
}

TEST_F(RequestWorkerTest, AHandlerThatThrowsCvPipeException) {
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse&) { throw Io::CvPipeException("broken"); };
    EXPECT_THAT(linesFor(RawClient::postBytes("hello")),
                ElementsAre(BEGIN_POST, "ERROR: CvPipeException - CvtpServer/Worker-1. broken", UNPROCESSED_POST,
                            closingLine()));
}

TEST_F(RequestWorkerTest, AHandlerThatThrowsAClassDerivedFromCvPipeException) {
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse&) {
        throw Io::TimeoutException("too slow");
    };
    EXPECT_THAT(linesFor(RawClient::postBytes("hello")),
                ElementsAre(BEGIN_POST, "ERROR: CvPipeException - CvtpServer/Worker-1. too slow", UNPROCESSED_POST,
                            closingLine()));
}

TEST_F(RequestWorkerTest, AHandlerThatThrowsAStandardException) {
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse&) { throw std::runtime_error("oops"); };
    EXPECT_THAT(
        linesFor(RawClient::postBytes("hello")),
        ElementsAre(BEGIN_POST, "INFO: Application error detected. The pipe will be closed.", closingLine()));
}

TEST_F(RequestWorkerTest, AHandlerThatThrowsIllegalArgumentException) {
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse&) {
        throw Io::IllegalArgumentException("which");
    };
    EXPECT_THAT(
        linesFor(RawClient::postBytes("hello")),
        ElementsAre(BEGIN_POST, "INFO: Application error detected. The pipe will be closed.", closingLine()));
}

TEST_F(RequestWorkerTest, AHandlerThatThrowsANumber) {
    service.handler.onNotify = [](CvtpServerRequest&) { throw 42; };
    EXPECT_THAT(
        linesFor(RawClient::notifyBytes("hello")),
        ElementsAre(BEGIN_NOTIFY, "INFO: Application error detected. The pipe will be closed.", closingLine()));
}

TEST_F(RequestWorkerTest, AFailureOfANotifyNamesItsMethod) {
    service.handler.onNotify = [](CvtpServerRequest&) { throw Io::CvPipeException("broken"); };
    EXPECT_THAT(
        linesFor(RawClient::notifyBytes("hello")),
        ElementsAre(BEGIN_NOTIFY, "ERROR: CvPipeException - CvtpServer/Worker-1. broken",
                    "ERROR: Could not process the NOTIFY request. The pipe will be closed.", closingLine()));
}

TEST_F(RequestWorkerTest, AFailedHandlerDoesNotHarmOtherConnections) {
    service.handler.onPost = [](CvtpServerRequest& request, CvtpServerResponse& response) {
        if (request.getResource() == "/fail") {
            throw 42;
        }
        FunctionHandler::echo(request, response);
    };
    service.start();
    RawClient good("pipe");
    EXPECT_EQ(good.post("hello"), "hello");
    RawClient bad("pipe");
    bad.send(RawClient::postBytes("hello", "/fail"));
    EXPECT_EQ(bad.receiveToEnd(), "");
    EXPECT_EQ(good.post("again"), "again");
    EXPECT_EQ(RawClient("pipe").post("new"), "new");
}

TEST_F(RequestWorkerTest, AResponseWithoutABodyIsAFailedRequest) {
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse& response) { response.send(); };
    const std::string reason =
        "Neither the setBody or getBodyStream methods were called. "
        "Body data must be provided by one of these method.";
    EXPECT_THAT(
        linesFor(RawClient::postBytes("hello")),
        ElementsAre(BEGIN_POST, "ERROR: " + reason, "ERROR: IllegalStateException - CvtpServer/Worker-1. " + reason,
                    UNPROCESSED_POST, closingLine()));
    EXPECT_EQ(answer, "");
}

// The object alone.

class WorkerObjectTest : public ServerTest {
 protected:
    /// A worker with a connection whose client has gone already.
    RequestWorker worker(const std::string& name) {
        Io::ServerCvPipe listener("direct", true, true);
        auto pipe = std::make_unique<Io::CvPipe>();
        {
            const RawClient client("direct");
            listener.accept(*pipe);
        }
        return RequestWorker(std::move(pipe), &server, name);
    }

    CvtpServer server{"pipe", 1};
};

TEST_F(WorkerObjectTest, IsBusyFromTheConstructionUntilRunIsOver) {
    RequestWorker tested = worker("Worker-7");
    EXPECT_TRUE(tested.isBusy());
    EXPECT_EQ(tested.getName(), "Worker-7");
    tested.run();
    EXPECT_FALSE(tested.isBusy());
}

TEST_F(WorkerObjectTest, OneThatNeverBeganIsDroppedAndNotBusy) {
    RequestWorker tested = worker("Worker-7");
    tested.stop();
    EXPECT_TRUE(tested.isBusy());
    tested.dropUnlessStarted();
    EXPECT_FALSE(tested.isBusy());
}

TEST_F(WorkerObjectTest, StoppedBeforeItBeginsServesNothing) {
    RequestWorker tested = worker("Worker-7");
    const LogCapture log;
    tested.stop();
    tested.run();
    EXPECT_FALSE(tested.isBusy());
    EXPECT_THAT(serverLines(log),
                ElementsAre("DEBUG: Stopping worker CvtpServer/Worker-7", closingLine("CvtpServer/Worker-7")));
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
