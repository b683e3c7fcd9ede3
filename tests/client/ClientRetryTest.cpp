#include <istream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <streambuf>
#include <string>

#include "tests/client/ClientTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpClient;
using Cvtp::CvtpResponse;
using Cvtp::NotifyRequest;
using Cvtp::PostRequest;
using Io::BrokenPipeException;
using Io::CvPipe;
using Io::CvPipeException;
using Io::IllegalStateException;

/// More than any pipe takes without somebody reading.
const std::size_t LARGE = 8 * 1024 * 1024;

void answer(ScriptedConnection& connection) {
    connection.answerAll(answerWith("ok"));
}

void answerOnce(ScriptedConnection& connection) {
    connection.readRequest();
    connection.write(answerWith("once"));
}

/// Closes when the client has only begun to send its body.
void readHead(ScriptedConnection& connection) {
    connection.readHead();
}

/// Gives some bytes, then does what a test wants.
class BreakingBuffer : public std::streambuf {
 public:
    BreakingBuffer(std::string bytes, std::function<void()> atEnd)
        : bytes(std::move(bytes)), atEnd(std::move(atEnd)) {
        setg(this->bytes.data(), this->bytes.data(), this->bytes.data() + this->bytes.size());
    }

 protected:
    int_type underflow() override {
        atEnd();
        return traits_type::eof();
    }

 private:
    std::string bytes;
    std::function<void()> atEnd;
};

using ClientRetryTest = ClientTest;

}  // namespace

TEST_F(ClientRetryTest, APooledPipeThatTheServerClosedWhileIdleIsReplacedUnnoticed) {
    ScriptedServer server("orders", {answerOnce, answer});
    CvtpClient client;
    const LogCapture log;
    EXPECT_EQ(post(client, "orders", "first"), "once");
    ASSERT_TRUE(server.waitForEnd(0));
    const std::size_t before = ownLines(log).size();
    EXPECT_EQ(post(client, "orders", "second"), "ok");
    EXPECT_EQ(newLines(log, before),
              (Lines{"DEBUG: Using CvPipe (orders/Binding-1)",
                     "DEBUG: Lost connection to server, attempt request with new connection. "
                     "Pipe was closed at other end.",
                     "DEBUG: Remove CvPipe Binding-1(ADDRESS) from used pipe list",
                     "DEBUG: Closing CvPipe Binding-1", "DEBUG: Need a CvPipe (orders/Binding-2)",
                     "DEBUG: Created CvPipe (orders/Binding-2)", "DEBUG: Using CvPipe (orders/Binding-2)",
                     "DEBUG: Send:    POST /r CVTP/1.0\r\nContent-Length: 6\r\nUser-Agent: CvtpClient\r\n\r\n",
                     "DEBUG: Wrote 6 bytes to the CvPipe (RATE Mbps).", "DEBUG: Receive: CVTP/1.0 200 OK",
                     "DEBUG: Read 2 bytes from the CvPipe (RATE Mbps)."}));
    EXPECT_EQ(server.requests().back(),
              "POST /r CVTP/1.0\r\nContent-Length: 6\r\nUser-Agent: CvtpClient\r\n\r\nsecond");
}

TEST_F(ClientRetryTest, ANotifyAndABodyStreamAreSentAgainAsLongAsNothingIsCommitted) {
    ScriptedServer server("notices", {[](ScriptedConnection& connection) { connection.readRequest(); },
                                      [](ScriptedConnection& connection) { connection.readRequest(); },
                                      [](ScriptedConnection& connection) { connection.readRequest(); }});
    CvtpClient client;
    notify(client, "notices", "1");
    ASSERT_TRUE(server.waitForEnd(0));
    notify(client, "notices", "2");
    ASSERT_TRUE(server.waitForEnd(1));
    NotifyRequest request(&client, "notices", "/s");
    std::istringstream stream("3");
    request.setBodyStream(&stream);
    request.execute();
    ASSERT_TRUE(server.waitForEnd(2));
    EXPECT_EQ(
        server.requests().back(),
        "NOTIFY /s CVTP/1.0\r\nTransfer-Encoding: chunked\r\nUser-Agent: CvtpClient\r\n\r\n1\r\n3\r\n0\r\n\r\n");
}

