#include <climits>
#include <sstream>
#include <string>
#include <vector>

#include "tests/client/ClientTest.h"
#include "tests/support_code/FeedBuffer.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpClient;
using Cvtp::NotifyRequest;
using Cvtp::PostRequest;

void answer(ScriptedConnection& connection) {
    connection.answerAll(answerWith("ok"));
}

/// What a request looks like to the server, byte for byte.
class ClientRequestWireTest : public ClientTest {
 protected:
    /// Executes it and gives what the server read.
    std::string sent(PostRequest& request) {
        const std::unique_ptr<Cvtp::CvtpResponse> response(request.execute());
        EXPECT_EQ(bodyOf(*response), "ok");
        return server.requests().back();
    }

    std::string sentWithBody(PostRequest& request, const std::string& body) {
        request.setBody(body.data(), body.size());
        return sent(request);
    }

    std::string sentInChunks(const std::string& body) {
        PostRequest request(&client, "orders", "/r");
        std::istringstream stream(body);
        request.setBodyStream(&stream);
        const std::string bytes = sent(request);
        const std::string head = "POST /r CVTP/1.0\r\nTransfer-Encoding: chunked\r\nUser-Agent: CvtpClient\r\n\r\n";
        EXPECT_EQ(bytes.substr(0, head.size()), head);
        return bytes.substr(head.size());
    }

    ScriptedServer server{"orders", {answer}};
    CvtpClient client;
};

}  // namespace

TEST_F(ClientRequestWireTest, APostByLength) {
    const std::string body("he\0lo", 5);
    PostRequest request(&client, "orders", "/Orders/17");
    EXPECT_EQ(sentWithBody(request, body),
              "POST /Orders/17 CVTP/1.0\r\nContent-Length: 5\r\nUser-Agent: CvtpClient\r\n\r\n" + body);
}

TEST_F(ClientRequestWireTest, APostByLengthWithoutABodyByte) {
    PostRequest request(&client, "orders", "/r");
    EXPECT_EQ(sentWithBody(request, ""), "POST /r CVTP/1.0\r\nContent-Length: 0\r\nUser-Agent: CvtpClient\r\n\r\n");
}

TEST_F(ClientRequestWireTest, TheBytesOfTheBodyAreCopied) {
    PostRequest request(&client, "orders", "/r");
    std::string body = "first";
    request.setBody(body.data(), body.size());
    body = "other";
    EXPECT_EQ(sent(request), "POST /r CVTP/1.0\r\nContent-Length: 5\r\nUser-Agent: CvtpClient\r\n\r\nfirst");
}

TEST_F(ClientRequestWireTest, TheHeadersOfTheApplicationAndTheClientAreInTheOrderOfTheirNames) {
    PostRequest request(&client, "orders", "/r");
    request.addHeader("X-b", "1");
    request.addHeader("a", "2");
    request.addHeader("x-B", "3, 4");
    request.addHeader("gone", "5");
    request.removeHeader("GONE");
    request.setHeader("A", "6");
    EXPECT_EQ(sentWithBody(request, ""),
              "POST /r CVTP/1.0\r\nA: 6\r\nContent-Length: 0\r\nUser-Agent: CvtpClient\r\nX-b: 1,3,4\r\n\r\n");
}

TEST_F(ClientRequestWireTest, TheUserAgentIsThatOfTheClientWhenTheRequestIsMade) {
    client.setOption(CvtpClient::USER_AGENT, "Counter/2.1");
    PostRequest request(&client, "orders", "/r");
    client.setOption(CvtpClient::USER_AGENT, "Later");
    EXPECT_EQ(sentWithBody(request, ""),
              "POST /r CVTP/1.0\r\nContent-Length: 0\r\nUser-Agent: Counter/2.1\r\n\r\n");
}

TEST_F(ClientRequestWireTest, TheUserAgentCanBeReplaced) {
    PostRequest request(&client, "orders", "/r");
    request.setHeader("user-agent", "Mine");
    EXPECT_EQ(sentWithBody(request, ""), "POST /r CVTP/1.0\r\nContent-Length: 0\r\nuser-agent: Mine\r\n\r\n");
}

