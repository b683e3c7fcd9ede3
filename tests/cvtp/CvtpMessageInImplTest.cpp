#include "cvtp/internal/CvtpMessageInImpl.h"

#include <gtest/gtest.h>

#include <istream>
#include <sstream>
#include <string>
#include <vector>

#include "cvtp/internal/TraceTags.h"
#include "io/Exceptions.h"
#include "tests/cvtp/MessageSupport.h"
#include "tests/support_code/FeedBuffer.h"
#include "tests/support_code/LogCapture.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

using Corvane::Cvtp::CvtpMessage;
using Corvane::Cvtp::CvtpMessageIn;
using Testing::Bytes;
using Testing::FeedBuffer;
using Testing::LogCapture;

const std::string HEAD = "POST /a CVTP/1.0\r\nContent-Length: 5\r\nX-A: 1\r\n\r\n";
const char* const NO_HEAD =
    "Failed to read the message start line and headers, and do not have body of the message.";

const char* const CUT_BODY = "Reached the stream end-of-file before the expected length.";

class CvtpMessageInImplTest : public testing::Test {
 protected:
    CvtpMessageInImplTest() { in.exceptions(std::ios_base::badbit); }

    FeedBuffer source;
    std::istream in{&source};
    CvtpMessageInImpl message{&in, TAG_ACCEPT, nullptr, 100};
};

/// Code and message of the CvPipeException that `action` ends with.
template <class Action>
std::string failureOf(const Action& action) {
    try {
        action();
    } catch (Io::CvPipeException& exception) {
        return std::to_string(exception.getCode()) + ": " + exception.getMessage();
    }
    return "nothing thrown";
}

TEST_F(CvtpMessageInImplTest, ReadsNothingBeforeItIsAskedAndTheHeadOnlyOnce) {
    source.then(HEAD).then("hello");
    EXPECT_EQ(message.getHeader("X-A"), "");
    EXPECT_TRUE(message.getHeaders("X-A").empty());
    EXPECT_TRUE(message.getHeaderNames().empty());
    EXPECT_FALSE(message.isBodyComplete());
    EXPECT_FALSE(message.hasStartLine());
    EXPECT_EQ(source.refills(), 0) << "the header accessors do not read";
    EXPECT_EQ(message.getStartLine(), "POST /a CVTP/1.0");
    EXPECT_EQ(message.getHeader("x-a"), "1");
    EXPECT_EQ(message.getStartLine(), "POST /a CVTP/1.0");
    EXPECT_EQ(source.refills(), 1);
}

TEST_F(CvtpMessageInImplTest, TheBodyStreamIsTheSameWithEachCall) {
    source.then(HEAD).then("hello");
    std::istream* const stream = message.getBodyStream();
    EXPECT_EQ(message.getBodyStream(), stream);
    std::string body;
    *stream >> body;
    EXPECT_EQ(body, "hello");
    EXPECT_TRUE(message.isBodyComplete());
}

TEST_F(CvtpMessageInImplTest, TheBodyIsReadByTheBufferful) {
    const std::string block(150, 'x');
    source.then(HEAD.substr(0, HEAD.find(": 5") + 2) + "150\r\n\r\n").then(block);
    source.then("POST /a CVTP/1.0\r\nTransfer-Encoding: chunked\r\n\r\n")
        .then("96\r\n")
        .then(block + "\r\n0\r\n\r\n");
    std::istream& counted = *message.getBodyStream();
    EXPECT_EQ(counted.get(), 'x');
    EXPECT_EQ(counted.rdbuf()->in_avail(), 99);
    counted.ignore(149);
    EXPECT_TRUE(message.isBodyComplete());
    CvtpMessageInImpl next(&in, TAG_ACCEPT, nullptr, 100);
    std::istream& chunked = *next.getBodyStream();
    EXPECT_EQ(chunked.get(), 'x');
    EXPECT_EQ(chunked.rdbuf()->in_avail(), 99);
}

