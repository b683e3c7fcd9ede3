#include "cvtp/internal/CvtpMessageOutImpl.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "cvtp/internal/TraceTags.h"
#include "io/Exceptions.h"
#include "tests/cvtp/MessageSupport.h"
#include "tests/support_code/LogCapture.h"
#include "tests/support_code/PipeEndBuffer.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

using Testing::LogCapture;
using Testing::PipeEndBuffer;

class CvtpMessageOutImplTest : public testing::Test {
 protected:
    CvtpMessageOutImplTest() { out.exceptions(std::ios_base::badbit); }

    /// Adds a header whose line has this many bytes, CR LF included.
    void addHeaderLineOf(std::size_t size) { message.addHeader("x-A", std::string(size - 7, 'v')); }

    Testing::StartLineOwner owner;
    CvtpMessageOutImpl message{&owner, TAG_SEND, nullptr};
    PipeEndBuffer pipe;
    std::ostream out{&pipe};
};

TEST_F(CvtpMessageOutImplTest, TakesItsStartLineFromItsOwner) {
    EXPECT_EQ(message.getStartLine(), "POST /a CVTP/1.0");
}

TEST_F(CvtpMessageOutImplTest, WritesItsHeadInOneWriteAndFlushesIt) {
    message.addHeader("X-A", "1");
    message.setBody("hello", 5);
    EXPECT_FALSE(message.isCommitted());
    message.writeHeaders(out);
    EXPECT_TRUE(message.isCommitted());
    EXPECT_EQ(pipe.calls,
              (std::vector<std::string>{"write POST /a CVTP/1.0\r\nContent-Length: 5\r\nX-A: 1\r\n\r\n", "flush"}));
}

TEST_F(CvtpMessageOutImplTest, WritesItsHeadOnlyOnce) {
    message.writeHeaders(out);
    message.addHeader("X-A", "1");
    message.writeHeaders(out);
    EXPECT_EQ(pipe.bytes(), "POST /a CVTP/1.0\r\n\r\n");
}

TEST_F(CvtpMessageOutImplTest, IsNotCommittedWhenTheWriteOrTheFlushFails) {
    pipe.throwOnWrite = true;
    EXPECT_THROW(message.writeHeaders(out), Io::BrokenPipeException);
    EXPECT_FALSE(message.isCommitted());
    PipeEndBuffer second;
    second.throwOnFlush = true;
    std::ostream secondOut(&second);
    secondOut.exceptions(std::ios_base::badbit);
    EXPECT_THROW(message.writeHeaders(secondOut), Io::BrokenPipeException);
    EXPECT_FALSE(message.isCommitted());
    PipeEndBuffer third;
    std::ostream thirdOut(&third);
    message.writeHeaders(thirdOut);
    EXPECT_TRUE(message.isCommitted()) << "and can be written to another pipe";
}

TEST_F(CvtpMessageOutImplTest, IsNotCommittedToAStreamThatFailsWithoutAnException) {
    out.exceptions(std::ios_base::goodbit);
    pipe.throwOnFlush = true;
    EXPECT_THROW(message.writeHeaders(out), Io::CvPipeException);
    EXPECT_FALSE(message.isCommitted());
    EXPECT_THROW(message.writeHeaders(out), Io::CvPipeException) << "nor to one that had failed before";
    EXPECT_FALSE(message.isCommitted());
    EXPECT_THROW(out.exceptions(std::ios_base::badbit), std::ios_base::failure);
    EXPECT_THROW(message.writeHeaders(out), Io::CvPipeException) << "also when that would throw of its own accord";
}

TEST_F(CvtpMessageOutImplTest, AcceptsAHeaderLineOf2048Bytes) {
    addHeaderLineOf(2048);
    message.writeHeaders(out);
    const std::string expected = "POST /a CVTP/1.0\r\nx-A: " + std::string(2041, 'v') + "\r\n\r\n";
    EXPECT_EQ(pipe.bytes(), expected);
}

TEST_F(CvtpMessageOutImplTest, RefusesAHeaderLineOf2049BytesBeforeAnythingIsWritten) {
    message.addHeader("A", "1");
    addHeaderLineOf(2049);
    const LogCapture capture;
    const std::string text = "The header x-A exceeded the 2048 byte limit.";
    try {
        message.writeHeaders(out);
        ADD_FAILURE() << "nothing thrown";
    } catch (const Io::IllegalStateException& exception) {
        EXPECT_EQ(exception.getMessage(), text);
    }
    EXPECT_TRUE(pipe.calls.empty());
    EXPECT_FALSE(message.isCommitted());
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{"ERROR: " + text}));
}

