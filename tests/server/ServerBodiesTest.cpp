// Bodies through a server: both framings, both ways, and those that a handler leaves alone.

#include <sstream>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/NotifyRequest.h"
#include "cvtp/PostRequest.h"
#include "io/Exceptions.h"
#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpClient;
using Cvtp::CvtpResponse;
using Cvtp::CvtpServer;
using Cvtp::CvtpServerRequest;
using Cvtp::CvtpServerResponse;
using ::testing::ElementsAre;
using ::testing::StartsWith;

/// Bytes of every value, without a short period.
std::string mixedBytes(std::size_t size) {
    std::string bytes(size, '\0');
    std::uint32_t state = 1;
    for (char& byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<char>(state >> 24);
    }
    return bytes;
}

std::string rest(std::istream& stream) {
    return std::string(std::istreambuf_iterator<char>(stream), {});
}

/// Answers with the body of the request, by length for "/length", in chunks for "/chunks".
void answerInKind(CvtpServerRequest& request, CvtpServerResponse& response) {
    response.setStatusCode(200);
    if (request.getResource() == "/length") {
        FunctionHandler::echo(request, response);
        return;
    }
    // Not straight from stream to stream: the client reads only after it has sent all.
    const std::string body = rest(*request.getBodyStream());
    EXPECT_TRUE(request.isBodyComplete());
    *response.getBodyStream() << body;
    response.send();
}

/// Number of bytes, whether the request is sent as a stream, whether the response is.
using Way = std::tuple<std::size_t, bool, bool>;

class BodyWayTest : public ServerTest, public ::testing::WithParamInterface<Way> {};

TEST_P(BodyWayTest, ComesBackByteForByte) {
    const auto [size, streamedThere, streamedBack] = GetParam();
    const std::string body = mixedBytes(size);
    const LogCapture log;
    RunningServer service("pipe");
    service.handler.onPost = answerInKind;
    service.start();
    CvtpClient client;
    // Twice, so that the second request finds the connection of the first as it was left.
    for (int round = 0; round < 2; ++round) {
        std::istringstream source(body);
        Cvtp::PostRequest request(&client, "pipe", streamedBack ? "/chunks" : "/length");
        if (streamedThere) {
            request.setBodyStream(&source);
        } else {
            request.setBody(body.data(), body.size());
        }
        const std::unique_ptr<CvtpResponse> response(request.execute());
        EXPECT_EQ(response->getStatusCode(), 200);
        EXPECT_EQ(response->getHeader("Content-Length"), streamedBack ? "" : std::to_string(size));
        EXPECT_EQ(response->getHeader("Transfer-Encoding"), streamedBack ? "chunked" : "");
        EXPECT_EQ(response->getHeader("Server"), "CvtpServer");
        EXPECT_TRUE(rest(*response->getBodyStream()) == body);
    }
    service.stop();
    EXPECT_TRUE(log.has(summaryLine("pipe", 2, 0, 1, 0, 0, 1)));
}

INSTANTIATE_TEST_SUITE_P(Sizes, BodyWayTest,
                         ::testing::Combine(::testing::Values(0, 1, 4095, 4096, 4097, 40960, 1000003),
                                            ::testing::Bool(), ::testing::Bool()));

class BufferSizeTest : public ServerTest, public ::testing::WithParamInterface<int> {};

TEST_P(BufferSizeTest, AnySizeWorks) {
    const std::string body = mixedBytes(10000);
    RunningServer service("pipe");
    service.server.setOption(CvtpServer::BUFFER_SIZE, GetParam());
    service.handler.onPost = answerInKind;
    service.start();
    RawClient client("pipe");
    EXPECT_TRUE(client.post(body, "/length") == body);
    client.send(RawClient::postBytes("hello", "/chunks"));
    EXPECT_THAT(client.receiveThrough("\r\n0\r\n\r\n"), StartsWith("CVTP/1.0 200 OK\r\n"));
    EXPECT_TRUE(client.post(body, "/length") == body);
}

INSTANTIATE_TEST_SUITE_P(Sizes, BufferSizeTest, ::testing::Values(1, 2, 19, 100000, 0, -1, -2147483647));

class ServerBodiesTest : public ServerTest {
 protected:
    LogCapture log;
    RunningServer service{"pipe"};
};