TEST_F(CvtpMessageInImplTest, BothFormsOfGetBodyGiveABlockThatEndsInANul) {
    source.then(HEAD + "hello" + HEAD + "world");
    char* data = nullptr;
    std::size_t length = 0;
    message.getBody(data, length);
    const Bytes first(data);
    EXPECT_EQ(length, 5U);
    EXPECT_STREQ(data, "hello");
    CvtpMessageInImpl next(&in, TAG_ACCEPT, nullptr, 100);
    next.getBody(&data, length);
    const Bytes second(data);
    EXPECT_EQ(length, 5U);
    EXPECT_STREQ(data, "world");
}

TEST_F(CvtpMessageInImplTest, OneMessageFollowsAnother) {
    source.then(HEAD + "hello" + "NOTIFY /b CVTP/1.0\nTransfer-Encoding: chunked\n\n2\r\nhi\r\n0\r\n\r\n" + HEAD +
                "world");
    EXPECT_EQ(Testing::bodyOf(message), "hello");
    CvtpMessageInImpl second(&in, TAG_ACCEPT, nullptr, 1);
    EXPECT_EQ(second.getStartLine(), "NOTIFY /b CVTP/1.0");
    EXPECT_EQ(Testing::bodyOf(second), "hi");
    CvtpMessageInImpl third(&in, TAG_ACCEPT, nullptr, 1);
    EXPECT_EQ(Testing::bodyOf(third), "world");
}

TEST_F(CvtpMessageInImplTest, AwaitStartLineLeavesTheHeadersForLater) {
    source.then("POST /a CVTP/1.0\r\n").then("Content-Length: 5\r\n\r\n").then("hello");
    message.awaitStartLine();
    EXPECT_TRUE(message.hasStartLine());
    EXPECT_EQ(source.refills(), 1);
    message.awaitStartLine();
    EXPECT_EQ(source.refills(), 1);
    EXPECT_TRUE(message.getHeaderNames().empty());
    EXPECT_EQ(message.getStartLine(), "POST /a CVTP/1.0");
    EXPECT_EQ(message.getHeader("Content-Length"), "5");
    EXPECT_EQ(source.refills(), 2);
    EXPECT_EQ(Testing::bodyOf(message), "hello");
}

TEST_F(CvtpMessageInImplTest, AServersPlaceholderStandsWhenNoStartLineCouldBeRead) {
    EXPECT_THROW(message.getStartLine(), Io::InterruptedException);
    EXPECT_FALSE(message.hasStartLine());
    EXPECT_EQ(message.getStartLine(), "NONE Empty/Resource CVTP/1.0");
}

TEST_F(CvtpMessageInImplTest, AClientsPlaceholderIsAServerError) {
    CvtpMessageInImpl response(&in, TAG_RECEIVE, nullptr, 100);
    EXPECT_THROW(response.getStartLine(), Io::InterruptedException);
    EXPECT_EQ(response.getStartLine(), "CVTP/1.0 500 Internal Server Error");
}

TEST_F(CvtpMessageInImplTest, APlaceholderAddsNothingToTheReasons) {
    CvtpMessageInImpl response(&in, TAG_RECEIVE, nullptr, 100);
    EXPECT_THROW(response.getStartLine(), Io::InterruptedException);
    const std::string reason = CvtpMessage::STATUS_REASONS.at(500);
    CvtpMessage::STATUS_REASONS.erase(500);
    EXPECT_EQ(response.getStartLine(), "CVTP/1.0 500 ");
    EXPECT_EQ(CvtpMessage::STATUS_REASONS.count(500), 0U);
    CvtpMessage::STATUS_REASONS[500] = reason;
}

TEST_F(CvtpMessageInImplTest, ATimeoutInTheStartLinePassesThroughAndIsNotReadAgain) {
    source.then("POST").thenTimeOut().then(" /a CVTP/1.0\r\nContent-Length: 0\r\n\r\n");
    EXPECT_THROW(message.getStartLine(), Io::TimeoutException);
    const int refills = source.refills();
    EXPECT_EQ(message.getStartLine(), "NONE Empty/Resource CVTP/1.0");
    EXPECT_EQ(failureOf([this] { message.getBodyStream(); }), std::string("1013: ") + NO_HEAD);
    EXPECT_EQ(source.refills(), refills);
}

