// Request and response as a handler sees them, without a pipe.

#include <algorithm>
#include <sstream>

#include "cvtp/CvtpServerRequest.h"
#include "cvtp/CvtpServerResponse.h"
#include "io/Exceptions.h"
#include "support/Utf8String.h"
#include "tests/cvtp/MessageSupport.h"
#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpMessage;
using Cvtp::CvtpServer;
using Cvtp::CvtpServerRequest;
using Cvtp::CvtpServerResponse;
using Cvtp::Version;
using ::testing::ElementsAre;

const std::string NEITHER =
    "Neither the setBody or getBodyStream methods were called. Body data must be provided by one of these method.";
const std::string BOTH =
    "Both the setBody and getBodyStream methods were called. Only one method of providing body data is permitted.";

/// Runs `action` and gives the message of the exception that it throws.
template <class Exception, class Action>
std::string messageOf(Action action) {
    try {
        action();
    } catch (Exception& e) {
        return e.getMessage();
    }
    return "no exception";
}

class ServerMessagesTest : public ServerTest {
 protected:
    CvtpServer server{"pipe", 1};
    Xml::Utf8String scratch;
};

// Requests.

class ServerRequestTest : public ServerMessagesTest {
 protected:
    /// A request with an empty body.
    std::string parts(const std::string& startLine) {
        std::istringstream in(startLine + "\r\nContent-Length: 0\r\n\r\n");
        CvtpServerRequest request(&server, &in, &scratch);
        const std::string method = request.getMethod();
        const std::string resource = request.getResource();
        return method + "|" + resource + "|" + request.getCvtpVersion().toString();
    }
};

TEST_F(ServerRequestTest, TakesTheStartLineApart) {
    EXPECT_EQ(parts("POST /orders CVTP/1.0"), "POST|/orders|CVTP/1.0");
    EXPECT_EQ(parts("NOTIFY /a/b?c=d CVTP/2.13"), "NOTIFY|/a/b?c=d|CVTP/2.13");
}

TEST_F(ServerRequestTest, AStartLineWithoutBlanksIsMethodAndResource) {
    EXPECT_EQ(parts("POST"), "POST|POST|CVTP/1.0");
    EXPECT_EQ(parts("CVTP/3.4"), "CVTP/3.4|CVTP/3.4|CVTP/3.4");
    EXPECT_EQ(parts("%41"), "%41|A|CVTP/1.0");
}

TEST_F(ServerRequestTest, AStartLineWithOneBlankHasAResourceToItsEnd) {
    EXPECT_EQ(parts("POST /a"), "POST|/a|CVTP/1.0");
    EXPECT_EQ(parts("POST CVTP/7.8"), "POST|CVTP/7.8|CVTP/7.8");
}

TEST_F(ServerRequestTest, AStartLineWithManyBlanks) {
    EXPECT_EQ(parts("POST /a b CVTP/2.7"), "POST|/a|CVTP/2.7");
    EXPECT_EQ(parts("POST  /a CVTP/2.7"), "POST||CVTP/2.7");
    EXPECT_EQ(parts(" POST /a CVTP/2.7"), "|POST|CVTP/2.7");
    EXPECT_EQ(parts("POST /a CVTP/2.7 "), "POST|/a|CVTP/1.0");
    EXPECT_EQ(parts("POST\t/a\tCVTP/2.7"), "POST\t/a\tCVTP/2.7|POST\t/a\tCVTP/2.7|CVTP/1.0");
    EXPECT_EQ(parts(" "), "||CVTP/1.0");
}

TEST_F(ServerRequestTest, DecodesTheResourceOnly) {
    EXPECT_EQ(parts("P%4fST /a%20b%0D%zz CVTP/1%2E5"), "P%4fST|/a b\r%zz|CVTP/1.0");
}

TEST_F(ServerRequestTest, AVersionThatIsNoneIsTheCurrentOne) {
    EXPECT_EQ(parts("POST /a HTTP/1.1"), "POST|/a|CVTP/1.0");
    EXPECT_EQ(parts("POST /a CVTP/2"), "POST|/a|CVTP/2.0");
}

