#include "cvtp/internal/CVTP_OBufferWriter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "cvtp/internal/CvtpHeaderWriter.h"
#include "cvtp/internal/CvtpOStream.h"
#include "cvtp/internal/TransferSummary.h"
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

// Misspelling and double blank are deliberate.
const char* const AFTER_SEND = "Atempt to write to the CvPipe  after the message has been sent.";

class NotingHeaderWriter : public CvtpHeaderWriter {
 public:
    void writeHeaders(std::ostream& out) override {
        ++calls;
        if (refuse) {
            throw Io::IllegalStateException("refused");
        }
        out << "<head>";
    }

    int calls = 0;
    bool refuse = false;
};

class BodyWriter : public testing::Test {
 protected:
    BodyWriter() { out.exceptions(std::ios_base::badbit); }

    PipeEndBuffer pipe;
    std::ostream out{&pipe};
    NotingHeaderWriter head;
};

TEST_F(BodyWriter, LetsTheHeadBeCommittedBeforeTheFirstByteOnly) {
    CVTP_OBufferWriter writer(100, true, out, &head);
    EXPECT_EQ(head.calls, 0);
    writer.write("hel", 3);
    EXPECT_EQ(pipe.bytes(), "<head>");
    writer.write("lo", 2);
    writer.close();
    EXPECT_EQ(head.calls, 1);
    EXPECT_EQ(pipe.bytes(), "<head>5\r\nhello\r\n0\r\n\r\n");
}

TEST_F(BodyWriter, WithoutAHeaderWriterWritesTheBodyAlone) {
    CVTP_OBufferWriter writer(100, false, out, nullptr);
    writer.write("hello", 5);
    writer.close();
    EXPECT_EQ(pipe.bytes(), "hello");
    EXPECT_EQ(pipe.calls.back(), "flush");
}

TEST_F(BodyWriter, CloseOfAnEmptyBodyCommitsTheHead) {
    CVTP_OBufferWriter chunked(100, true, out, &head);
    chunked.close();
    EXPECT_EQ(pipe.bytes(), "<head>0\r\n\r\n");
    CVTP_OBufferWriter counted(100, false, out, &head);
    counted.close();
    EXPECT_EQ(pipe.bytes(), "<head>0\r\n\r\n<head>");
}

TEST_F(BodyWriter, ASecondCloseAndAFlushAfterItDoNothing) {
    CVTP_OBufferWriter writer(100, true, out, &head);
    writer.write("hello", 5);
    writer.close();
    const std::vector<std::string> calls = pipe.calls;
    const LogCapture capture;
    writer.close();
    writer.flush();
    EXPECT_EQ(pipe.calls, calls);
    EXPECT_EQ(capture.log(), "");
}

TEST_F(BodyWriter, DestroyedUnclosedItLeavesTheBodyUnfinished) {
    {
        CVTP_OBufferWriter writer(4, true, out, &head);
        writer.write("hello", 5);
        CvtpOStream stream(4, true, out);
        stream << "hello";
    }
    EXPECT_EQ(pipe.bytes(), "<head>4\r\nhell\r\n4\r\nhell\r\n");
}

TEST_F(BodyWriter, AWriteAfterSendIsRefusedAndLogged) {
    CVTP_OBufferWriter writer(100, true, out, nullptr);
    writer.close();
    const LogCapture capture;
    for (int i = 0; i < 2; ++i) {
        try {
            writer.write("x", 1);
            ADD_FAILURE() << "nothing thrown";
        } catch (Io::CvPipeException& exception) {
            EXPECT_EQ(exception.getMessage(), AFTER_SEND);
        }
    }
    EXPECT_EQ(pipe.bytes(), "0\r\n\r\n");
    EXPECT_EQ(capture.count(std::string("ERROR: ") + AFTER_SEND), 2);
}

TEST_F(BodyWriter, AHeadThatIsRefusedIsAskedForAgain) {
    CVTP_OBufferWriter writer(100, true, out, &head);
    head.refuse = true;
    EXPECT_THROW(writer.write("x", 1), Io::IllegalStateException);
    EXPECT_THROW(writer.close(), Io::IllegalStateException);
    EXPECT_EQ(pipe.bytes(), "") << "no body without its head";
    head.refuse = false;
    writer.write("x", 1);
    writer.close();
    EXPECT_EQ(pipe.bytes(), "<head>1\r\nx\r\n0\r\n\r\n");
}

TEST_F(BodyWriter, FlushSendsWhatIsHeld) {
    CVTP_OBufferWriter writer(100, true, out, nullptr);
    writer.write("hello", 5);
    EXPECT_EQ(pipe.bytes(), "");
    writer.flush();
    EXPECT_EQ(pipe.bytes(), "5\r\nhello\r\n");
    EXPECT_EQ(pipe.calls.back(), "flush");
}

TEST_F(BodyWriter, AfterAFailedWriteTheBodyCannotBeFinished) {
    CVTP_OBufferWriter writer(4, true, out, nullptr);
    pipe.throwOnWrite = true;
    EXPECT_THROW(writer.write("hello", 5), Io::BrokenPipeException);
    pipe.throwOnWrite = false;
    EXPECT_THROW(writer.write("more", 4), Io::CvPipeException);
    EXPECT_THROW(writer.close(), Io::CvPipeException);
    EXPECT_EQ(pipe.bytes(), "") << "a body with a hole must not look whole";
}

