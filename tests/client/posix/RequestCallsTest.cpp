// What messages ask of the system, call by call. Both ends of the connection are in this process, so the calls of
// both are seen.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/NotifyRequest.h"
#include "cvtp/PostRequest.h"
#include "io/Exceptions.h"
#include "tests/io/posix/FakeSystem.h"
#include "tests/support_code/RawClient.h"
#include "tests/support_code/RunningServer.h"

namespace Corvane {
namespace Testing {
namespace {

using Cvtp::CvtpClient;
using Cvtp::CvtpResponse;
using Cvtp::CvtpServer;
using Cvtp::CvtpServerRequest;
using Cvtp::CvtpServerResponse;
using Cvtp::NotifyRequest;
using Cvtp::PostRequest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

/// The buffer that the pool gives each direction of a pipe.
const std::size_t CLIENT_BUFFER = 4096;

/// That of the server, another one, so that the reads of both can be told apart.
const int SERVER_BUFFER = 20000;

const char* const LOST =
    "DEBUG: Lost connection to server, attempt request with new connection. "
    "Pipe was closed at other end.";

std::string requestHead(std::size_t length, const std::string& method = "POST") {
    return method + " /r CVTP/1.0\r\nContent-Length: " + std::to_string(length) +
           "\r\nUser-Agent: CvtpClient\r\n\r\n";
}

std::string answerHead(std::size_t length) {
    return "CVTP/1.0 200 OK\r\nContent-Length: " + std::to_string(length) + "\r\nServer: CvtpServer\r\n\r\n";
}

std::string sendOf(std::size_t bytes) {
    return "send(" + std::to_string(bytes) + ")";
}

/// How long a body is that has just room behind its head in a buffer of this size.
template <class Head>
std::size_t largestBody(std::size_t buffer, const Head& head) {
    std::size_t length = buffer;
    while (head(length).size() + length > buffer) {
        --length;
    }
    return length;
}

class RequestCallsTest : public PipeTest {
 protected:
    RequestCallsTest() { service.server.setOption(CvtpServer::BUFFER_SIZE, SERVER_BUFFER); }

    std::string execute(PostRequest& request) {
        const std::unique_ptr<CvtpResponse> response(request.execute());
        char* data = nullptr;
        std::size_t length = 0;
        response->getBody(data, length);
        const std::string text(data, length);
        std::free(data);
        return text;
    }
    std::string post(const std::string& body) {
        PostRequest request(&client, "pipe", "/r");
        request.setBody(body.data(), body.size());
        return execute(request);
    }
    void notify(const std::string& body) {
        NotifyRequest request(&client, "pipe", "/r");
        request.setBody(body.data(), body.size());
        request.execute();
    }

    /// Waits until the server has begun so many reads.
    void awaitServerReads(std::ptrdiff_t count) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        const auto isThere = [&] {
            const Lines calls = system.madeOf("recv");
            return std::count(calls.begin(), calls.end(), "recv(20000)") >= count;
        };
        while (!isThere() && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
        }
        EXPECT_TRUE(isThere());
    }

    /// Afterwards there is a connection, whose server waits for the next request.
    void warmUp() {
        service.start();
        EXPECT_EQ(post("warm"), "warm");
        awaitServerReads(2);
        system.forgetMade();
    }