TEST_F(ServerRequestTest, ReadsNothingUntilItIsAsked) {
    std::istringstream in("POST /a CVTP/1.0\r\nContent-Length: 0\r\n\r\n");
    CvtpServerRequest request(&server, &in, &scratch);
    EXPECT_EQ(in.tellg(), 0);
    EXPECT_EQ(request.getHeader("Content-Length"), "");
    EXPECT_EQ(in.tellg(), 0);
    EXPECT_EQ(request.getStartLine(), "POST /a CVTP/1.0");
    EXPECT_EQ(request.getHeader("Content-Length"), "0");
}

TEST_F(ServerRequestTest, WithoutAStartLineMethodAndResourceTellIt) {
    std::istringstream in;
    EXPECT_EQ(CvtpServerRequest(&server, &in, &scratch).getMethod(), "NONE");
    EXPECT_EQ(CvtpServerRequest(&server, &in, &scratch).getResource(), "");
    CvtpServerRequest request(&server, &in, &scratch);
    EXPECT_EQ(messageOf<Io::InterruptedException>([&] { request.getCvtpVersion(); }),
              "Reached the stream end-of-file before the expected new line.");
    EXPECT_EQ(request.getStartLine(), "NONE Empty/Resource CVTP/1.0");
}

TEST_F(ServerRequestTest, GivesHeadersAndBody) {
    std::istringstream in("POST /a CVTP/1.0\r\nx-b: 1, 2\r\nX-A: 3\r\nContent-Length: 5\r\n\r\nhello and more");
    CvtpServerRequest request(&server, &in, &scratch);
    request.getStartLine();
    EXPECT_EQ(request.getHeader("X-B"), "1");
    EXPECT_THAT(request.getHeaders("X-B"), ElementsAre("1", "2"));
    EXPECT_THAT(request.getHeaderNames(), ElementsAre("Content-Length", "X-A", "x-b"));
    EXPECT_FALSE(request.isBodyComplete());
    EXPECT_EQ(bodyOf(request), "hello");
    EXPECT_TRUE(request.isBodyComplete());
}

TEST_F(ServerRequestTest, GivesTheBodyThroughAPointerToo) {
    std::istringstream in("POST /a CVTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n");
    CvtpServerRequest request(&server, &in, &scratch);
    char* data = nullptr;
    std::size_t length = 0;
    request.getBody(&data, length);
    const Bytes owner(data);
    EXPECT_EQ(std::string(data, length), "hello");
    EXPECT_EQ(data[length], '\0');
}

/// Notes the largest piece that is asked of it.
class NotingBuffer : public std::stringbuf {
 public:
    using std::stringbuf::stringbuf;
    std::streamsize largest = 0;

 protected:
    std::streamsize xsgetn(char* data, std::streamsize size) override {
        largest = std::max(largest, size);
        return std::stringbuf::xsgetn(data, size);
    }
};

TEST_F(ServerRequestTest, ReadsTheBodyInPiecesOfTheBufferSize) {
    server.setOption(CvtpServer::BUFFER_SIZE, 16);
    NotingBuffer buffer("POST /a CVTP/1.0\r\nContent-Length: 100\r\n\r\n" + std::string(100, 'x'));
    std::istream in(&buffer);
    CvtpServerRequest request(&server, &in, &scratch);
    EXPECT_EQ(request.getBodyStream()->get(), 'x');
    EXPECT_EQ(buffer.largest, 16);
}

TEST_F(ServerRequestTest, GivesTheSameBodyStreamEachTime) {
    std::istringstream in("POST /a CVTP/1.0\r\nContent-Length: 5\r\n\r\nhello and more");
    CvtpServerRequest request(&server, &in, &scratch);
    std::istream* const stream = request.getBodyStream();
    EXPECT_EQ(request.getBodyStream(), stream);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(*stream), {}), "hello");
}

TEST_F(ServerRequestTest, TracesWithItsTag) {
    const LogCapture log(4, 1);
    std::istringstream in("POST /a CVTP/1.0\r\nContent-Length: 2\r\n\r\nhi");
    CvtpServerRequest request(&server, &in, &scratch);
    bodyOf(request);
    EXPECT_EQ(log.maskedTrace(),
              LogCapture::prefix("INPUT ") + "Accept:  POST /a CVTP/1.0" + "Content-Length: 2\n\nhi\n");
    EXPECT_EQ(log.texts().front(), "DEBUG: Accept:  POST /a CVTP/1.0");
}

