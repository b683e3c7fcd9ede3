#include <functional>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "cvtp/internal/AbstractCvtpRequestImpl.h"
#include "io/ServerCvPipe.h"
#include "tests/client/ClientTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::AbstractCvtpRequest;
using Cvtp::CvtpClient;
using Cvtp::CvtpMessageOut;
using Cvtp::CvtpResponse;
using Cvtp::NotifyRequest;
using Cvtp::OneWayRequest;
using Cvtp::PostRequest;
using Cvtp::TwoWayRequest;
using Io::CvPipe;
using Io::CvPipeException;
using Io::IllegalStateException;

const char* const BOTH =
    "Both the setBody and setBodyStream methods were called. Only one method of providing body data is permitted.";
const char* const NEITHER =
    "Neither the setBody, or setBodyStream methods were called. Body data must be provided by one of these method.";
const char* const COMMITTED =
    "The start line and headers have already been committed to the request. Cannot send again.";

void answer(ScriptedConnection& connection) {
    connection.answerAll(answerWith("ok"));
}

class ClientRequestTest : public ClientTest {
 protected:
    FakeManager manager;
    CvtpClient misused{&manager};
};

}  // namespace

TEST(ClientRequestClassesTest, FormATree) {
    EXPECT_TRUE((std::is_base_of<CvtpMessageOut, AbstractCvtpRequest>::value));
    EXPECT_TRUE((std::is_base_of<AbstractCvtpRequest, OneWayRequest>::value));
    EXPECT_TRUE((std::is_base_of<AbstractCvtpRequest, TwoWayRequest>::value));
    EXPECT_TRUE((std::is_base_of<OneWayRequest, NotifyRequest>::value));
    EXPECT_TRUE((std::is_base_of<TwoWayRequest, PostRequest>::value));
    EXPECT_TRUE((std::is_base_of<AbstractCvtpRequest, Internal::Cvtp::AbstractCvtpRequestImpl>::value));
    EXPECT_TRUE(std::is_abstract<AbstractCvtpRequest>::value);
}

TEST(ClientRequestClassesTest, KnowMethodResourceAndStartLine) {
    CvtpClient client;
    PostRequest post(&client, "orders", "/p");
    EXPECT_EQ(post.getMethod(), "POST");
    EXPECT_EQ(post.getResource(), "/p");
    EXPECT_EQ(post.getStartLine(), "POST /p CVTP/1.0");
    NotifyRequest notification(&client, "orders", "/n");
    EXPECT_EQ(notification.getMethod(), "NOTIFY");
    EXPECT_EQ(notification.getResource(), "/n");
    EXPECT_EQ(notification.getStartLine(), "NOTIFY /n CVTP/1.0");
}

TEST_F(ClientRequestTest, WithoutABodyIsRefusedBeforeAPipeIsTaken) {
    PostRequest post(&misused, "orders", "/r");
    NotifyRequest notification(&misused, "orders", "/r");
    const LogCapture log;
    EXPECT_EQ(messageOf<IllegalStateException>([&] { post.execute(); }), NEITHER);
    EXPECT_EQ(messageOf<IllegalStateException>([&] { notification.execute(); }), NEITHER);
    EXPECT_EQ(ownLines(log), Lines(2, std::string("ERROR: ") + NEITHER));
    EXPECT_EQ(manager.calls, Lines{});
    EXPECT_FALSE(post.isCommitted());
}

TEST_F(ClientRequestTest, WithTwoBodiesIsRefusedBeforeAPipeIsTaken) {
    std::istringstream stream("body");
    PostRequest post(&misused, "orders", "/r");
    post.setBody("", 0);
    post.setBodyStream(&stream);
    NotifyRequest notification(&misused, "orders", "/r");
    notification.setBodyStream(&stream);
    notification.setBody("body", 4);
    const LogCapture log;
    EXPECT_EQ(messageOf<IllegalStateException>([&] { post.execute(); }), BOTH);
    EXPECT_EQ(messageOf<IllegalStateException>([&] { notification.execute(); }), BOTH);
    EXPECT_EQ(ownLines(log), Lines(2, std::string("ERROR: ") + BOTH));
    EXPECT_EQ(manager.calls, Lines{});
}