    FakeSystem system;
    RunningServer service{"pipe"};
    CvtpClient client;
};

TEST_F(RequestCallsTest, APostOnAWarmConnectionIsOneSendAndOneReceiveOnEachSide) {
    warmUp();
    EXPECT_EQ(post("hello"), "hello");
    awaitServerReads(1);
    EXPECT_THAT(system.getMade(), UnorderedElementsAre(sendOf(requestHead(5).size() + 5), "recv(20000)",
                                                       sendOf(answerHead(5).size() + 5), "recv(4096)"));
}

TEST_F(RequestCallsTest, ANotifyOnAWarmConnectionIsOneSendAndOneReceive) {
    service.start();
    notify("warm");
    awaitServerReads(2);
    system.forgetMade();
    notify("hello");
    awaitServerReads(1);
    EXPECT_THAT(system.getMade(), UnorderedElementsAre(sendOf(requestHead(5, "NOTIFY").size() + 5), "recv(20000)"));
}

TEST_F(RequestCallsTest, ARequestLeavesInOnePieceUpToTheSizeOfTheBuffer) {
    const std::size_t length = largestBody(CLIENT_BUFFER, [](std::size_t size) { return requestHead(size); });
    warmUp();
    const std::string body(length, 'x');
    EXPECT_EQ(post(body), body);
    EXPECT_THAT(system.madeOf("send"),
                ElementsAre(sendOf(CLIENT_BUFFER), sendOf(answerHead(length).size() + length)));
    EXPECT_THAT(system.madeOf("sendmsg"), IsEmpty());
}

TEST_F(RequestCallsTest, ARequestOfOneByteMoreLeavesInHeadAndBody) {
    const std::size_t length = 1 + largestBody(CLIENT_BUFFER, [](std::size_t size) { return requestHead(size); });
    warmUp();
    const std::string body(length, 'x');
    EXPECT_EQ(post(body), body);
    EXPECT_THAT(system.madeOf("send"), ElementsAre(sendOf(requestHead(length).size()), sendOf(length),
                                                   sendOf(answerHead(length).size() + length)));
    EXPECT_THAT(system.madeOf("sendmsg"), IsEmpty());
}

TEST_F(RequestCallsTest, ALargeBodyLeavesInWholeBuffersAndARest) {
    warmUp();
    const std::string body(10000, 'x');
    EXPECT_EQ(post(body), body);
    EXPECT_THAT(system.madeOf("send"), ElementsAre(sendOf(requestHead(10000).size()), "send(8192)", "send(1808)",
                                                   sendOf(answerHead(10000).size() + 10000)));
}

TEST_F(RequestCallsTest, TheHeadOfABodyStreamLeavesByItself) {
    const std::string head = "POST /r CVTP/1.0\r\nTransfer-Encoding: chunked\r\nUser-Agent: CvtpClient\r\n\r\n";
    warmUp();
    std::istringstream stream("hello");
    PostRequest request(&client, "pipe", "/r");
    request.setBodyStream(&stream);
    EXPECT_EQ(execute(request), "hello");
    EXPECT_EQ(system.madeOf("send").front(), sendOf(head.size()));
}

TEST_F(RequestCallsTest, TheFullChunksOfABodyStreamLeaveTogetherFromItsOwnMemory) {
    std::string body;
    service.handler.onPost = [&](CvtpServerRequest& incoming, CvtpServerResponse& response) {
        body.assign(std::istreambuf_iterator<char>(*incoming.getBodyStream()), {});
        FunctionHandler::reply(response, "ok");
    };
    service.start();
    const std::string text = std::string(50000, 'x') + std::string(50000, 'y');
    std::istringstream stream(text);
    PostRequest request(&client, "pipe", "/r");
    request.setBodyStream(&stream);
    EXPECT_EQ(execute(request), "ok");
    EXPECT_EQ(body, text);
    // Two full chunks, of which the last 16 bytes wait for the flush; and the chunk of the rest.
    EXPECT_THAT(system.madeOf("sendmsg"), ElementsAre("sendmsg(6+40960+2+6+40946)", "sendmsg(16+6+16362)"));
    EXPECT_EQ(system.madeOf("send").at(1), "send(1720)");
    EXPECT_EQ(system.madeOf("send").at(2), "send(5)");
}

TEST_F(RequestCallsTest, ChunksAreReadWithTheFramesBetweenThem) {
    std::size_t size = 0;
    service.handler.onPost = [&](CvtpServerRequest& incoming, CvtpServerResponse& response) {
        std::istream& body = *incoming.getBodyStream();
        std::string piece(200000, ' ');
        body.read(&piece[0], 200000);
        size = static_cast<std::size_t>(body.gcount());
        FunctionHandler::reply(response, "ok");
    };
    // Nothing is read before all is there, so what each read finds is known.
    RawClient raw("pipe");
    const std::string head = "POST /r CVTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n";
    const std::string chunk = "c350\r\n" + std::string(50000, 'x') + "\r\n";
    raw.send(head + chunk + chunk + "0\r\n\r\n");
    service.start();
    EXPECT_EQ(raw.receive(1), "C");
    EXPECT_EQ(size, 100000u);
    // What the buffer did not hold of the first chunk, with the head and a size line; and of the second one what
    // makes up a large piece. Behind the rest of that, other chunks could come.
    const int first = 50000 - (SERVER_BUFFER - static_cast<int>(head.size()) - 6);
    const int second = 65536 - first;
    const int rest = 50000 - second;
    EXPECT_THAT(system.madeOf("recvmsg"),
                ElementsAre("recvmsg(" + std::to_string(first) + "+8+" + std::to_string(second) + ")",
                            "recvmsg(" + std::to_string(rest) + "+8+50000+8+" +
                                std::to_string(65536 - rest - 50000) + ")"));
}

class AnswerCallsTest : public RequestCallsTest {
 protected:
    /// The calls that send an answer with such a body.
    Lines sendsOfAnswer(const std::string& body) {
        service.handler.onPost = [body](CvtpServerRequest&, CvtpServerResponse& response) {
            FunctionHandler::reply(response, body);
        };
        service.start();
        EXPECT_EQ(post(""), body);
        Lines sends = system.madeOf("send");
        EXPECT_EQ(sends.front(), sendOf(requestHead(0).size()));
        sends.erase(sends.begin());
        EXPECT_THAT(system.madeOf("sendmsg"), IsEmpty());
        return sends;
    }