// Responses.

class ServerResponseTest : public ServerMessagesTest {
 protected:
    std::ostringstream out;
    CvtpServerResponse response{&server, &out, &scratch};
};

TEST_F(ServerResponseTest, IsAServerErrorAtFirst) {
    EXPECT_EQ(response.getStartLine(), "CVTP/1.0 500 Internal Server Error");
    EXPECT_FALSE(response.isCommitted());
    response.setBody("", 0);
    response.send();
    EXPECT_EQ(out.str(), "CVTP/1.0 500 Internal Server Error\r\nContent-Length: 0\r\nServer: CvtpServer\r\n\r\n");
}

TEST_F(ServerResponseTest, NamesTheServer) {
    server.setOption(CvtpServer::SERVER_NAME, "Orders 2.1");
    CvtpServerResponse named(&server, &out, &scratch);
    named.setStatusCode(200);
    named.setBody("", 0);
    named.send();
    EXPECT_EQ(out.str(), "CVTP/1.0 200 OK\r\nContent-Length: 0\r\nServer: Orders 2.1\r\n\r\n");
}

TEST_F(ServerResponseTest, TakesTheReasonFromTheTable) {
    response.setStatusCode(404);
    EXPECT_EQ(response.getStartLine(), "CVTP/1.0 404 Not Found");
    response.setStatusCode(200);
    EXPECT_EQ(response.getStartLine(), "CVTP/1.0 200 OK");
}

TEST_F(ServerResponseTest, ACodeThatIsNotInTheTableHasTheReasonNone) {
    const std::size_t before = CvtpMessage::STATUS_REASONS.size();
    response.setStatusCode(299);
    EXPECT_EQ(response.getStartLine(), "CVTP/1.0 299 None");
    response.setStatusCode(-7);
    EXPECT_EQ(response.getStartLine(), "CVTP/1.0 -7 None");
    EXPECT_EQ(CvtpMessage::STATUS_REASONS.size(), before);
}

TEST_F(ServerResponseTest, TakesAReasonOfItsOwn) {
    response.setStatusCode(200, "Fine");
    EXPECT_EQ(response.getStartLine(), "CVTP/1.0 200 Fine");
    response.setReasonPhrase("Finer");
    EXPECT_EQ(response.getStartLine(), "CVTP/1.0 200 Finer");
    response.setStatusCode(299, "");
    EXPECT_EQ(response.getStartLine(), "CVTP/1.0 299 ");
}

TEST_F(ServerResponseTest, AResourceIdTooLongKeepsItsTrailingBlankOnTheWire) {
    response.setStatusCode(414);
    response.setBody("", 0);
    response.send();
    EXPECT_EQ(out.str(), "CVTP/1.0 414 Resource-ID Too Long \r\nContent-Length: 0\r\nServer: CvtpServer\r\n\r\n");
}

TEST_F(ServerResponseTest, AReasonCannotBringAHeader) {
    response.setStatusCode(200, "OK\r\nX-Evil: 1");
    EXPECT_EQ(response.getStartLine(), "CVTP/1.0 200 OK  X-Evil: 1");
    response.setBody("", 0);
    response.send();
    EXPECT_EQ(out.str(), "CVTP/1.0 200 OK  X-Evil: 1\r\nContent-Length: 0\r\nServer: CvtpServer\r\n\r\n");
}

TEST_F(ServerResponseTest, SendsHeadersInTheOrderOfTheirNames) {
    response.setStatusCode(200);
    response.addHeader("x-b", "1");
    response.addHeader("A", "2");
    response.addHeader("X-B", "3");
    response.setHeader("C", "4");
    response.setHeader("C", "5");
    response.addHeader("D", "6");
    response.removeHeader("d");
    response.setBody("hello", 5);
    response.send();
    EXPECT_EQ(
        out.str(),
        "CVTP/1.0 200 OK\r\nA: 2\r\nC: 5\r\nContent-Length: 5\r\nServer: CvtpServer\r\nx-b: 1,3\r\n\r\nhello");
    EXPECT_TRUE(response.isCommitted());
}

TEST_F(ServerResponseTest, SendsABodyOfAnyBytes) {
    const std::string body("\0\r\n\r\n\xFF\0", 7);
    response.setBody(body.data(), body.size());
    response.send();
    EXPECT_EQ(out.str(),
              "CVTP/1.0 500 Internal Server Error\r\nContent-Length: 7\r\nServer: CvtpServer\r\n\r\n" + body);
}