TEST_F(ClientRetryTest, AllDeadPipesOfThePoolAreTried) {
    ScriptedServer server("orders", {answerOnce, answerOnce, answerOnce, answer});
    CvtpClient client;
    {
        PostRequest requests[3] = {{&client, "orders", "/1"}, {&client, "orders", "/2"}, {&client, "orders", "/3"}};
        for (PostRequest& request : requests) {
            request.setBody("x", 1);
            const std::unique_ptr<CvtpResponse> response(request.execute());
            EXPECT_EQ(bodyOf(*response), "once");
        }
    }
    for (std::size_t i = 0; i < 3; ++i) {
        ASSERT_TRUE(server.waitForEnd(i));
    }
    const LogCapture log;
    EXPECT_EQ(post(client, "orders", "x"), "ok");
    EXPECT_EQ(countOf(log,
                      "DEBUG: Lost connection to server, attempt request with new connection. "
                      "Pipe was closed at other end."),
              3);
}

TEST_F(ClientRetryTest, WhenTheServerIsGoneTheRequestEndsWithTheFailureToConnect) {
    CvtpClient client;
    {
        ScriptedServer server("orders", {answerOnce});
        EXPECT_EQ(post(client, "orders", "x"), "once");
    }
    const LogCapture log;
    EXPECT_EQ(messageOf<CvPipeException>([&] { post(client, "orders", "x"); }), "Could not connect to pipe.");
    EXPECT_EQ(ownLines(log),
              (Lines{"DEBUG: Using CvPipe (orders/Binding-1)",
                     "DEBUG: Lost connection to server, attempt request with new connection. "
                     "Pipe was closed at other end.",
                     "DEBUG: Remove CvPipe Binding-1(ADDRESS) from used pipe list",
                     "DEBUG: Closing CvPipe Binding-1", "DEBUG: Need a CvPipe (orders/Binding-2)",
                     "ERROR: Failed create/connect CvPipe (orders/Binding-2)", "DEBUG: Closing CvPipe Binding-2"}));
}

TEST_F(ClientRetryTest, ABodyByLengthThatBreaksAfterTheCommitCannotBeSentAgain) {
    ScriptedServer server("orders", {readHead, answer});
    CvtpClient client;
    const std::string body(LARGE, 'x');
    const LogCapture log;
    {
        PostRequest request(&client, "orders", "/r");
        request.setBody(body.data(), body.size());
        EXPECT_EQ(messageOf<IllegalStateException>([&] { request.execute(); }),
                  "The start line and headers have already been committed to the request. Cannot send again.");
        EXPECT_TRUE(request.isCommitted());
    }
    EXPECT_EQ(
        newLines(log, 3),
        (Lines{"DEBUG: Send:    POST /r CVTP/1.0\r\nContent-Length: 8388608\r\nUser-Agent: CvtpClient\r\n\r\n",
               "DEBUG: Lost connection to server, attempt request with new connection. "
               "Pipe was closed at other end.",
               "ERROR: The start line and headers have already been committed to the request. "
               "Cannot send again."}));
    // The broken pipe went back to the pool, deliberately; the next request is not harmed by it.
    EXPECT_EQ(post(client, "orders", "x"), "ok");
    EXPECT_EQ(newLines(log, 6).at(1),
              "DEBUG: Lost connection to server, attempt request with new connection. "
              "An earlier request failed on this pipe.");
    EXPECT_EQ(newLines(log, 6).at(2), "DEBUG: Remove CvPipe Binding-1(ADDRESS) from used pipe list");
}

