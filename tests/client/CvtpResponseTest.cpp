#include "cvtp/CvtpResponse.h"

#include <cstdlib>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "cvtp/Version.h"
#include "tests/client/ClientTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpClient;
using Cvtp::CvtpMessageIn;
using Cvtp::CvtpResponse;
using Cvtp::PostRequest;
using Io::CvPipe;
using Io::CvPipeException;

/// A response on bytes in memory.
struct Answer {
    explicit Answer(const std::string& bytes) : in(bytes), response(&client, &in) {}

    CvtpClient client;
    std::istringstream in;
    CvtpResponse response;
};

const std::string END_OF_HEAD = "\r\nContent-Length: 0\r\n\r\n";
const char* const NO_REASON = "(throws)";

std::string reasonOf(CvtpResponse& response) {
    try {
        return response.getReasonPhrase();
    } catch (const std::out_of_range&) {
        return NO_REASON;
    }
}

struct StatusLine {
    const char* line;
    int code;
    const char* reason;
    const char* version;
};

void PrintTo(const StatusLine& status, std::ostream* out) {
    *out << '"' << status.line << '"';
}

class StatusLineTest : public ::testing::TestWithParam<StatusLine> {};

}  // namespace

TEST_P(StatusLineTest, IsSplitAtItsFirstTwoBlanks) {
    const StatusLine& expected = GetParam();
    Answer answer(expected.line + END_OF_HEAD);
    EXPECT_EQ(answer.response.getStatusCode(), expected.code);
    EXPECT_EQ(reasonOf(answer.response), expected.reason);
    EXPECT_EQ(answer.response.getCvtpVersion().toString(), expected.version);
    EXPECT_EQ(answer.response.getStartLine(), expected.line);
}

INSTANTIATE_TEST_SUITE_P(
    Lines, StatusLineTest,
    ::testing::Values(
        StatusLine{"CVTP/1.0 200 OK", 200, "OK", "CVTP/1.0"},
        StatusLine{"CVTP/1.0 99999999999999999999 x", 2147483647, "x", "CVTP/1.0"},
        StatusLine{"CVTP/1.0 -99999999999999999999 x", -2147483647 - 1, "x", "CVTP/1.0"},
        StatusLine{"CVTP/1.0 413 Request Entity Too Large", 413, "Request Entity Too Large", "CVTP/1.0"},
        StatusLine{"CVTP/2.17 414 Resource-ID Too Long ", 414, "Resource-ID Too Long", "CVTP/2.17"},
        StatusLine{"CVTP/1.0 200  two   blanks  ", 200, "two   blanks", "CVTP/1.0"},
        StatusLine{"CVTP/1.0 200 ", 200, "", "CVTP/1.0"}, StatusLine{"CVTP/1.0 200", 200, NO_REASON, "CVTP/1.0"},
        StatusLine{"CVTP/1.0 ", 0, NO_REASON, "CVTP/1.0"}, StatusLine{"CVTP/3.0", 0, NO_REASON, "CVTP/3.0"},
        StatusLine{"404", 404, NO_REASON, "CVTP/1.0"}, StatusLine{"CVTP/1.0  200 OK", 0, "200 OK", "CVTP/1.0"},
        StatusLine{"CVTP/1.0 2x0 Odd", 2, "Odd", "CVTP/1.0"}, StatusLine{"CVTP/1.0 -7 Odd", -7, "Odd", "CVTP/1.0"},
        StatusLine{"CVTP/1.0 abc Odd", 0, "Odd", "CVTP/1.0"}, StatusLine{"OTHER/2.0 200 OK", 200, "OK", "CVTP/1.0"},
        StatusLine{" 200 OK", 200, "OK", "CVTP/1.0"}));

TEST(CvtpResponseTest, IsAnIncomingMessageThatOnlyTheLibraryMakesEmpty) {
    EXPECT_TRUE((std::is_base_of<CvtpMessageIn, CvtpResponse>::value));
    EXPECT_FALSE(std::is_default_constructible<CvtpResponse>::value);
    EXPECT_FALSE(std::is_copy_constructible<CvtpResponse>::value);
}