TEST_F(CvtpMessageOutImplTest, TheLimitIsPerLineAndCountsAllValues) {
    for (int i = 0; i < 10; ++i) {
        message.addHeader("X-" + std::to_string(i), std::string(2000, 'v'));
    }
    message.writeHeaders(out);
    EXPECT_GT(pipe.bytes().size(), 20000U);
    CvtpMessageOutImpl second(&owner, TAG_SEND, nullptr);
    second.addHeader("X", std::string(1020, 'v'));
    second.addHeader("X", std::string(1022, 'v'));
    EXPECT_NO_THROW(second.writeHeaders(out));  // 3 + 1020 + 1 + 1022 + 2
    CvtpMessageOutImpl third(&owner, TAG_SEND, nullptr);
    third.addHeader("X", std::string(1020, 'v'));
    third.addHeader("X", std::string(1023, 'v'));
    EXPECT_THROW(third.writeHeaders(out), Io::IllegalStateException);
}

TEST_F(CvtpMessageOutImplTest, CopiesItsBody) {
    std::string bytes("he\0lo", 5);
    message.setBody(bytes.data(), bytes.size());
    bytes.assign(5, 'x');
    message.writeBody(out);
    EXPECT_EQ(pipe.bytes(), std::string("he\0lo", 5));
    EXPECT_EQ(message.getBodyLength(), 5);
}

TEST_F(CvtpMessageOutImplTest, CopiesABodyOfManyPieces) {
    std::string bytes;
    for (int i = 0; bytes.size() < 200001; ++i) {
        bytes += std::to_string(i) + ",";
    }
    for (const std::size_t length : {65535U, 65536U, 65537U, 131072U, 200001U}) {
        CvtpMessageOutImpl large(&owner, TAG_SEND, nullptr);
        large.setBody(bytes.data(), length);
        pipe.calls.clear();
        large.writeBody(out);
        // Not shown when it differs: it is long.
        EXPECT_TRUE(pipe.bytes() == bytes.substr(0, length)) << length;
    }
}

TEST_F(CvtpMessageOutImplTest, TellsAnEmptyBodyFromNone) {
    EXPECT_EQ(message.getBodyLength(), -1);
    message.writeBody(out);
    EXPECT_TRUE(pipe.calls.empty());
    message.setBody(nullptr, 0);
    EXPECT_EQ(message.getBodyLength(), 0);
    message.writeBody(out);
    EXPECT_EQ(pipe.bytes(), "");
}

TEST_F(CvtpMessageOutImplTest, ASecondBodyReplacesTheFirstButAppendsItsLengthOnPurpose) {
    message.setBody("hello", 5);
    message.setBody("goodbye", 7);
    message.writeHeaders(out);
    message.writeBody(out);
    EXPECT_EQ(pipe.bytes(), "POST /a CVTP/1.0\r\nContent-Length: 5,7\r\n\r\ngoodbye");
    EXPECT_EQ(message.getBodyLength(), 7);
}

TEST_F(CvtpMessageOutImplTest, ABodyForWhichThereCanBeNoMemoryIsRefused) {
    message.setBody("hello", 5);
    // With its NUL it would have a length of 0.
    EXPECT_THROW(message.setBody("hello", SIZE_MAX), std::bad_alloc);
    EXPECT_EQ(message.getBodyLength(), -1);
    message.writeBody(out);
    EXPECT_TRUE(pipe.calls.empty());
}

TEST_F(CvtpMessageOutImplTest, TracesAndLogsItsHead) {
    message.setBody("hello", 5);
    const LogCapture capture(4, 3);
    message.writeHeaders(out);
    const std::string head = "Send:    POST /a CVTP/1.0\r\nContent-Length: 5\r\n\r\n";
    EXPECT_EQ(capture.maskedTrace(), LogCapture::prefix("OUTPUT") + head);
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{"DEBUG: " + head}));
}

TEST_F(CvtpMessageOutImplTest, TracesNothingOfAHeadThatWasNotWritten) {
    const LogCapture capture(4, 3);
    pipe.throwOnFlush = true;
    EXPECT_THROW(message.writeHeaders(out), Io::BrokenPipeException);
    EXPECT_EQ(capture.trace(), "");
    EXPECT_EQ(capture.log(), "");
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