TEST_F(CvtpMessageInImplTest, ATimeoutInTheHeadersPassesThroughAndIsNotReadAgain) {
    source.then("POST /a CVTP/1.0\r\nX-A: 1\r\nX-B").thenTimeOut().then(": 2\r\nContent-Length: 0\r\n\r\n");
    EXPECT_THROW(message.getStartLine(), Io::TimeoutException);
    EXPECT_TRUE(message.hasStartLine());
    EXPECT_EQ(message.getStartLine(), "POST /a CVTP/1.0");
    EXPECT_EQ(failureOf([this] { Testing::bodyOf(message); }), std::string("1013: ") + NO_HEAD);
}

TEST_F(CvtpMessageInImplTest, ABodyOfAMessageWithoutHeadIsRefusedAndLogged) {
    EXPECT_THROW(message.getStartLine(), Io::InterruptedException);
    const LogCapture capture;
    char placeholder = 0;
    char* data = &placeholder;
    std::size_t length = 7;
    EXPECT_EQ(failureOf([&] { message.getBody(data, length); }), std::string("1013: ") + NO_HEAD);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(failureOf([this] { message.getBodyStream(); }), std::string("1013: ") + NO_HEAD);
    const std::string line = std::string("ERROR: ") + NO_HEAD;
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{line, line}));
}

TEST_F(CvtpMessageInImplTest, AHeadWithoutFramingIsRefusedAndLogged) {
    source.then("POST /a CVTP/1.0\r\nTransfer-Encoding: Chunked\r\n\r\nhello");
    const LogCapture capture(1);
    const std::string text = "The CVTP Message does not have a Content-Length or Transfer-Encoding header";
    EXPECT_EQ(failureOf([this] { message.getStartLine(); }), "1011: " + text);
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{"ERROR: " + text}));
    EXPECT_EQ(message.getStartLine(), "POST /a CVTP/1.0");
    EXPECT_EQ(message.getHeader("Transfer-Encoding"), "Chunked");
    EXPECT_EQ(failureOf([this] { message.getBodyStream(); }), std::string("1013: ") + NO_HEAD);
}

TEST_F(CvtpMessageInImplTest, ATimeoutInTheBodyPassesThroughGetBody) {
    source.then(HEAD + "he").thenTimeOut().then("llo");
    char* data = nullptr;
    std::size_t length = 7;
    EXPECT_THROW(message.getBody(data, length), Io::TimeoutException);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 0U);
    EXPECT_FALSE(message.isBodyComplete());
    EXPECT_TRUE(in.good());
}

TEST_F(CvtpMessageInImplTest, ABodyReadTwiceIsCutOffTheSecondTime) {
    source.then(HEAD + "hello");
    EXPECT_EQ(Testing::bodyOf(message), "hello");
    EXPECT_EQ(failureOf([this] { Testing::bodyOf(message); }), std::string("0: ") + CUT_BODY);
    EXPECT_TRUE(message.getBodyStream()->eof());
    EXPECT_TRUE(message.isBodyComplete());
}

TEST_F(CvtpMessageInImplTest, AfterATimeoutGetBodyGivesNothingAndTheStreamIsBad) {
    source.then(HEAD + "he").thenTimeOut().then("llo");
    EXPECT_THROW(Testing::bodyOf(message), Io::TimeoutException);
    const LogCapture capture;
    EXPECT_EQ(failureOf([this] { Testing::bodyOf(message); }), std::string("0: ") + CUT_BODY);
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{std::string("WARN: ") + CUT_BODY}));
    std::istream& stream = *message.getBodyStream();
    EXPECT_TRUE(stream.bad());
    EXPECT_FALSE(stream.eof());
    // Whoever mends the stream gets all that came.
    stream.clear();
    std::string body;
    stream >> body;
    EXPECT_EQ(body, "hello");
    EXPECT_TRUE(message.isBodyComplete());
}

TEST_F(CvtpMessageInImplTest, AfterABodyThatWasCutOffTheStreamIsAtItsEnd) {
    source.then(HEAD + "hell");
    EXPECT_EQ(failureOf([this] { Testing::bodyOf(message); }), std::string("0: ") + CUT_BODY);
    std::istream& stream = *message.getBodyStream();
    EXPECT_TRUE(stream.eof());
    EXPECT_TRUE(stream.fail());
    EXPECT_FALSE(stream.bad());
    EXPECT_FALSE(message.isBodyComplete());
}