TEST_F(ClientRequestTest, ANullStreamIsNoBody) {
    PostRequest post(&misused, "orders", "/r");
    post.setBodyStream(nullptr);
    EXPECT_EQ(messageOf<IllegalStateException>([&] { post.execute(); }), NEITHER);
}

TEST_F(ClientRequestTest, AManagerThatHasNoPipeEndsTheRequest) {
    const LogCapture log;
    EXPECT_EQ(messageOf<CvPipeException>([&] { notify(misused, "orders", "x"); }),
              "The connection manager has no pipe for orders.");
    EXPECT_EQ(ownLines(log), (Lines{"ERROR: The connection manager has no pipe for orders."}));
}

TEST_F(ClientRequestTest, GivesNullBackWhenItHoldsNoPipe) {
    { PostRequest request(&misused, "orders", "/r"); }
    EXPECT_EQ(manager.calls, (Lines{"return null"}));
}

TEST_F(ClientRequestTest, AsksTheManagerForTheDirectionsItNeedsAndGivesThePipeBackWhenDestroyed) {
    ScriptedServer server("anything", {answer});
    CvPipe pipe("anything", true, true);
    char buffer[4096];
    pipe.getOutputStream()->rdbuf()->pubsetbuf(buffer, sizeof buffer);
    FakeManager lender(&pipe);
    CvtpClient client(&lender);
    {
        PostRequest request(&client, "orders", "/r");
        request.setBody("x", 1);
        const std::unique_ptr<CvtpResponse> response(request.execute());
        EXPECT_EQ(bodyOf(*response), "ok");
        EXPECT_EQ(lender.calls, (Lines{"get orders rw"}));
    }
    notify(client, "notices", "x");
    EXPECT_EQ(lender.calls, (Lines{"get orders rw", "return", "get notices w", "return"}));
}

TEST_F(ClientRequestTest, WhateverTheManagerThrowsWhenItGetsThePipeBackIsSwallowed) {
    ScriptedServer server("anything", {answer});
    CvPipe pipe("anything", true, true);
    char buffer[4096];
    pipe.getOutputStream()->rdbuf()->pubsetbuf(buffer, sizeof buffer);
    FakeManager lender(&pipe);
    CvtpClient client(&lender);
    lender.onReturn = [] { throw IllegalStateException("no"); };
    EXPECT_NO_THROW(notify(client, "notices", "x"));
    lender.onReturn = [] { throw std::runtime_error("no"); };
    EXPECT_NO_THROW(notify(client, "notices", "x"));
    EXPECT_EQ(lender.calls.size(), 4u);
}

TEST_F(ClientRequestTest, AFailureThatIsNoLostConnectionIsPassedOnAndThePipeStaysWithTheRequest) {
    ScriptedServer server("anything", {answer});
    CvPipe pipe("anything", true, true);
    char buffer[4096];
    pipe.getOutputStream()->rdbuf()->pubsetbuf(buffer, sizeof buffer);
    FakeManager lender(&pipe);
    CvtpClient client(&lender);
    pipe.close();
    const LogCapture log;
    {
        PostRequest request(&client, "orders", "/r");
        request.setBody("x", 1);
        EXPECT_EQ(messageOf<Io::InterruptedException>([&] { request.execute(); }), "Pipe write aborted.");
        EXPECT_EQ(lender.calls, (Lines{"get orders rw"}));
        EXPECT_FALSE(request.isCommitted());
    }
    EXPECT_EQ(lender.calls, (Lines{"get orders rw", "return"}));
    EXPECT_EQ(log.log().find("Lost connection"), std::string::npos);
}