TEST_F(ServerBodiesTest, ChunksHaveTheSizeOfTheBuffer) {
    service.server.setOption(CvtpServer::BUFFER_SIZE, 16);
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse& response) {
        response.setStatusCode(200);
        *response.getBodyStream() << std::string(20, 'x');
        response.send();
    };
    service.start();
    RawClient client("pipe");
    client.send(RawClient::postBytes(""));
    EXPECT_EQ(client.receiveThrough("\r\n0\r\n\r\n"),
              "CVTP/1.0 200 OK\r\nServer: CvtpServer\r\nTransfer-Encoding: chunked\r\n\r\n"
              "10\r\nxxxxxxxxxxxxxxxx\r\n4\r\nxxxx\r\n0\r\n\r\n");
}

TEST_F(ServerBodiesTest, AnErrorIsAStatusLineAndNoBody) {
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse& response) {
        response.sendError(404, "No such order");
    };
    service.start();
    RawClient client("pipe");
    const std::string answer = "CVTP/1.0 404 No such order\r\nContent-Length: 0\r\nServer: CvtpServer\r\n\r\n";
    client.send(RawClient::postBytes("hello"));
    EXPECT_EQ(client.receive(answer.size()), answer);
    client.send(RawClient::postBytes("hello"));
    EXPECT_EQ(client.receive(answer.size()), answer);
}

TEST_F(ServerBodiesTest, AHandlerThatNeverRepliesLeavesTheConnectionUsable) {
    service.handler.onPost = [](CvtpServerRequest& request, CvtpServerResponse& response) {
        if (request.getResource() == "/silent") {
            response.setStatusCode(200);
            response.setBody("never sent", 10);
            return;
        }
        FunctionHandler::echo(request, response);
    };
    service.start();
    RawClient client("pipe");
    client.send(RawClient::postBytes("hello", "/silent"));
    EXPECT_EQ(client.post("again"), "again");
}

TEST_F(ServerBodiesTest, AStreamThatWasOnlyAskedForSendsNothing) {
    service.handler.onPost = [](CvtpServerRequest& request, CvtpServerResponse& response) {
        if (request.getResource() == "/silent") {
            response.getBodyStream();
            return;
        }
        FunctionHandler::echo(request, response);
    };
    service.start();
    RawClient client("pipe");
    client.send(RawClient::postBytes("hello", "/silent"));
    EXPECT_EQ(client.post("again"), "again");
}

TEST_F(ServerBodiesTest, AResponseThatBreaksOffClosesTheConnection) {
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse& response) {
        response.setStatusCode(200);
        *response.getBodyStream() << "hello" << std::flush;
    };
    service.start();
    RawClient client("pipe");
    client.send(RawClient::postBytes("") + RawClient::postBytes(""));
    EXPECT_EQ(client.receiveToEnd(),
              "CVTP/1.0 200 OK\r\nServer: CvtpServer\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n");
    EXPECT_THAT(workerLines(log),
                ElementsAre("DEBUG: Begin processing of POST request (CvtpServer/Worker-1).",
                            "DEBUG: Complete processing of POST request (CvtpServer/Worker-1).",
                            "DEBUG: The response to a POST request was not completed (CvtpServer/Worker-1). "
                            "The pipe will be closed.",
                            closingLine()));
}

TEST_F(ServerBodiesTest, AResponseOfWhichNothingWasSentLeavesTheConnectionUsable) {
    service.handler.onPost = [](CvtpServerRequest& request, CvtpServerResponse& response) {
        if (request.getResource() != "/refused") {
            FunctionHandler::echo(request, response);
            return;
        }
        response.addHeader("X-Long", std::string(3000, 'x'));
        EXPECT_THROW(FunctionHandler::reply(response, "hello"), Io::IllegalStateException);
    };
    service.start();
    RawClient client("pipe");
    client.send(RawClient::postBytes("hello", "/refused"));
    EXPECT_EQ(client.post("again"), "again");
}

TEST_F(ServerBodiesTest, AClientThatIsGoneBeforeTheResponseIsAFailedRequest) {
    Gate received;
    Gate gone;
    service.handler.onPost = [&](CvtpServerRequest&, CvtpServerResponse& response) {
        received.open();
        gone.wait();
        FunctionHandler::reply(response, "hello");
    };
    service.start();
    {
        RawClient client("pipe");
        client.send(RawClient::postBytes(""));
        // On Windows a client that has gone before it was accepted has never been there.
        received.wait();
    }
    gone.open();
    EXPECT_THAT(workerLines(log),
                ElementsAre("DEBUG: Begin processing of POST request (CvtpServer/Worker-1).",
                            "ERROR: CvPipeException - CvtpServer/Worker-1. Pipe was closed at other end.",
                            "ERROR: Could not process the POST request. The pipe will be closed.", closingLine()));
}

// Bodies that handlers do not read.