TEST_F(ClientRequestWireTest, TheUserAgentCanBeRemoved) {
    PostRequest request(&client, "orders", "/r");
    request.removeHeader("User-Agent");
    EXPECT_EQ(sentWithBody(request, ""), "POST /r CVTP/1.0\r\nContent-Length: 0\r\n\r\n");
}

TEST_F(ClientRequestWireTest, TheResourceIsTheOneSetLast) {
    PostRequest request(&client, "orders", "/first");
    EXPECT_EQ(request.getResource(), "/first");
    request.setResource("/second");
    EXPECT_EQ(request.getResource(), "/second");
    EXPECT_EQ(request.getStartLine(), "POST /second CVTP/1.0");
    EXPECT_EQ(sentWithBody(request, ""),
              "POST /second CVTP/1.0\r\nContent-Length: 0\r\nUser-Agent: CvtpClient\r\n\r\n");
}

TEST_F(ClientRequestWireTest, TheResourceIsEscapedWhereItWouldBreakTheStartLine) {
    struct Case {
        std::string resource;
        std::string line;
    };
    const std::vector<Case> cases{
        {"/plain/Resource?a=b&c=%zz", "POST /plain/Resource?a=b&c=%zz CVTP/1.0"},
        {"/a b", "POST /a%20b CVTP/1.0"},
        {"/r CVTP/1.0\r\nEvil: 1\r\n\r\n", "POST /r%20CVTP/1.0%0D%0AEvil:%201%0D%0A%0D%0A CVTP/1.0"},
        {std::string("/nul\0tab\t\x7f", 10), "POST /nul%00tab%09%7F CVTP/1.0"},
        {"/100%25", "POST /100%2525 CVTP/1.0"},
        {"/\xc3\xa4\xff", "POST /\xc3\xa4\xff CVTP/1.0"},
        {"", "POST  CVTP/1.0"},
    };
    for (const Case& test : cases) {
        PostRequest request(&client, "orders", test.resource);
        EXPECT_EQ(request.getStartLine(), test.line);
        EXPECT_EQ(sentWithBody(request, ""), test.line + "\r\nContent-Length: 0\r\nUser-Agent: CvtpClient\r\n\r\n");
        EXPECT_EQ(request.getResource(), test.resource);
    }
}

TEST_F(ClientRequestWireTest, NothingInAHeaderEndsItsLine) {
    client.setOption(CvtpClient::USER_AGENT, "Me\r\nEvil: 1");
    PostRequest request(&client, "orders", "/r");
    request.addHeader("X\r\nEvil: 2", "a\r\n\r\nb");
    request.setHeader("Y\nEvil", std::string("c\0d\re", 5));
    EXPECT_EQ(sentWithBody(request, ""),
              "POST /r CVTP/1.0\r\nContent-Length: 0\r\nUser-Agent: Me  Evil: 1\r\nX  Evil: 2: a    b\r\n"
              "Y Evil: c d e\r\n\r\n");
}

TEST_F(ClientRequestWireTest, AStreamIsSentInChunksOfTheBufferSize) {
    client.setOption(CvtpClient::BUFFER_SIZE, 4);
    EXPECT_EQ(sentInChunks("hello world"), "4\r\nhell\r\n4\r\no wo\r\n3\r\nrld\r\n0\r\n\r\n");
    client.setOption(CvtpClient::BUFFER_SIZE, 26);
    const std::string body(27, 'x');
    EXPECT_EQ(sentInChunks(body), "1a\r\n" + body.substr(1) + "\r\n1\r\nx\r\n0\r\n\r\n");
}

TEST_F(ClientRequestWireTest, AStreamOfExactlyOneBufferIsOneChunk) {
    client.setOption(CvtpClient::BUFFER_SIZE, 4);
    EXPECT_EQ(sentInChunks("four"), "4\r\nfour\r\n0\r\n\r\n");
}

