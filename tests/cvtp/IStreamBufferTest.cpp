#include "cvtp/internal/IStreamBuffer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <istream>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

#include "cvtp/internal/CvtpIStream.h"
#include "cvtp/internal/TransferSummary.h"
#include "io/Exceptions.h"
#include "tests/cvtp/MessageSupport.h"
#include "tests/support_code/FeedBuffer.h"
#include "tests/support_code/LogCapture.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

using Testing::FeedBuffer;
using Testing::LogCapture;

class IStreamBufferTest : public testing::Test {
 protected:
    IStreamBufferTest() { in.exceptions(std::ios_base::badbit); }

    std::string read(std::istream& body, std::size_t length) {
        std::string bytes(length, ' ');
        body.read(&bytes[0], static_cast<std::streamsize>(length));
        bytes.resize(static_cast<std::size_t>(body.gcount()));
        return bytes;
    }

    FeedBuffer source;
    std::istream in{&source};
};

TEST_F(IStreamBufferTest, GivesWhatIsThereWithoutWaitingForMore) {
    source.then("hel").thenTimeOut().then("lo");
    IStreamBuffer<char> decoder(in, INT64_C(5), 100);
    CvtpIStream body(decoder);
    std::string got;
    for (int i = 0; i < 3; ++i) {
        got += static_cast<char>(body.get());
    }
    EXPECT_EQ(got, "hel");
    EXPECT_EQ(source.refills(), 1);
    EXPECT_THROW(body.get(), Io::TimeoutException);
}

TEST_F(IStreamBufferTest, GivesAChunkWithoutWaitingForTheLineEndBehindIt) {
    source.then("3\r\nhel").thenTimeOut().then("\r\n0\r\n\r\n");
    IStreamBuffer<char> decoder(in, 100);
    CvtpIStream body(decoder);
    EXPECT_EQ(read(body, 3), "hel");
    EXPECT_FALSE(decoder.isComplete());
    EXPECT_THROW(body.get(), Io::TimeoutException);
    body.clear();
    EXPECT_EQ(body.get(), std::istream::traits_type::eof());
    EXPECT_TRUE(decoder.isComplete());
}

TEST_F(IStreamBufferTest, ATimeoutLosesNoByteOfABlockReadStraight) {
    source.then("hel").thenTimeOut().then("lo wo").thenTimeOut().then("rld");
    IStreamBuffer<char> decoder(in, INT64_C(11), 1);
    CvtpIStream body(decoder);
    EXPECT_THROW(read(body, 11), Io::TimeoutException);
    EXPECT_TRUE(in.good());
    body.clear();
    EXPECT_EQ(read(body, 2), "he");
    EXPECT_THROW(read(body, 9), Io::TimeoutException);
    body.clear();
    EXPECT_EQ(read(body, 100), "llo world");
    EXPECT_TRUE(decoder.isComplete());
}

TEST_F(IStreamBufferTest, LeavesWhatFollowsTheBodyInThePipe) {
    source.then("helloPOST");
    IStreamBuffer<char> decoder(in, INT64_C(5), 100);
    CvtpIStream body(decoder);
    EXPECT_EQ(read(body, 100), "hello");
    std::string rest;
    in >> rest;
    EXPECT_EQ(rest, "POST");
}

TEST_F(IStreamBufferTest, ReadsIntoTheCallersMemoryWhenTheBlockIsLargeEnough) {
    const std::string bytes(100, 'x');
    source.then(bytes);
    IStreamBuffer<char> decoder(in, INT64_C(100), 10);
    char target[60];
    EXPECT_EQ(decoder.sgetn(target, 60), 60);
    EXPECT_EQ(decoder.in_avail(), 0) << "nothing went through the get area";
    EXPECT_EQ(decoder.sgetn(target, 5), 5);
    EXPECT_EQ(decoder.in_avail(), 5);
    EXPECT_EQ(decoder.sgetn(target, 12), 12);
    EXPECT_EQ(decoder.in_avail(), 3) << "what was left to be read was not large enough";
}

TEST_F(IStreamBufferTest, ASmallReadOfAChunkFillsTheBuffer) {
    source.then("5\r\nhello\r\n0\r\n\r\n");
    IStreamBuffer<char> decoder(in, 100);
    char target = 0;
    EXPECT_EQ(decoder.sgetn(&target, 1), 1);
    EXPECT_EQ(decoder.in_avail(), 4);
}