TEST_F(BodyWriter, AFailureWithoutAnExceptionOfTheStreamBecomesOne) {
    out.exceptions(std::ios_base::goodbit);
    CVTP_OBufferWriter writer(4, true, out, nullptr);
    pipe.throwOnWrite = true;
    EXPECT_THROW(writer.write("hello", 5), Io::CvPipeException);
    EXPECT_THROW(writer.close(), Io::CvPipeException);
}

TEST_F(BodyWriter, AFlushOrAnEndThatFailsWithoutAnExceptionBecomesOne) {
    out.exceptions(std::ios_base::goodbit);
    CVTP_OBufferWriter flushed(4, true, out, nullptr);
    pipe.throwOnFlush = true;
    EXPECT_THROW(flushed.flush(), Io::CvPipeException);
    pipe.throwOnFlush = false;
    out.clear();
    CVTP_OBufferWriter closed(4, true, out, nullptr);
    pipe.throwOnWrite = true;
    EXPECT_THROW(closed.close(), Io::CvPipeException) << "the last chunk did not go out";
    EXPECT_THROW(closed.close(), Io::CvPipeException);
}

TEST_F(BodyWriter, ABodyThatCouldNotBeFlushedHasNoSummary) {
    const LogCapture capture(4, 3);
    CVTP_OBufferWriter writer(100, true, out, nullptr);
    writer.write("hello", 5);
    pipe.throwOnFlush = true;
    EXPECT_THROW(writer.close(), Io::BrokenPipeException);
    EXPECT_EQ(capture.log(), "");
    EXPECT_EQ(capture.trace(), "");
}

TEST_F(BodyWriter, WritesItsSummaryOnceWhenItIsClosed) {
    const LogCapture capture;
    CVTP_OBufferWriter writer(100, true, out, nullptr);
    writer.write("hello", 5);
    writer.flush();
    EXPECT_EQ(capture.log(), "");
    writer.close();
    writer.close();
    const std::vector<std::string> texts = capture.texts();
    ASSERT_EQ(texts.size(), 1U);
    // How fast it was depends on the machine.
    EXPECT_EQ(texts[0].substr(0, texts[0].find('(')), "DEBUG: Wrote 5 bytes to the CvPipe ");
}

TEST_F(BodyWriter, ItsRateCountsFromTheFirstByteToTheEnd) {
    const LogCapture capture;
    CVTP_OBufferWriter writer(100, true, out, nullptr);
    Testing::letPass(20);
    const std::int64_t beforeFirst = currentMilliseconds();
    writer.write("hello", 5);
    const std::int64_t afterFirst = currentMilliseconds();
    Testing::letPass(20);
    const std::int64_t beforeEnd = currentMilliseconds();
    writer.write("hello", 5);
    writer.close();
    const std::int64_t afterEnd = currentMilliseconds();
    const double rate = Testing::rateIn(capture.texts().at(0));
    EXPECT_GE(rate, Testing::rateIn(writeSummary(10, afterEnd - beforeFirst)));
    EXPECT_LE(rate, Testing::rateIn(writeSummary(10, beforeEnd - afterFirst)));
}

TEST_F(BodyWriter, TracesNothingWhenTracingWasOffAtItsBeginning) {
    CVTP_OBufferWriter writer(2, true, out, nullptr);
    const LogCapture capture(0, 3);
    writer.write("hello", 5);
    writer.close();
    EXPECT_EQ(capture.trace(), "") << "the end of a body would be taken for all of it";
}

TEST_F(BodyWriter, TracesTheBodyWithoutItsChunkFrames) {
    const LogCapture capture(0, 2);
    CVTP_OBufferWriter writer(2, true, out, &head);
    writer.write("hello", 5);
    writer.write(" world", 6);
    EXPECT_EQ(capture.trace(), "");
    writer.close();
    EXPECT_EQ(capture.trace(), "hello world\n");
}

TEST_F(BodyWriter, TracesAnEmptyBodyAsALineEnd) {
    const LogCapture capture(0, 3);
    CVTP_OBufferWriter writer(2, true, out, nullptr);
    writer.close();
    EXPECT_EQ(capture.trace(), "\n");
}

TEST_F(BodyWriter, TracesOnlyOutput) {
    const LogCapture capture(0, 1);
    CVTP_OBufferWriter writer(2, true, out, nullptr);
    writer.write("hello", 5);
    writer.close();
    EXPECT_EQ(capture.trace(), "");
}

TEST_F(BodyWriter, TheStreamWritesChunksAndFlushesOnDemand) {
    CvtpOStream stream(100, true, out, &head);
    EXPECT_TRUE(stream.good());
    stream << "answer: " << 42;
    stream.flush();
    stream << '!';
    stream.send();
    EXPECT_EQ(pipe.bytes(), "<head>a\r\nanswer: 42\r\n1\r\n!\r\n0\r\n\r\n");
    stream.send();
    EXPECT_EQ(head.calls, 1);
}

TEST_F(BodyWriter, WhatThePipeThrowsPassesThroughTheStream) {
    CvtpOStream stream(4, true, out);
    pipe.throwOnWrite = true;
    EXPECT_THROW(stream << "hello", Io::BrokenPipeException);
    EXPECT_THROW(stream.send(), Io::CvPipeException);
}

TEST_F(BodyWriter, AWriteToTheStreamAfterSendThrows) {
    CvtpOStream stream(4, false, out);
    stream << "hello";
    stream.send();
    try {
        stream << "more";
        ADD_FAILURE() << "nothing thrown";
    } catch (Io::CvPipeException& exception) {
        EXPECT_EQ(exception.getMessage(), AFTER_SEND);
    }
    EXPECT_EQ(pipe.bytes(), "hello");
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