TEST_F(ServerResponseTest, SendsAStreamInChunks) {
    server.setOption(CvtpServer::BUFFER_SIZE, 10);
    CvtpServerResponse streamed(&server, &out, &scratch);
    streamed.setStatusCode(200);
    std::ostream& body = *streamed.getBodyStream();
    EXPECT_EQ(out.str(), "");
    body << "hello";
    EXPECT_TRUE(streamed.isCommitted());
    body << std::string(12, 'x');
    streamed.send();
    EXPECT_EQ(out.str(),
              "CVTP/1.0 200 OK\r\nServer: CvtpServer\r\nTransfer-Encoding: chunked\r\n\r\n"
              "a\r\nhelloxxxxx\r\n7\r\nxxxxxxx\r\n0\r\n\r\n");
}

TEST_F(ServerResponseTest, AStreamIntoWhichNothingWasWrittenIsAnEmptyBody) {
    response.setStatusCode(200);
    response.getBodyStream();
    response.send();
    EXPECT_EQ(out.str(), "CVTP/1.0 200 OK\r\nServer: CvtpServer\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n");
}

TEST_F(ServerResponseTest, GivesTheSameBodyStreamEachTime) {
    std::ostream* const stream = response.getBodyStream();
    EXPECT_EQ(response.getBodyStream(), stream);
    response.setStatusCode(200);
    // A third call does not bring the header back, either.
    response.removeHeader("Transfer-Encoding");
    EXPECT_EQ(response.getBodyStream(), stream);
    response.send();
    EXPECT_EQ(out.str(), "CVTP/1.0 200 OK\r\nServer: CvtpServer\r\n\r\n0\r\n\r\n");
}

TEST_F(ServerResponseTest, WithoutABodyItSendsNothing) {
    const LogCapture log;
    EXPECT_EQ(messageOf<Io::IllegalStateException>([this] { response.send(); }), NEITHER);
    EXPECT_EQ(log.texts(), Lines({"ERROR: " + NEITHER}));
    EXPECT_EQ(out.str(), "");
    EXPECT_FALSE(response.isCommitted());
}

TEST_F(ServerResponseTest, WithBodyAndStreamItSendsNothing) {
    const LogCapture log;
    response.setBody("hello", 5);
    response.getBodyStream();
    EXPECT_EQ(messageOf<Io::IllegalStateException>([this] { response.send(); }), BOTH);
    EXPECT_EQ(log.texts(), Lines({"ERROR: " + BOTH}));
    EXPECT_EQ(out.str(), "");
}

TEST_F(ServerResponseTest, WithStreamAndBodyItSendsNothing) {
    response.getBodyStream();
    response.setBody("hello", 5);
    EXPECT_EQ(messageOf<Io::IllegalStateException>([this] { response.send(); }), BOTH);
    EXPECT_EQ(out.str(), "");
}

TEST_F(ServerResponseTest, AnErrorCarriesItsMessageInTheStatusLine) {
    response.sendError(404, "No such order");
    EXPECT_EQ(response.getStartLine(), "CVTP/1.0 404 No such order");
    EXPECT_EQ(out.str(), "CVTP/1.0 404 No such order\r\nContent-Length: 0\r\nServer: CvtpServer\r\n\r\n");
}

TEST_F(ServerResponseTest, AnErrorDropsABodyGivenBefore) {
    response.setStatusCode(200);
    response.setBody("hello", 5);
    response.sendError(500, "Changed my mind");
    EXPECT_EQ(out.str(), "CVTP/1.0 500 Changed my mind\r\nContent-Length: 0\r\nServer: CvtpServer\r\n\r\n");
}

TEST_F(ServerResponseTest, AnErrorAfterAStreamWasAskedForSendsNothing) {
    response.getBodyStream();
    EXPECT_EQ(messageOf<Io::IllegalStateException>([this] { response.sendError(404, "No"); }), BOTH);
    EXPECT_EQ(out.str(), "");
}