TEST_F(ClientRequestTest, IsCommittedOnceTheHeadHasBeenSent) {
    ScriptedServer server("orders", {answer});
    CvtpClient client;
    PostRequest request(&client, "orders", "/r");
    request.setBody("x", 1);
    EXPECT_FALSE(request.isCommitted());
    const std::unique_ptr<CvtpResponse> response(request.execute());
    EXPECT_TRUE(request.isCommitted());
}

TEST_F(ClientRequestTest, CannotBeExecutedTwice) {
    ScriptedServer server("orders", {answer}, ScriptedServer::Then::REPEAT);
    CvtpClient client;
    PostRequest post(&client, "orders", "/r");
    post.setBody("x", 1);
    const std::unique_ptr<CvtpResponse> response(post.execute());
    NotifyRequest notification(&client, "orders", "/r");
    std::istringstream stream("body");
    notification.setBodyStream(&stream);
    notification.execute();
    const LogCapture log;
    EXPECT_EQ(messageOf<IllegalStateException>([&] { post.execute(); }), COMMITTED);
    EXPECT_EQ(messageOf<IllegalStateException>([&] { notification.execute(); }), COMMITTED);
    EXPECT_EQ(ownLines(log), Lines(2, std::string("ERROR: ") + COMMITTED));
    // The pipe is still the request's: the answer to the first execution comes from it.
    EXPECT_EQ(bodyOf(*response), "ok");
    EXPECT_EQ(server.requests().front(),
              "POST /r CVTP/1.0\r\nContent-Length: 1\r\nUser-Agent: CvtpClient\r\n\r\nx");
}

TEST_F(ClientRequestTest, ANotifyWithABodyOfLengthZeroIsSent) {
    ScriptedServer server("notices", {[](ScriptedConnection& connection) { connection.readRequest(); }});
    CvtpClient client;
    NotifyRequest request(&client, "notices", "/r");
    request.setBody("ignored", 0);
    EXPECT_NO_THROW(request.execute());
    ASSERT_TRUE(server.waitForEnd(0));
    EXPECT_EQ(server.requests(),
              (Lines{"NOTIFY /r CVTP/1.0\r\nContent-Length: 0\r\nUser-Agent: CvtpClient\r\n\r\n"}));
}

TEST_F(ClientRequestTest, AHeaderThatIsTooLongIsRefusedWithNothingSent) {
    std::string received;
    ScriptedServer server("orders",
                          {[&](ScriptedConnection& connection) { received = connection.readToEnd(); }, answer});
    CvtpClient client;
    PostRequest request(&client, "orders", "/r");
    request.setBody("x", 1);
    request.addHeader("X", std::string(2048 - 5 + 1, 'v'));
    EXPECT_EQ(messageOf<IllegalStateException>([&] { request.execute(); }),
              "The header X exceeded the 2048 byte limit.");
    EXPECT_FALSE(request.isCommitted());
    // It was not committed, so it may be mended and sent; the pipe it held is given up.
    request.setHeader("X", std::string(2048 - 5, 'v'));
    const std::unique_ptr<CvtpResponse> response(request.execute());
    EXPECT_EQ(response->getStatusCode(), 200);
    ASSERT_TRUE(server.waitForEnd(0));
    EXPECT_EQ(received, "");
}

TEST_F(ClientRequestTest, APipeIsReusedByTheNextRequest) {
    ScriptedServer server("orders", {answer});
    CvtpClient client;
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(post(client, "orders", std::to_string(i)), "ok");
    }
    EXPECT_EQ(server.requests().size(), 5u);
}

TEST_F(ClientRequestTest, TwoRequestsAtATimeHaveAPipeEach) {
    ScriptedServer server("orders", {answer}, ScriptedServer::Then::REPEAT);
    CvtpClient client;
    PostRequest first(&client, "orders", "/1");
    first.setBody("x", 1);
    const std::unique_ptr<CvtpResponse> firstResponse(first.execute());
    EXPECT_EQ(post(client, "orders", "x"), "ok");
    EXPECT_EQ(bodyOf(*firstResponse), "ok");
}