TEST_F(ClientRetryTest, AManagerThatGivesAFailedPipeAgainEndsTheRequest) {
    ScriptedServer server("orders", {answer});
    CvPipe pipe("orders", true, true);
    pipe.getOutputStream()->exceptions(std::ios_base::goodbit);
    pipe.getOutputStream()->setstate(std::ios_base::badbit);
    FakeManager manager(&pipe);
    CvtpClient client(&manager);
    EXPECT_EQ(messageOf<CvPipeException>([&] { notify(client, "orders", "x"); }),
              "The connection manager gave a failed pipe for orders again.");
    EXPECT_EQ(manager.calls, (Lines{"get orders w", "remove", "get orders w", "return"}));
}

TEST_F(ClientRetryTest, AFailedPipeIsRefusedBeforeItsOtherDirectionIsAskedFor) {
    ScriptedServer server("orders", {answer});
    CvPipe pipe("orders", false, true);
    pipe.getOutputStream()->exceptions(std::ios_base::goodbit);
    pipe.getOutputStream()->setstate(std::ios_base::badbit);
    FakeManager manager(&pipe);
    CvtpClient client(&manager);
    EXPECT_EQ(messageOf<CvPipeException>([&] { post(client, "orders", "x"); }),
              "The connection manager gave a failed pipe for orders again.");
    EXPECT_EQ(manager.calls, (Lines{"get orders rw", "remove", "get orders rw", "return"}));
}

TEST_F(ClientRetryTest, ABodyStreamThatBreaksAfterTheCommitAbortsTheRequest) {
    ScriptedServer server("orders", {readHead, answer});
    CvtpClient client;
    const LogCapture log;
    {
        PostRequest request(&client, "orders", "/r");
        std::istringstream stream(std::string(LARGE, 'x'));
        request.setBodyStream(&stream);
        EXPECT_EQ(messageOf<BrokenPipeException>([&] { request.execute(); }), "Pipe was closed at other end.");
        EXPECT_TRUE(request.isCommitted());
    }
    EXPECT_EQ(
        newLines(log, 3),
        (Lines{"DEBUG: Send:    POST /r CVTP/1.0\r\nTransfer-Encoding: chunked\r\nUser-Agent: CvtpClient\r\n\r\n",
               "DEBUG: Remove CvPipe Binding-1(ADDRESS) from used pipe list", "DEBUG: Closing CvPipe Binding-1",
               "ERROR: Lost connection to server, the request will be aborted. Pipe was closed at other end."}));
    const std::size_t before = ownLines(log).size();
    EXPECT_EQ(post(client, "orders", "x"), "ok");
    EXPECT_EQ(newLines(log, before).at(0), "DEBUG: Need a CvPipe (orders/Binding-2)");
}

TEST_F(ClientRetryTest, AnAbortedNotifyThrowsAsWell) {
    ScriptedServer server("notices", {readHead});
    CvtpClient client;
    NotifyRequest request(&client, "notices", "/r");
    std::istringstream stream(std::string(LARGE, 'x'));
    request.setBodyStream(&stream);
    EXPECT_EQ(messageOf<BrokenPipeException>([&] { request.execute(); }), "Pipe was closed at other end.");
    EXPECT_EQ(messageOf<IllegalStateException>([&] { request.execute(); }),
              "The start line and headers have already been committed to the request. Cannot send again.");
}

namespace {

/// A server whose first connection keeps what it got, and a client that sends a stream to it.
class BodyStreamTest : public ClientTest {
 protected:
    /// What the server got of the request, whose pipe must have been closed.
    std::string received() {
        EXPECT_TRUE(server.waitForEnd(0));
        return bytes;
    }

    /// The pipe of the request is not in the pool.
    void expectNewPipe() {
        const LogCapture log;
        EXPECT_EQ(post(client, "orders", "x"), "ok");
        EXPECT_EQ(ownLines(log).at(0), "DEBUG: Need a CvPipe (orders/Binding-1)");
    }