    const std::size_t largest = largestBody(SERVER_BUFFER, [](std::size_t length) { return answerHead(length); });
};

TEST_F(AnswerCallsTest, OneThatFitsIntoTheBufferLeavesInOnePiece) {
    EXPECT_THAT(sendsOfAnswer(std::string(largest, 'x')), ElementsAre(sendOf(SERVER_BUFFER)));
}

TEST_F(AnswerCallsTest, OneOfOneByteMoreLeavesInHeadAndBody) {
    EXPECT_THAT(sendsOfAnswer(std::string(largest + 1, 'x')),
                ElementsAre(sendOf(answerHead(largest + 1).size()), sendOf(largest + 1)));
}

TEST_F(AnswerCallsTest, ALargeOneLeavesInWholeBuffersAndARest) {
    EXPECT_THAT(sendsOfAnswer(std::string(50000, 'x')),
                ElementsAre(sendOf(answerHead(50000).size()), "send(40000)", "send(10000)"));
}

TEST_F(AnswerCallsTest, TheHeadOfAStreamLeavesByItself) {
    const std::string head = "CVTP/1.0 200 OK\r\nServer: CvtpServer\r\nTransfer-Encoding: chunked\r\n\r\n";
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse& response) {
        response.setStatusCode(200);
        *response.getBodyStream() << "hello";
        response.send();
    };
    service.start();
    EXPECT_EQ(post(""), "hello");
    EXPECT_EQ(system.madeOf("send").at(1), sendOf(head.size()));
}

// Failures of the one call.

class LostRequestTest : public RequestCallsTest {
 protected:
    /// Runs a request whose first piece is lost in this way, and that must get through on a second connection.
    void expectRetry(std::vector<Answer> loss) {
        PostRequest request(&client, "pipe", "/r");
        request.setBody("hello", 5);
        system.on("send", std::move(loss));
        system.on("connect", {passing([&] { EXPECT_FALSE(request.isCommitted()); })});
        const LogCapture log(4, 2);
        EXPECT_EQ(execute(request), "hello");
        EXPECT_TRUE(request.isCommitted());
        EXPECT_EQ(log.count(LOST), 1);
        // What was lost counts as never written.
        EXPECT_EQ(log.count("DEBUG: Send:    " + requestHead(5)), 1);
        const std::string trace = log.trace();
        const std::string::size_type sent = trace.find("Send:    " + requestHead(5));
        EXPECT_NE(sent, std::string::npos) << trace;
        EXPECT_EQ(trace.find("Send:    ", sent + 1), std::string::npos) << trace;
    }
};

TEST_F(LostRequestTest, IsSentAgainOnANewConnectionAndNothingIsCommitted) {
    warmUp();
    expectRetry({failure(EPIPE)});
    const std::string whole = sendOf(requestHead(5).size() + 5);
    EXPECT_THAT(system.madeOf("send"), ElementsAre(whole, whole, sendOf(answerHead(5).size() + 5)));
    EXPECT_EQ(system.madeOf("connect").size(), 1u);
}

TEST_F(LostRequestTest, IsSentAgainAlsoWhenAPartOfItHadLeft) {
    warmUp();
    // Head and five bytes, then nothing more.
    expectRetry({moving(requestHead(5).size() + 1), failure(EPIPE)});
    EXPECT_EQ(system.madeOf("connect").size(), 1u);
}

TEST_F(LostRequestTest, OfWhichTheHeadHadLeftIsNotSentAgain) {
    warmUp();
    const std::string body(CLIENT_BUFFER, 'x');
    PostRequest request(&client, "pipe", "/r");
    request.setBody(body.data(), body.size());
    system.on("send", {passing(), failure(EPIPE)});
    EXPECT_EQ(messageOf<Io::IllegalStateException>([&] { execute(request); }),
              "The start line and headers have already been committed to the request. Cannot send again.");
    EXPECT_TRUE(request.isCommitted());
}

TEST_F(LostRequestTest, WhoseWriteFailsInAnotherWayIsLeftToTheCaller) {
    warmUp();
    PostRequest request(&client, "pipe", "/r");
    request.setBody("hello", 5);
    system.on("send", {failure(EIO)});
    const LogCapture log(4, 2);
    EXPECT_EQ(messageOf<Io::CvPipeException>([&] { execute(request); }), "Pipe write failed");
    EXPECT_FALSE(request.isCommitted());
    EXPECT_EQ(log.trace(), "");
    EXPECT_EQ(log.count("DEBUG: Send:    " + requestHead(5)), 0);
    // Nobody knows what has arrived on that connection, so it is not used again.
    EXPECT_EQ(execute(request), "hello");
    EXPECT_EQ(system.madeOf("connect").size(), 1u);
}

TEST_F(RequestCallsTest, AnAnswerThatLeftInPartClosesTheConnectionThoughTheHandlerSwallowsTheFailure) {
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse& response) {
        EXPECT_EQ(messageOf<Io::CvPipeException>([&] { FunctionHandler::reply(response, "hello"); }),
                  "Pipe write failed");
    };
    service.start();
    const LogCapture log;
    RawClient raw("pipe");
    system.on("send", {passing(), moving(10), failure(EIO)});
    raw.send(RawClient::postBytes(""));
    EXPECT_EQ(raw.receiveToEnd(), "CVTP/1.0 2");
    EXPECT_TRUE(log.waitFor("DEBUG: Closing CvPipe (CvtpServer/Worker-1). "));
    EXPECT_EQ(log.count("DEBUG: The response to a POST request was not completed (CvtpServer/Worker-1). "
                        "The pipe will be closed."),
              1);
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