TEST_F(ClientRequestTest, ThePipeIsHeldUntilTheRequestIsDestroyed) {
    ScriptedServer server("orders", {answer}, ScriptedServer::Then::REPEAT);
    CvtpClient client;
    auto request = std::make_unique<NotifyRequest>(&client, "orders", "/1");
    request->setBody("x", 1);
    request->execute();
    const LogCapture log;
    CvPipe* const other = client.getManager()->getPipe("orders", "w");
    EXPECT_EQ(ownLines(log).size(), 3u) << "not a new pipe: " << log.log();
    request.reset();
    EXPECT_NE(client.getManager()->getPipe("orders", "w"), other);
    EXPECT_EQ(ownLines(log).size(), 4u) << "a new pipe: " << log.log();
}

TEST_F(ClientRequestTest, AnAnswerThatIsNotReadGoesBackToThePoolWithThePipe) {
    ScriptedServer server("orders", {[](ScriptedConnection& connection) {
                              connection.readRequest();
                              connection.write(answerWith("unread"));
                              connection.readRequest();
                              connection.write(answerWith("second"));
                              connection.readToEnd();
                          }});
    CvtpClient client;
    {
        PostRequest careless(&client, "orders", "/1");
        careless.setBody("x", 1);
        const std::unique_ptr<CvtpResponse> response(careless.execute());
    }
    PostRequest next(&client, "orders", "/2");
    next.setBody("x", 1);
    const std::unique_ptr<CvtpResponse> response(next.execute());
    // Deliberate: the pool does not look at what it is given.
    EXPECT_EQ(response->getStartLine(), "unreadCVTP/1.0 200 OK");
}

TEST_F(ClientRequestTest, AResponseMayOutliveItsRequestAndEvenTheClientWhenItIsOnlyAskedForItsHead) {
    ScriptedServer server("orders", {answer});
    std::unique_ptr<CvtpResponse> response;
    {
        CvtpClient client;
        PostRequest request(&client, "orders", "/r");
        request.setBody("x", 1);
        response.reset(request.execute());
    }
    EXPECT_EQ(response->getStatusCode(), 200);
    EXPECT_EQ(response->getReasonPhrase(), "OK");
    EXPECT_EQ(response->getHeader("content-length"), "2");
}

TEST_F(ClientRequestTest, AServerThatClosesWithoutAnAnswerInterruptsTheRequest) {
    ScriptedServer server("orders", {[](ScriptedConnection& connection) { connection.readRequest(); },
                                     [](ScriptedConnection& connection) {
                                         connection.readRequest();
                                         connection.write("CVTP/1.0 200 OK\r\nContent-");
                                     },
                                     answer});
    CvtpClient client;
    // The response that could not be read is not leaked; that is for the leak sanitizer to see.
    EXPECT_EQ(messageOf<Io::InterruptedException>([&] { post(client, "orders", "x"); }),
              "Reached the stream end-of-file before the expected new line.");
    ASSERT_TRUE(server.waitForEnd(0));
    // The dead pipe is in the pool, and the next request replaces it.
    EXPECT_EQ(messageOf<Io::InterruptedException>([&] { post(client, "orders", "x"); }),
              "Reached the stream end-of-file before the expected new line.");
    ASSERT_TRUE(server.waitForEnd(1));
    EXPECT_EQ(post(client, "orders", "x"), "ok");
}

TEST_F(ClientRequestTest, AnAnswerWithoutFramingIsRefused) {
    ScriptedServer server("orders", {[](ScriptedConnection& connection) {
                              connection.readRequest();
                              connection.write("CVTP/1.0 200 OK\r\nX: 1\r\n\r\n");
                              connection.readToEnd();
                          }});
    CvtpClient client;
    PostRequest request(&client, "orders", "/r");
    request.setBody("x", 1);
    const LogCapture log(1);
    try {
        request.execute();
        ADD_FAILURE() << "did not throw";
    } catch (CvPipeException& e) {
        EXPECT_EQ(e.getMessage(), "The CVTP Message does not have a Content-Length or Transfer-Encoding header");
        EXPECT_EQ(e.getCode(), 1011);
    }
    EXPECT_EQ(ownLines(log),
              (Lines{"ERROR: The CVTP Message does not have a Content-Length or Transfer-Encoding header"}));
}