TEST_F(ClientRequestWireTest, ABufferSizeBelowOneCountsAsOne) {
    for (const int size : {0, -5, INT_MIN}) {
        client.setOption(CvtpClient::BUFFER_SIZE, size);
        EXPECT_EQ(sentInChunks("ab"), "1\r\na\r\n1\r\nb\r\n0\r\n\r\n");
    }
}

TEST_F(ClientRequestWireTest, TheDefaultBufferSizeIsThatOfAChunk) {
    const std::string body(50000, 'x');
    EXPECT_EQ(sentInChunks(body),
              "a000\r\n" + body.substr(0, 40960) + "\r\n2350\r\n" + body.substr(40960) + "\r\n0\r\n\r\n");
}

TEST_F(ClientRequestWireTest, AnEmptyStreamIsAHeadAndTheLastChunk) {
    EXPECT_EQ(sentInChunks(""), "0\r\n\r\n");
}

TEST_F(ClientRequestWireTest, AStreamGivesTheSameChunksHoweverMuchItHasAtHand) {
    std::string text;
    for (int i = 0; text.size() < 250000; ++i) {
        text += std::to_string(i) + ",";
    }
    const std::string head = "POST /r CVTP/1.0\r\nTransfer-Encoding: chunked\r\nUser-Agent: CvtpClient\r\n\r\n";
    std::string expected = head;
    for (std::size_t at = 0; at < text.size(); at += 40960) {
        const std::string chunk = text.substr(at, 40960);
        std::ostringstream size;
        size << std::hex << chunk.size();
        expected += size.str() + "\r\n" + chunk + "\r\n";
    }
    expected += "0\r\n\r\n";
    for (const std::size_t piece : {1U, 100U, 4095U, 4096U, 40960U, 65536U, 100000U, 300000U}) {
        FeedBuffer source;
        for (std::size_t at = 0; at < text.size(); at += piece) {
            source.then(text.substr(at, piece));
        }
        std::istream stream(&source);
        PostRequest request(&client, "orders", "/r");
        request.setBodyStream(&stream);
        // Not shown when it differs: it is long.
        EXPECT_TRUE(sent(request) == expected) << piece;
        EXPECT_EQ(stream.rdstate(), std::ios::eofbit | std::ios::failbit) << piece;
    }
}

TEST_F(ClientRequestWireTest, AStreamAtItsEndIsAnEmptyOne) {
    std::istringstream stream("read before");
    std::string all;
    std::getline(stream, all);
    ASSERT_TRUE(stream.eof());
    PostRequest request(&client, "orders", "/r");
    request.setBodyStream(&stream);
    EXPECT_EQ(sent(request),
              "POST /r CVTP/1.0\r\nTransfer-Encoding: chunked\r\nUser-Agent: CvtpClient\r\n\r\n0\r\n\r\n");
}

TEST_F(ClientRequestWireTest, ANotifyByLengthAndInChunks) {
    ScriptedServer notices("notices", {[](ScriptedConnection& connection) {
                               while (!connection.readRequest().empty()) {
                               }
                           }});
    {
        CvtpClient other;
        notify(other, "notices", "hello");
        other.setOption(CvtpClient::BUFFER_SIZE, 4);
        NotifyRequest request(&other, "notices", "/a b");
        std::istringstream stream("hello");
        request.setBodyStream(&stream);
        request.execute();
        // On some systems a client that goes before it was accepted takes its bytes along.
        ASSERT_TRUE(notices.waitForRequests(2));
    }
    // One connection carries both, one behind the other.
    ASSERT_TRUE(notices.waitForEnd(0));
    EXPECT_EQ(notices.requests(),
              (Lines{"NOTIFY /n CVTP/1.0\r\nContent-Length: 5\r\nUser-Agent: CvtpClient\r\n\r\nhello",
                     "NOTIFY /a%20b CVTP/1.0\r\nTransfer-Encoding: chunked\r\nUser-Agent: CvtpClient\r\n\r\n"
                     "4\r\nhell\r\n1\r\no\r\n0\r\n\r\n"}));
}

}  // namespace Testing
}  // namespace Corvane