/// The body of a request that looks like a request, and would count as one if it were taken for the next.
const std::string SMUGGLED = RawClient::notifyBytes("smuggled");

struct UnreadCase {
    std::string name;
    /// Header line and body.
    std::string header;
    std::string body;
    /// How many bytes of it the handler reads.
    int taken;
};

void PrintTo(const UnreadCase& unread, std::ostream* out) {
    *out << unread.name;
}

std::string repeated(const std::string& text, std::size_t times) {
    std::string result;
    for (std::size_t i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

UnreadCase byLength(const std::string& name, const std::string& body, int taken) {
    return {name, "Content-Length: " + std::to_string(body.size()), body, taken};
}

UnreadCase byChunks(const std::string& name, const std::string& body, std::size_t chunks, int taken) {
    std::ostringstream chunk;
    chunk << std::hex << body.size() << "\r\n" << body << "\r\n";
    return {name, "Transfer-Encoding: chunked", repeated(chunk.str(), chunks) + "0\r\n\r\n", taken};
}

std::vector<UnreadCase> unreadCases() {
    const std::string large = repeated(SMUGGLED, 5000);
    return {byLength("Empty", "", 0),
            byLength("Small", SMUGGLED, 0),
            byLength("SmallReadInPart", SMUGGLED, 7),
            byLength("Large", large, 0),
            byLength("LargeReadInPart", large, 10000),
            byChunks("OneChunk", SMUGGLED, 1, 0),
            byChunks("OneChunkReadInPart", SMUGGLED, 1, 7),
            byChunks("ManyChunks", SMUGGLED, 5000, 0),
            byChunks("ManyChunksReadInPart", SMUGGLED, 5000, 10000),
            byChunks("LargeChunks", large, 3, 0)};
}

class UnreadBodyTest : public ServerTest, public ::testing::WithParamInterface<UnreadCase> {};

TEST_P(UnreadBodyTest, IsNeverTakenForARequest) {
    const UnreadCase& unread = GetParam();
    RunningServer service("pipe");
    std::atomic<int> notified{0};
    service.handler.onNotify = [&](CvtpServerRequest&) { ++notified; };
    service.handler.onPost = [&](CvtpServerRequest& request, CvtpServerResponse& response) {
        if (request.getResource() == "/whole") {
            FunctionHandler::echo(request, response);
            return;
        }
        std::string taken(static_cast<std::size_t>(unread.taken), '\0');
        request.getBodyStream()->read(taken.data(), unread.taken);
        FunctionHandler::reply(response, "unread");
    };
    service.start();
    RawClient client("pipe");
    client.send("POST /r CVTP/1.0\r\n" + unread.header + "\r\n\r\n" + unread.body);
    EXPECT_EQ(client.receiveBody(), "unread");
    EXPECT_EQ(client.post("next", "/whole"), "next");
    EXPECT_EQ(notified, 0);
}

TEST_P(UnreadBodyTest, OfANotifyIsNeverTakenForARequest) {
    const UnreadCase& unread = GetParam();
    RunningServer service("pipe");
    std::atomic<int> notified{0};
    service.handler.onNotify = [&](CvtpServerRequest&) { ++notified; };
    service.start();
    RawClient client("pipe");
    client.send("NOTIFY /r CVTP/1.0\r\n" + unread.header + "\r\n\r\n" + unread.body);
    EXPECT_EQ(client.post("next"), "next");
    EXPECT_EQ(notified, 1);
}

INSTANTIATE_TEST_SUITE_P(Bodies, UnreadBodyTest, ::testing::ValuesIn(unreadCases()),
                         [](const ::testing::TestParamInfo<UnreadCase>& unread) { return unread.param.name; });

TEST_F(ServerBodiesTest, AnUnreadBodyThatDoesNotEndClosesTheConnection) {
    service.server.setOption(CvtpServer::RECEIVE_TIMEOUT, 50);
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse& response) {
        FunctionHandler::reply(response, "unread");
    };
    service.start();
    RawClient client("pipe");
    client.send("POST /r CVTP/1.0\r\nContent-Length: 5\r\n\r\nhel");
    EXPECT_EQ(client.receiveBody(), "unread");
    EXPECT_EQ(client.receiveToEnd(), "");
    EXPECT_THAT(workerLines(log), ElementsAre("DEBUG: Begin processing of POST request (CvtpServer/Worker-1).",
                                              "DEBUG: Complete processing of POST request (CvtpServer/Worker-1).",
                                              "DEBUG: The body of a request did not end (CvtpServer/Worker-1). "
                                              "The pipe will be closed.",
                                              closingLine()));
}

TEST_F(ServerBodiesTest, AMalformedUnreadBodyClosesTheConnection) {
    service.handler.onPost = [](CvtpServerRequest&, CvtpServerResponse& response) {
        FunctionHandler::reply(response, "unread");
    };
    service.start();
    RawClient client("pipe");
    client.send("POST /r CVTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello!!" + SMUGGLED);
    EXPECT_EQ(client.receiveBody(), "unread");
    EXPECT_EQ(client.receiveToEnd(), "");
    EXPECT_THAT(workerLines(log), ElementsAre("DEBUG: Begin processing of POST request (CvtpServer/Worker-1).",
                                              "DEBUG: Complete processing of POST request (CvtpServer/Worker-1).",
                                              "ERROR: Bad end of chunk",
                                              "DEBUG: The body of a request did not end (CvtpServer/Worker-1). "
                                              "The pipe will be closed.",
                                              closingLine()));
}

TEST_F(ServerBodiesTest, AHandlerThatSwallowsTheFailureOfABodyClosesTheConnection) {
    service.server.setOption(CvtpServer::RECEIVE_TIMEOUT, 50);
    service.handler.onPost = [](CvtpServerRequest& request, CvtpServerResponse& response) {
        try {
            FunctionHandler::bodyText(request);
        } catch (const Io::CvPipeException&) {
            FunctionHandler::reply(response, "too slow");
        }
    };
    service.start();
    RawClient client("pipe");
    client.send("POST /r CVTP/1.0\r\nContent-Length: 5\r\n\r\nhel");
    EXPECT_EQ(client.receiveBody(), "too slow");
    EXPECT_EQ(client.receiveToEnd(), "");
    EXPECT_THAT(workerLines(log), ElementsAre("DEBUG: Begin processing of POST request (CvtpServer/Worker-1).",
                                              "DEBUG: Complete processing of POST request (CvtpServer/Worker-1).",
                                              "DEBUG: The body of a request did not end (CvtpServer/Worker-1). "
                                              "The pipe will be closed.",
                                              closingLine()));
}

TEST_F(ServerBodiesTest, AHandlerThatStreamsCanTellAWholeBodyFromOneCutOff) {
    std::vector<std::string> seen;
    Gate first;
    Gate last;
    service.handler.onNotify = [&](CvtpServerRequest& request) {
        (seen.size() < 3 ? first : last).open();
        const std::string body = rest(*request.getBodyStream());
        seen.push_back(body + (request.isBodyComplete() ? " whole" : " cut off"));
    };
    service.start();
    {
        RawClient client("pipe");
        client.send("NOTIFY /r CVTP/1.0\r\nContent-Length: 5\r\n\r\nhello");
        client.send("NOTIFY /r CVTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n");
        client.send("NOTIFY /r CVTP/1.0\r\nContent-Length: 10\r\n\r\nhello");
        // As above: it stays until it was accepted.
        first.wait();
    }
    EXPECT_TRUE(log.waitFor(closingLine()));
    {
        RawClient client("pipe");
        client.send("NOTIFY /r CVTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n");
        last.wait();
    }
    EXPECT_TRUE(log.waitFor(closingLine("CvtpServer/Worker-2")));
    service.stop();
    EXPECT_THAT(seen, ElementsAre("hello whole", "hello whole", "hello cut off", "hello cut off"));
}

TEST_F(ServerBodiesTest, NotifiesOfTheClientArrive) {
    std::vector<std::string> seen;
    Gate last;
    service.handler.onNotify = [&](CvtpServerRequest& request) {
        if (request.getResource() == "/last") {
            last.open();
            return;
        }
        seen.push_back(request.getStartLine() + " " + request.getHeader("User-Agent") + " " +
                       FunctionHandler::bodyText(request));
    };
    service.start();
    CvtpClient client;
    {
        Cvtp::NotifyRequest request(&client, "pipe", "/a");
        request.setBody("by length", 9);
        request.execute();
    }
    {
        std::istringstream body("in chunks");
        Cvtp::NotifyRequest request(&client, "pipe", "/b");
        request.setBodyStream(&body);
        request.execute();
    }
    {
        Cvtp::NotifyRequest request(&client, "pipe", "/last");
        request.setBody("", 0);
        request.execute();
    }
    last.wait();
    service.stop();
    EXPECT_THAT(seen,
                ElementsAre("NOTIFY /a CVTP/1.0 CvtpClient by length", "NOTIFY /b CVTP/1.0 CvtpClient in chunks"));
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