TEST_F(ClientRequestTest, APipeWhoseAnswerHadALineThatIsTooLongIsNotUsedAgain) {
    ScriptedServer server("orders", {[](ScriptedConnection& connection) {
                                         connection.readRequest();
                                         connection.write("CVTP/1.0 200 " + std::string(3000, 'x') + "\r\n\r\n");
                                         connection.readToEnd();
                                     },
                                     answer});
    CvtpClient client;
    EXPECT_EQ(messageOf<Io::InterruptedException>([&] { post(client, "orders", "x"); }),
              "Reached the stream end-of-file before the expected new line.");
    const LogCapture log;
    EXPECT_EQ(post(client, "orders", "x"), "ok");
    EXPECT_EQ(countOf(log,
                      "DEBUG: Lost connection to server, attempt request with new connection. "
                      "An earlier request failed on this pipe."),
              1);
}

TEST_F(ClientRequestTest, APipeThatCannotBeConnectedIsACvPipeException) {
    CvtpClient client;
    client.setOption(CvtpClient::CONNECTION_TIMEOUT, 50);
    EXPECT_EQ(messageOf<CvPipeException>([&] { post(client, "nobody", "x"); }), "Could not connect to pipe.");
    Io::ServerCvPipe busy("busy", true, true);
    CvPipe takesThePlace("busy", true, true);
    EXPECT_EQ(messageOf<CvPipeException>([&] { post(client, "busy", "x"); }), "Timed out connecting to pipe");
    Io::ServerCvPipe inboundOnly("inbound", true, false);
    EXPECT_EQ(messageOf<CvPipeException>([&] { post(client, "inbound", "x"); }), "Access denied.");
}

TEST_F(ClientRequestTest, ARequestThatCouldNotConnectMayBeExecutedAgain) {
    CvtpClient client;
    PostRequest request(&client, "orders", "/r");
    request.setBody("x", 1);
    EXPECT_EQ(messageOf<CvPipeException>([&] { request.execute(); }), "Could not connect to pipe.");
    ScriptedServer server("orders", {answer});
    const std::unique_ptr<CvtpResponse> response(request.execute());
    EXPECT_EQ(bodyOf(*response), "ok");
}

TEST_F(ClientRequestTest, TheWholeLogOfAPostAndANotify) {
    ScriptedServer server("orders", {answer}, ScriptedServer::Then::REPEAT);
    CvtpClient client;
    const LogCapture log;
    EXPECT_EQ(post(client, "orders", "hello"), "ok");
    EXPECT_EQ(ownLines(log),
              (Lines{"DEBUG: Need a CvPipe (orders/Binding-1)", "DEBUG: Created CvPipe (orders/Binding-1)",
                     "DEBUG: Using CvPipe (orders/Binding-1)",
                     "DEBUG: Send:    POST /r CVTP/1.0\r\nContent-Length: 5\r\nUser-Agent: CvtpClient\r\n\r\n",
                     "DEBUG: Wrote 5 bytes to the CvPipe (RATE Mbps).", "DEBUG: Receive: CVTP/1.0 200 OK",
                     "DEBUG: Read 2 bytes from the CvPipe (RATE Mbps)."}));
    const std::size_t before = ownLines(log).size();
    notify(client, "orders", "");
    EXPECT_EQ(newLines(log, before),
              (Lines{"DEBUG: Need a CvPipe (orders/Binding-2)", "DEBUG: Created CvPipe (orders/Binding-2)",
                     "DEBUG: Using CvPipe (orders/Binding-2)",
                     "DEBUG: Send:    NOTIFY /n CVTP/1.0\r\nContent-Length: 0\r\nUser-Agent: CvtpClient\r\n\r\n",
                     "DEBUG: Wrote 0 bytes to the CvPipe (RATE Mbps)."}));
}

}  // namespace Testing
}  // namespace Corvane