TEST(CvtpResponseTest, ReadsNothingBeforeItIsAsked) {
    Answer answer("CVTP/1.0 200 OK\r\nX: 1\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(answer.in.tellg(), 0);
    // Asking for headers reads nothing either.
    EXPECT_EQ(answer.response.getHeader("X"), "");
    EXPECT_EQ(answer.response.getHeaders("X").size(), 0u);
    EXPECT_EQ(answer.response.getHeaderNames().size(), 0u);
    EXPECT_EQ(answer.in.tellg(), 0);
    EXPECT_EQ(answer.response.getStatusCode(), 200);
    EXPECT_EQ(answer.response.getHeader("X"), "1");
}

TEST(CvtpResponseTest, GivesItsHeaders) {
    Answer answer("CVTP/1.0 200 OK\r\nX-b: 1, 2\r\nContent-Length: 0\r\nx-B: 3\r\na:\r\n\r\n");
    EXPECT_EQ(answer.response.getStartLine(), "CVTP/1.0 200 OK");
    EXPECT_EQ(answer.response.getHeader("x-b"), "1");
    EXPECT_EQ(answer.response.getHeaders("X-B"), (Lines{"1", "2", "3"}));
    EXPECT_EQ(answer.response.getHeaderNames(), (Lines{"a", "Content-Length", "X-b"}));
    EXPECT_EQ(answer.response.getHeader("absent"), "");
}

TEST(CvtpResponseTest, EachAccessorFallsBackWhenTheAnswerDoesNotCome) {
    const LogCapture log;
    EXPECT_EQ(Answer("").response.getStatusCode(), 500);
    EXPECT_EQ(Answer("").response.getReasonPhrase(), "Internal Server Error");
    EXPECT_EQ(Answer("").response.getCvtpVersion().toString(), "CVTP/1.0");
    EXPECT_EQ(Answer("CVTP/2.0 200 O").response.getStatusCode(), 500);
    EXPECT_EQ(Answer("CVTP/2.0 200 O").response.getReasonPhrase(), "Internal Server Error");
    EXPECT_EQ(Answer("CVTP/2.0 200 O").response.getCvtpVersion().toString(), "CVTP/1.0");
    EXPECT_EQ(log.log(), "");
}

TEST(CvtpResponseTest, AnythingElsePassesTheFailureOn) {
    const std::string message = "Reached the stream end-of-file before the expected new line.";
    EXPECT_EQ(messageOf<Io::InterruptedException>([] { Answer("").response.getStartLine(); }), message);
    EXPECT_EQ(messageOf<Io::InterruptedException>([] {
                  Answer answer("");
                  bodyOf(answer.response);
              }),
              message);
    EXPECT_EQ(messageOf<Io::InterruptedException>([] { Answer("").response.getBodyStream(); }), message);
}

TEST(CvtpResponseTest, AfterAFailureThePlaceholderStands) {
    Answer answer("");
    EXPECT_EQ(answer.response.getStatusCode(), 500);
    EXPECT_EQ(answer.response.getStartLine(), "CVTP/1.0 500 Internal Server Error");
    EXPECT_EQ(answer.response.getReasonPhrase(), "Internal Server Error");
    try {
        bodyOf(answer.response);
        ADD_FAILURE() << "did not throw";
    } catch (CvPipeException& e) {
        EXPECT_EQ(e.getCode(), 1013);
    }
}

TEST(CvtpResponseTest, TheReasonOfTheFallbackIsThatOfTheTable) {
    std::string& reason = Cvtp::CvtpMessage::STATUS_REASONS[500];
    const std::string before = reason;
    reason = "Changed";
    EXPECT_EQ(Answer("").response.getReasonPhrase(), "Changed");
    reason = before;
}

TEST(CvtpResponseTest, ABodyByLengthComesWithANulBehindIt) {
    const std::string body("he\0lo", 5);
    Answer answer("CVTP/1.0 200 OK\r\nContent-Length: 5\r\n\r\n" + body + "next");
    EXPECT_FALSE(answer.response.isBodyComplete());
    EXPECT_EQ(bodyOf(answer.response), body);
    EXPECT_TRUE(answer.response.isBodyComplete());
    // What follows is not touched.
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(answer.in), std::istreambuf_iterator<char>()), "next");
}