    const std::string head = "POST /r CVTP/1.0\r\nTransfer-Encoding: chunked\r\nUser-Agent: CvtpClient\r\n\r\n";
    std::string bytes;
    /// Waited for before a request fails: on some systems a client that goes before it was accepted takes its bytes
    /// along.
    Signal accepted;
    ScriptedServer server{"orders",
                          {[this](ScriptedConnection& connection) {
                               accepted.set();
                               bytes = connection.readToEnd();
                           },
                           answer}};
    CvtpClient client;
};

}  // namespace

TEST_F(BodyStreamTest, ThatFailsBeforeItsEndEndsTheRequestAndItsPipe) {
    client.setOption(CvtpClient::BUFFER_SIZE, 4);
    const LogCapture log;
    {
        // Without a mask a stream keeps the exception of its buffer to itself.
        BreakingBuffer buffer("123456", [this] {
            accepted.wait();
            throw std::runtime_error("the disk is gone");
        });
        std::istream stream(&buffer);
        PostRequest request(&client, "orders", "/r");
        request.setBodyStream(&stream);
        EXPECT_EQ(messageOf<CvPipeException>([&] { request.execute(); }),
                  "The body stream of the POST request failed before its end was reached. The pipe was closed.");
        EXPECT_EQ(
            newLines(log, 4),
            (Lines{"DEBUG: Remove CvPipe Binding-1(ADDRESS) from used pipe list", "DEBUG: Closing CvPipe Binding-1",
                   "ERROR: The body stream of the POST request failed before its end was reached. "
                   "The pipe was closed."}));
        // No last chunk: the server can tell that this is no whole body.
        EXPECT_EQ(received().substr(0, head.size()), head);
        EXPECT_EQ(received().find("0\r\n\r\n"), std::string::npos);
    }
}

TEST_F(BodyStreamTest, ThatFailsIsFollowedByANewPipe) {
    std::istringstream stream("never read");
    stream.setstate(std::ios_base::failbit);
    client.getManager()->returnPipe(client.getManager()->getPipe("orders", "rw"));
    accepted.wait();
    {
        PostRequest request(&client, "orders", "/r");
        request.setBodyStream(&stream);
        EXPECT_EQ(messageOf<CvPipeException>([&] { request.execute(); }),
                  "The body stream of the POST request failed before its end was reached. The pipe was closed.");
    }
    EXPECT_EQ(received(), head);
    expectNewPipe();
}

TEST_F(BodyStreamTest, ThatThrowsEndsTheRequestAndItsPipe) {
    {
        BreakingBuffer buffer("123456", [this] {
            accepted.wait();
            throw std::domain_error("the disk is gone");
        });
        std::istream stream(&buffer);
        stream.exceptions(std::ios_base::badbit);
        PostRequest request(&client, "orders", "/r");
        request.setBodyStream(&stream);
        EXPECT_THROW(request.execute(), std::domain_error);
    }
    EXPECT_EQ(received().find("0\r\n\r\n"), std::string::npos);
    expectNewPipe();
}

TEST_F(BodyStreamTest, ThatBreaksItselfIsNotTakenForAMisuseOfThePool) {
    const LogCapture log(1);
    BreakingBuffer buffer("123456", [this] {
        accepted.wait();
        throw BrokenPipeException("the source is gone");
    });
    std::istream stream(&buffer);
    stream.exceptions(std::ios_base::badbit);
    PostRequest request(&client, "orders", "/r");
    request.setBodyStream(&stream);
    EXPECT_EQ(messageOf<BrokenPipeException>([&] { request.execute(); }), "the source is gone");
    EXPECT_EQ(ownLines(log),
              (Lines{"ERROR: Lost connection to server, the request will be aborted. the source is gone"}));
    EXPECT_EQ(received().substr(0, head.size()), head);
}

}  // namespace Testing
}  // namespace Corvane