TEST_F(IStreamBufferTest, ABodyCutOffIsNotReadAgain) {
    for (const char* bytes : {"", "5\r\nhell"}) {
        FeedBuffer cut;
        cut.then(bytes);
        std::istream stream(&cut);
        IStreamBuffer<char> decoder(stream, 100);
        CvtpIStream body(decoder);
        read(body, 100);
        const int refills = cut.refills();
        EXPECT_EQ(refills, *bytes == '\0' ? 1 : 2);
        body.clear();
        EXPECT_EQ(read(body, 100), "");
        EXPECT_EQ(cut.refills(), refills);
    }
}

TEST_F(IStreamBufferTest, AnEmptyBodyIsCompleteFromTheStart) {
    for (const std::int64_t length : {INT64_C(0), INT64_C(-1), INT64_MIN}) {
        IStreamBuffer<char> decoder(in, length, 100);
        EXPECT_TRUE(decoder.isComplete());
        EXPECT_EQ(decoder.sgetc(), std::istream::traits_type::eof());
    }
    EXPECT_EQ(source.refills(), 0) << "nothing to be read, nothing to wait for";
}

TEST_F(IStreamBufferTest, ACountedBodyIsCompleteWithItsLastByte) {
    source.then("hello");
    IStreamBuffer<char> decoder(in, INT64_C(5), 100);
    EXPECT_FALSE(decoder.isComplete());
    char target[5];
    decoder.sgetn(target, 5);
    EXPECT_TRUE(decoder.isComplete());
}

TEST_F(IStreamBufferTest, AChunkedBodyIsCompleteBehindItsLastChunk) {
    source.then("5\r\nhello\r\n0\r\n\r\n");
    IStreamBuffer<char> decoder(in, 100);
    char target[6];
    EXPECT_EQ(decoder.sgetn(target, 5), 5);
    EXPECT_FALSE(decoder.isComplete());
    EXPECT_EQ(decoder.sgetn(target, 1), 0);
    EXPECT_TRUE(decoder.isComplete());
}

TEST_F(IStreamBufferTest, AfterAnErrorItStaysEndedAndLogsNoMore) {
    source.then("5\r\nhello\r\nthis size line is too long\r\n5\r\nhello\r\n0\r\n\r\n");
    const LogCapture capture;
    IStreamBuffer<char> decoder(in, 5);
    char target[10];
    EXPECT_EQ(decoder.sgetn(target, 10), 5);
    EXPECT_EQ(decoder.sgetn(target, 10), 0);
    EXPECT_EQ(decoder.sgetc(), std::istream::traits_type::eof());
    EXPECT_FALSE(decoder.isComplete());
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{"ERROR: InputBuffer::read(): invalid chunksize line"}));
}

TEST_F(IStreamBufferTest, AnEndlessSizeLineEndsAfterTwentyCharacters) {
    source.thenByteByByte(std::string(1000, '0'));
    IStreamBuffer<char> decoder(in, 100);
    EXPECT_EQ(decoder.sgetc(), std::istream::traits_type::eof());
    EXPECT_EQ(source.refills(), 20);
    EXPECT_EQ(in.get(), '0');
    EXPECT_EQ(source.refills(), 20) << "the twentieth is looked at, but not taken";
}

TEST_F(IStreamBufferTest, WritesItsSummaryOnce) {
    source.then("hel").then("lo");
    const LogCapture capture;
    IStreamBuffer<char> decoder(in, INT64_C(5), 100);
    CvtpIStream body(decoder);
    EXPECT_EQ(read(body, 10), "hello");
    EXPECT_EQ(decoder.sgetc(), std::istream::traits_type::eof());
    const std::vector<std::string> texts = capture.texts();
    ASSERT_EQ(texts.size(), 1U);
    // How fast it was depends on the machine.
    EXPECT_EQ(texts[0].substr(0, texts[0].find('(')), "DEBUG: Read 5 bytes from the CvPipe ");
}