TEST(CvtpResponseTest, ABodyCanBeAskedForThroughAPointerToAPointer) {
    Answer answer("CVTP/1.0 200 OK\r\nContent-Length: 5\r\n\r\nhello");
    char* data = nullptr;
    std::size_t length = 0;
    answer.response.getBody(&data, length);
    EXPECT_EQ(std::string(data, length + 1), std::string("hello\0", 6));
    std::free(data);
}

TEST(CvtpResponseTest, AChunkedBodyIsPutTogether) {
    Answer answer(
        "CVTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n6\r\n world\r\n0\r\n\r\nnext");
    EXPECT_EQ(bodyOf(answer.response), "hello world");
    EXPECT_TRUE(answer.response.isBodyComplete());
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(answer.in), std::istreambuf_iterator<char>()), "next");
}

TEST(CvtpResponseTest, AnEmptyBodyIsEmptyInBothForms) {
    Answer byLength("CVTP/1.0 200 OK\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(bodyOf(byLength.response), "");
    EXPECT_TRUE(byLength.response.isBodyComplete());
    Answer chunked("CVTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n");
    EXPECT_EQ(bodyOf(chunked.response), "");
    EXPECT_TRUE(chunked.response.isBodyComplete());
}

TEST(CvtpResponseTest, TheBodyIsReadThroughABufferOfAnySize) {
    for (const int size : {-1, 0, 1, 3, 40960}) {
        CvtpClient client;
        client.setOption(CvtpClient::BUFFER_SIZE, size);
        std::istringstream in("CVTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n");
        CvtpResponse response(&client, &in);
        std::ostringstream out;
        out << response.getBodyStream()->rdbuf();
        EXPECT_EQ(out.str(), "hello") << size;
        EXPECT_TRUE(response.isBodyComplete());
    }
}

TEST(CvtpResponseTest, ABodyLeftUnreadStaysInTheStream) {
    CvtpClient client;
    std::istringstream in("CVTP/1.0 200 OK\r\nContent-Length: 5\r\n\r\nhello");
    {
        CvtpResponse response(&client, &in);
        EXPECT_EQ(response.getStatusCode(), 200);
        EXPECT_NE(response.getBodyStream(), nullptr);
    }
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()), "hello");
}

TEST(CvtpResponseTest, ABodyByLengthThatBreaksOffIsAnException) {
    Answer answer("CVTP/1.0 200 OK\r\nContent-Length: 6\r\n\r\nhello");
    const LogCapture log(3);
    EXPECT_EQ(messageOf<CvPipeException>([&] { bodyOf(answer.response); }),
              "Reached the stream end-of-file before the expected length.");
    EXPECT_EQ(log.texts(), (Lines{"WARN: Reached the stream end-of-file before the expected length."}));
    EXPECT_FALSE(answer.response.isBodyComplete());
}

TEST(CvtpResponseTest, AChunkedBodyThatBreaksOffGivesWhatCameAndIsNotComplete) {
    Answer answer("CVTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n6\r\n wo");
    EXPECT_EQ(bodyOf(answer.response), "hello wo");
    EXPECT_FALSE(answer.response.isBodyComplete());
}

TEST(CvtpResponseTest, AnAnswerWithoutFramingIsRefused) {
    for (const std::string header : {"X: 1\r\n", "Transfer-Encoding: Chunked\r\n", ""}) {
        Answer answer("CVTP/1.0 200 OK\r\n" + header + "\r\n");
        try {
            answer.response.getStartLine();
            ADD_FAILURE() << "did not throw for " << header;
        } catch (CvPipeException& e) {
            EXPECT_EQ(e.getCode(), 1011);
        }
        // The status line itself was read.
        EXPECT_EQ(answer.response.getStatusCode(), 200);
    }
}