TEST_F(ServerResponseTest, AHeaderThatIsTooLongSendsNothing) {
    response.addHeader("X-Long", std::string(3000, 'x'));
    response.setBody("hello", 5);
    EXPECT_EQ(messageOf<Io::IllegalStateException>([this] { response.send(); }),
              "The header X-Long exceeded the 2048 byte limit.");
    EXPECT_EQ(out.str(), "");
}

TEST_F(ServerResponseTest, DestroyingItSendsNothing) {
    {
        CvtpServerResponse unsent(&server, &out, &scratch);
        unsent.setBody("hello", 5);
    }
    {
        CvtpServerResponse unsent(&server, &out, &scratch);
        unsent.getBodyStream();
    }
    EXPECT_EQ(out.str(), "");
    {
        CvtpServerResponse unfinished(&server, &out, &scratch);
        *unfinished.getBodyStream() << "hello";
    }
    // The head went out with the first byte. What is not finished must not look so.
    EXPECT_EQ(out.str(),
              "CVTP/1.0 500 Internal Server Error\r\nServer: CvtpServer\r\nTransfer-Encoding: chunked\r\n\r\n");
}

TEST_F(ServerResponseTest, WritingBehindTheEndIsRefused) {
    response.setStatusCode(200);
    std::ostream& body = *response.getBodyStream();
    body << "hello";
    response.send();
    const std::string sent = out.str();
    EXPECT_EQ(messageOf<Io::CvPipeException>([&body] { body << "more"; }),
              "Atempt to write to the CvPipe  after the message has been sent.");
    EXPECT_EQ(out.str(), sent);
}

// A body by length has no stream. One that is asked for too late is there all the same, and takes nothing.
TEST_F(ServerResponseTest, AStreamThatIsAskedForAfterABodyWasSentTakesNothing) {
    response.setStatusCode(200);
    response.setBody("hello", 5);
    response.send();
    const std::string sent = out.str();
    EXPECT_EQ(sent, "CVTP/1.0 200 OK\r\nContent-Length: 5\r\nServer: CvtpServer\r\n\r\nhello");
    std::ostream& body = *response.getBodyStream();
    EXPECT_EQ(response.getBodyStream(), &body);
    const LogCapture log;
    EXPECT_EQ(messageOf<Io::CvPipeException>([&body] { body << "more"; }),
              "Atempt to write to the CvPipe  after the message has been sent.");
    EXPECT_EQ(log.texts(), Lines({"ERROR: Atempt to write to the CvPipe  after the message has been sent."}));
    body.clear();
    body.flush();
    EXPECT_EQ(out.str(), sent);
}

TEST_F(ServerResponseTest, ABodyIsSentOnlyOnce) {
    response.setBody("hello", 5);
    response.send();
    const std::string sent = out.str();
    EXPECT_EQ(messageOf<Io::IllegalStateException>([this] { response.send(); }), BOTH);
    EXPECT_EQ(messageOf<Io::IllegalStateException>([this] { response.sendError(500, "No"); }), BOTH);
    response.getBodyStream();
    EXPECT_EQ(messageOf<Io::IllegalStateException>([this] { response.send(); }), BOTH);
    EXPECT_EQ(out.str(), sent);
}

TEST_F(ServerResponseTest, ABodyThatCouldNotBeSentIsNotSentAgain) {
    response.addHeader("X-Long", std::string(3000, 'x'));
    response.setBody("hello", 5);
    EXPECT_EQ(messageOf<Io::IllegalStateException>([this] { response.send(); }),
              "The header X-Long exceeded the 2048 byte limit.");
    response.removeHeader("X-Long");
    EXPECT_EQ(messageOf<Io::IllegalStateException>([this] { response.send(); }), BOTH);
    EXPECT_EQ(out.str(), "");
    EXPECT_FALSE(response.isCommitted());
}

TEST_F(ServerResponseTest, TracesWithItsTag) {
    const LogCapture log(4, 2);
    CvtpServerResponse traced(&server, &out, &scratch);
    traced.setStatusCode(200);
    traced.setBody("hi", 2);
    traced.send();
    const std::string head = "Reply:   CVTP/1.0 200 OK\r\nContent-Length: 2\r\nServer: CvtpServer\r\n\r\n";
    EXPECT_EQ(log.maskedTrace(), LogCapture::prefix("OUTPUT") + head + "hi\n");
    EXPECT_EQ(log.texts().front(), "DEBUG: " + head);
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