TEST_F(IStreamBufferTest, ItsRateCountsFromTheFirstReadToTheEnd) {
    source.then("hello").then("world");
    const LogCapture capture;
    IStreamBuffer<char> decoder(in, INT64_C(10), 100);
    CvtpIStream body(decoder);
    Testing::letPass(20);
    const std::int64_t beforeFirst = currentMilliseconds();
    EXPECT_EQ(body.get(), 'h');
    const std::int64_t afterFirst = currentMilliseconds();
    Testing::letPass(20);
    const std::int64_t beforeEnd = currentMilliseconds();
    EXPECT_EQ(read(body, 100), "elloworld");
    const std::int64_t afterEnd = currentMilliseconds();
    const double rate = Testing::rateIn(capture.texts().at(0));
    EXPECT_GE(rate, Testing::rateIn(readSummary(10, afterEnd - beforeFirst)));
    EXPECT_LE(rate, Testing::rateIn(readSummary(10, beforeEnd - afterFirst)));
}

TEST_F(IStreamBufferTest, ReadsFromABufferThatTellsNotHowMuchItHas) {
    /// Has no get area, and gives byte by byte.
    class BareBuffer : public std::streambuf {
     public:
        explicit BareBuffer(const std::string& bytes) : bytes(bytes) {}

     protected:
        int_type underflow() override {
            return position < bytes.size() ? traits_type::to_int_type(bytes[position]) : traits_type::eof();
        }
        int_type uflow() override {
            const int_type next = underflow();
            ++position;
            return next;
        }

     private:
        std::string bytes;
        std::size_t position = 0;
    };
    BareBuffer bare("5\r\nhello\r\n0\r\n\r\nrest");
    std::istream stream(&bare);
    IStreamBuffer<char> decoder(stream, 100);
    CvtpIStream body(decoder);
    EXPECT_EQ(read(body, 100), "hello");
    EXPECT_TRUE(decoder.isComplete());
    EXPECT_EQ(stream.get(), 'r');
}

TEST_F(IStreamBufferTest, AReadOfNothingOrLessGivesNothing) {
    source.then("hello");
    IStreamBuffer<char> decoder(in, INT64_C(5), 100);
    char target = 'x';
    EXPECT_EQ(decoder.sgetn(&target, 0), 0);
    EXPECT_EQ(decoder.sgetn(&target, -1), 0);
    EXPECT_EQ(target, 'x');
    EXPECT_EQ(decoder.sbumpc(), 'h');
}

TEST_F(IStreamBufferTest, ABodyCutOffHasNoSummary) {
    source.then("hell");
    const LogCapture capture(4, 3);
    IStreamBuffer<char> decoder(in, INT64_C(5), 100);
    CvtpIStream body(decoder);
    EXPECT_EQ(read(body, 10), "hell");
    EXPECT_EQ(capture.log(), "");
    EXPECT_EQ(capture.trace(), "hell");
}

TEST_F(IStreamBufferTest, TracesBodyBytesAndALineEndButNoChunkFrames) {
    source.then("3\r\nhel\r\n2\r\nlo\r\n0\r\n\r\n");
    const LogCapture capture(0, 1);
    IStreamBuffer<char> decoder(in, 100);
    CvtpIStream body(decoder);
    EXPECT_EQ(read(body, 10), "hello");
    EXPECT_EQ(read(body, 10), "");
    EXPECT_EQ(capture.trace(), "hello\n");
}

TEST_F(IStreamBufferTest, EverySizeOfBufferAndReadGivesTheSameBody) {
    std::string text;
    std::string chunks;
    for (int i = 1; i < 40; ++i) {
        const std::string chunk(static_cast<std::size_t>(i), static_cast<char>('0' + i));
        std::ostringstream size;
        size << std::hex << i;
        text += chunk;
        chunks += size.str() + "\r\n" + chunk + "\r\n";
    }
    chunks += "0\r\n\r\n";
    for (const int bufferSize : {1, 2, 7, 64, 10000}) {
        for (const std::size_t readSize : {1U, 3U, 50U, 10000U}) {
            for (const std::size_t piece : {1U, 5U, 100U, 10000U}) {
                FeedBuffer pieces;
                for (std::size_t at = 0; at < chunks.size(); at += piece) {
                    pieces.then(chunks.substr(at, piece));
                }
                std::istream fed(&pieces);
                IStreamBuffer<char> decoder(fed, bufferSize);
                CvtpIStream body(decoder);
                std::string got;
                while (body.good()) {
                    got += read(body, readSize);
                }
                ASSERT_EQ(got, text) << bufferSize << " " << readSize << " " << piece;
                ASSERT_TRUE(decoder.isComplete());
            }
        }
    }
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