TEST_F(ClientTest, APipeThatBreaksBeforeTheStatusLineGivesTheFallback) {
    ScriptedServer server("orders", {[](ScriptedConnection& connection) { connection.write("CVTP/1."); },
                                     [](ScriptedConnection&) {}});
    CvtpClient client;
    CvPipe first("orders", true, true);
    CvtpResponse cutOff(&client, first.getInputStream());
    EXPECT_EQ(cutOff.getStatusCode(), 500);
    EXPECT_EQ(cutOff.getReasonPhrase(), "Internal Server Error");
    EXPECT_EQ(cutOff.getCvtpVersion().toString(), "CVTP/1.0");
    CvPipe second("orders", true, true);
    CvtpResponse nothing(&client, second.getInputStream());
    EXPECT_EQ(nothing.getReasonPhrase(), "Internal Server Error");
    EXPECT_EQ(nothing.getStatusCode(), 500);
}

TEST_F(ClientTest, AReadTimeoutOfThePipeGivesTheFallbackToo) {
    Signal done;
    ScriptedServer server("orders", {[&done](ScriptedConnection&) { done.wait(); }});
    CvtpClient client;
    CvPipe pipe("orders", true, true);
    pipe.setReadTimeout(20);
    CvtpResponse response(&client, pipe.getInputStream());
    EXPECT_EQ(response.getStatusCode(), 500);
    done.set();
}

TEST_F(ClientTest, ABodyThatTheServerBreaksOffIsNotComplete) {
    const auto breakOff = [](const std::string& bytes) {
        return [bytes](ScriptedConnection& connection) {
            connection.readRequest();
            connection.write(bytes);
        };
    };
    ScriptedServer server("orders", {breakOff("CVTP/1.0 200 OK\r\nContent-Length: 10\r\n\r\nhello"),
                                     breakOff("CVTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\na\r\nhello")});
    CvtpClient client;
    {
        PostRequest request(&client, "orders", "/r");
        request.setBody("x", 1);
        const std::unique_ptr<CvtpResponse> response(request.execute());
        EXPECT_EQ(messageOf<CvPipeException>([&] { bodyOf(*response); }),
                  "Reached the stream end-of-file before the expected length.");
        EXPECT_FALSE(response->isBodyComplete());
        ASSERT_TRUE(server.waitForEnd(0));
    }
    PostRequest request(&client, "orders", "/r");
    request.setBody("x", 1);
    const std::unique_ptr<CvtpResponse> response(request.execute());
    std::ostringstream out;
    out << response->getBodyStream()->rdbuf();
    EXPECT_EQ(out.str(), "hello");
    EXPECT_FALSE(response->isBodyComplete());
}

TEST_F(ClientTest, ABodyIsReadWhileTheServerIsStillWritingIt) {
    Signal firstRead;
    ScriptedServer server(
        "orders", {[&firstRead](ScriptedConnection& connection) {
            connection.readRequest();
            connection.write("CVTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n");
            firstRead.wait();
            connection.write("0\r\n\r\n");
            connection.readToEnd();
        }});
    CvtpClient client;
    PostRequest request(&client, "orders", "/r");
    request.setBody("x", 1);
    const std::unique_ptr<CvtpResponse> response(request.execute());
    std::istream* const body = response->getBodyStream();
    std::string word(5, ' ');
    body->read(word.data(), 5);
    EXPECT_EQ(word, "hello");
    EXPECT_FALSE(response->isBodyComplete());
    firstRead.set();
    EXPECT_EQ(body->get(), std::char_traits<char>::eof());
    EXPECT_TRUE(response->isBodyComplete());
}

}  // namespace Testing
}  // namespace Corvane