TEST_F(CvtpMessageInImplTest, AfterAWholeBodyTheStreamIsGoodAndEmpty) {
    source.then(HEAD + "hello").then(HEAD);
    EXPECT_EQ(Testing::bodyOf(message), "hello");
    std::istream& stream = *message.getBodyStream();
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(stream.get(), std::char_traits<char>::eof());
}

TEST_F(CvtpMessageInImplTest, GetBodyGoesOnWhereTheStreamStopped) {
    source.then(HEAD + "he").then("llo");
    EXPECT_EQ(message.getBodyStream()->get(), 'h');
    // The length is that of the whole body, deliberate; so what was taken is missing at its end.
    EXPECT_EQ(failureOf([this] { Testing::bodyOf(message); }), std::string("0: ") + CUT_BODY);
    EXPECT_TRUE(message.getBodyStream()->eof());
    EXPECT_TRUE(message.isBodyComplete());
}

TEST_F(CvtpMessageInImplTest, TracesHeadAndBody) {
    source.then("\r\nPOST /a CVTP/1.0\r\nContent-Length: 5\r\nX-A: 1\r\n  2\r\n\r\nhello");
    const LogCapture capture(0, 3);
    EXPECT_EQ(Testing::bodyOf(message), "hello");
    // The start line has no line end, header lines have one each, the empty one too; the body ends with one.
    EXPECT_EQ(capture.maskedTrace(),
              LogCapture::prefix("INPUT ") + "Accept:  POST /a CVTP/1.0Content-Length: 5\nX-A: 1\n  2\n\nhello\n");
}

TEST_F(CvtpMessageInImplTest, LogsItsStartLineAndASummary) {
    source.then(HEAD + "hello");
    const LogCapture capture;
    EXPECT_EQ(Testing::bodyOf(message), "hello");
    const std::vector<std::string> texts = capture.texts();
    ASSERT_EQ(texts.size(), 2U);
    EXPECT_EQ(texts[0], "DEBUG: Accept:  POST /a CVTP/1.0");
    EXPECT_EQ(texts[1].substr(0, texts[1].find('(')), "DEBUG: Read 5 bytes from the CvPipe ");
    EXPECT_EQ(capture.trace(), "");
}

TEST_F(CvtpMessageInImplTest, AHeadOfManyHeadersIsRead) {
    std::string head = "POST /a CVTP/1.0\r\n";
    for (int i = 0; i < 5000; ++i) {
        head += "X-" + std::to_string(i) + ": " + std::to_string(i) + "\r\n";
    }
    source.then(head + "Content-Length: 0\r\n\r\n");
    EXPECT_EQ(message.getStartLine(), "POST /a CVTP/1.0");
    EXPECT_EQ(message.getHeaderNames().size(), 5001U);
    EXPECT_EQ(message.getHeader("x-4999"), "4999");
}

/// A message that has no reader, as a request or response of an application's test may be.
class BareMessage : public CvtpMessageIn {
 public:
    std::string getStartLine() override { return ""; }
    std::string getHeader(const std::string&) const override { return ""; }
    std::vector<std::string> getHeaders(const std::string&) const override { return {}; }
    std::vector<std::string> getHeaderNames() const override { return {}; }
    void getBody(char*& data, std::size_t& length) override {
        data = &byte;
        length = 1;
    }
    using CvtpMessageIn::getBody;
    std::istream* getBodyStream() override { return nullptr; }

    char byte = 'x';
};

TEST(CvtpMessageIn, WithoutAReaderNoBodyIsComplete) {
    EXPECT_FALSE(BareMessage().isBodyComplete());
}

TEST(CvtpMessageIn, TheFormWithAPointerCallsTheVirtualOne) {
    BareMessage message;
    char* data = nullptr;
    std::size_t length = 0;
    message.getBody(&data, length);
    EXPECT_EQ(data, &message.byte);
    EXPECT_EQ(length, 1U);
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
