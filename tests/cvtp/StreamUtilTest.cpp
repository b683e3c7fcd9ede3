#include "cvtp/internal/StreamUtil.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "io/Exceptions.h"
#include "tests/cvtp/MessageSupport.h"
#include "tests/cvtp/PipeSource.h"
#include "tests/support_code/FeedBuffer.h"
#include "tests/support_code/LogCapture.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

using Testing::Bytes;
using Testing::FeedBuffer;
using Testing::LogCapture;

const char* const CUT_LINE = "Reached the stream end-of-file before the expected new line.";
const char* const CUT_BLOCK = "Reached the stream end-of-file before the expected length.";

/// Gives the same byte without end, and counts what was taken.
class EndlessBuffer : public std::streambuf {
 public:
    explicit EndlessBuffer(char byte, std::size_t size = SIZE_MAX) : piece(4096, byte), left(size) {}

    std::size_t taken() const { return delivered - static_cast<std::size_t>(egptr() - gptr()); }

 protected:
    int_type underflow() override {
        const std::size_t size = std::min(piece.size(), left);
        left -= size;
        delivered += size;
        setg(&piece[0], &piece[0], &piece[0] + size);
        return size == 0 ? traits_type::eof() : traits_type::to_int_type(piece[0]);
    }

 private:
    std::string piece;
    std::size_t left;
    std::size_t delivered = 0;
};

std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream in(text);
    std::vector<std::string> lines;
    std::string line;
    while (in.peek() != std::istringstream::traits_type::eof()) {
        StreamUtil::readLine(in, line);
        lines.push_back(line);
    }
    return lines;
}

/// The message of the InterruptedException that reading one line ends with.
std::string failureOfLine(std::istream& in) {
    std::string line;
    try {
        StreamUtil::readLine(in, line);
    } catch (Io::InterruptedException& exception) {
        return exception.getMessage();
    }
    return "read: " + line;
}

std::string failureOfLine(const std::string& text) {
    std::istringstream in(text);
    return failureOfLine(in);
}

TEST(StreamUtil, ReadsLinesEndedByLineFeedWithOrWithoutCarriageReturn) {
    EXPECT_EQ(linesOf("abc\r\nabc\n\r\n\nx\n"), (std::vector<std::string>{"abc", "abc", "", "", "x"}));
}

TEST(StreamUtil, RemovesACarriageReturnOnlyDirectlyBeforeTheLineFeed) {
    EXPECT_EQ(linesOf("a\rb\n\ra\n\r\r\n"), (std::vector<std::string>{"a\rb", "\ra", "\r"}));
}

TEST(StreamUtil, KeepsANulInALine) {
    EXPECT_EQ(linesOf(std::string("a\0b\r\n", 5)), (std::vector<std::string>{std::string("a\0b", 3)}));
}

TEST(StreamUtil, NeverReturnsALineWithoutItsLineFeed) {
    EXPECT_EQ(failureOfLine("abc"), CUT_LINE);
    EXPECT_EQ(failureOfLine("abc\r"), CUT_LINE);
    EXPECT_EQ(failureOfLine(""), CUT_LINE);
}

TEST(StreamUtil, LeavesALineThatItCouldNotReadEmpty) {
    std::istringstream in("abc");
    std::string line = "the line before";
    EXPECT_THROW(StreamUtil::readLine(in, line), Io::InterruptedException);
    EXPECT_EQ(line, "");
}

TEST(StreamUtil, ReadsALineOf2046CharactersAndCarriageReturn) {
    const std::string text(2046, 'x');
    EXPECT_EQ(linesOf(text + "\r\n"), (std::vector<std::string>{text}));
}

TEST(StreamUtil, ReadsALineOf2047CharactersWhoseLineFeedIsThere) {
    const std::string text(2047, 'x');
    EXPECT_EQ(linesOf(text + "\n"), (std::vector<std::string>{text}));
}

TEST(StreamUtil, ALineOf2048CharactersEndsWithAnException) {
    EXPECT_EQ(failureOfLine(std::string(2048, 'x') + "\n"), CUT_LINE);
    EXPECT_EQ(failureOfLine(std::string(2047, 'x') + "\r\n"), CUT_LINE);
}

TEST(StreamUtil, AnEndlessLineEndsAtItsLimit) {
    EndlessBuffer source('x');
    std::istream in(&source);
    EXPECT_EQ(failureOfLine(in), CUT_LINE);
    EXPECT_LE(source.taken(), 2048U);
    EXPECT_EQ(failureOfLine(in), CUT_LINE) << "and again, at once";
    EXPECT_LE(source.taken(), 2048U);
}

TEST(StreamUtil, ALineOfAFailedStreamEndsWithTheSameException) {
    for (const bool throwing : {false, true}) {
        for (const std::ios_base::iostate state :
             {std::ios_base::badbit, std::ios_base::failbit, std::ios_base::eofbit}) {
            std::istringstream in("abc\n");
            in.setstate(state);
            try {
                in.exceptions(throwing ? std::ios_base::badbit : std::ios_base::goodbit);
            } catch (const std::ios_base::failure&) {
                // Setting the mask of a bad stream says so.
            }
            EXPECT_EQ(failureOfLine(in), CUT_LINE);
        }
    }
}

TEST(StreamUtil, ATimeoutInsideALinePassesThrough) {
    FeedBuffer source;
    source.then("ab").thenTimeOut().then("c\n");
    std::istream in(&source);
    in.exceptions(std::ios_base::badbit);
    std::string line;
    EXPECT_THROW(StreamUtil::readLine(in, line), Io::TimeoutException);
}

/// The lines that a pipe gives through a buffer of this size, and "cut" for the failure at its end.
std::vector<std::string> linesOfPipe(const std::string& text, std::size_t size) {
    Testing::PipeSource source(text, size);
    std::vector<std::string> lines;
    std::string line = "the line before";
    try {
        for (;;) {
            StreamUtil::readLine(source.stream(), line);
            lines.push_back(line);
        }
    } catch (Io::InterruptedException& exception) {
        EXPECT_EQ(exception.getMessage(), CUT_LINE);
        EXPECT_EQ(line, "");
    }
    return lines;
}

TEST(StreamUtil, ReadsTheSameLinesFromAPipeWhereverItsBufferSplitsThem) {
    const Testing::TemporaryPipeDirectory folder;
    const std::string text = std::string("abc\r\na\rb\n\r\n\n\ra\n\r\r\na\0b\r\nthe last\r", 32);
    const std::vector<std::string> expected{"abc", "a\rb", "", "", "\ra", "\r", std::string("a\0b", 3)};
    for (std::size_t size = 1; size <= text.size() + 1; ++size) {
        EXPECT_EQ(linesOfPipe(text, size), expected) << size;
    }
}

TEST(StreamUtil, TheLimitOfALineIsTheSameForAPipe) {
    const Testing::TemporaryPipeDirectory folder;
    for (const std::size_t size : {1U, 100U, 1024U, 2047U, 2048U, 2049U, 4096U}) {
        for (const std::size_t length : {1022U, 1023U, 1024U, 1025U, 2045U, 2046U}) {
            const std::string line(length, 'x');
            EXPECT_EQ(linesOfPipe(line + "\r\nnext\n", size), (std::vector<std::string>{line, "next"}))
                << size << ", " << length;
        }
        const std::string line(2047, 'x');
        EXPECT_EQ(linesOfPipe(line + "\nnext\n", size), (std::vector<std::string>{line, "next"})) << size;
        EXPECT_EQ(linesOfPipe(line + "\r\nnext\n", size), std::vector<std::string>()) << size;
        EXPECT_EQ(linesOfPipe(line + "x\nnext\n", size), std::vector<std::string>()) << size;
        EXPECT_EQ(linesOfPipe("first\n" + line + "x\nnext\n", size), (std::vector<std::string>{"first"})) << size;
    }
}

TEST(StreamUtil, LeavesALineThatAPipeDidNotGiveEmpty) {
    const Testing::TemporaryPipeDirectory folder;
    for (const char* const text : {"abc\n", "abc\nde"}) {
        Testing::PipeSource source(text, 4);
        std::string line;
        StreamUtil::readLine(source.stream(), line);
        EXPECT_EQ(line, "abc");
        EXPECT_THROW(StreamUtil::readLine(source.stream(), line), Io::InterruptedException);
        EXPECT_EQ(line, "");
        EXPECT_TRUE(source.stream().eof());
        EXPECT_FALSE(source.stream().bad());
    }
}

TEST(StreamUtil, TakesNoLineFromAPipeWhoseStreamHasFailed) {
    const Testing::TemporaryPipeDirectory folder;
    Testing::PipeSource source("first\nsecond\n", 4096);
    std::string line;
    StreamUtil::readLine(source.stream(), line);
    source.stream().setstate(std::ios_base::failbit);
    EXPECT_EQ(failureOfLine(source.stream()), CUT_LINE);
    source.stream().clear();
    EXPECT_EQ(failureOfLine(source.stream()), "read: second");
}

TEST(StreamUtil, ReadsABlockOfExactlyItsLength) {
    std::istringstream in("hello world");
    char* data = nullptr;
    StreamUtil::readLength(in, data, 5);
    const Bytes block(data);
    EXPECT_EQ(std::string(data, 6), std::string("hello\0", 6));
    EXPECT_EQ(in.get(), ' ') << "what follows stays";
}

TEST(StreamUtil, ReadsABlockThatGrows) {
    for (const std::size_t length : {8191U, 8192U, 8193U, 16384U, 16385U, 1000000U}) {
        std::string text(length, ' ');
        for (std::size_t i = 0; i < length; ++i) {
            text[i] = static_cast<char>(i * 7 + i / 251);
        }
        std::istringstream in(text + "rest");
        char* data = nullptr;
        StreamUtil::readLength(in, data, static_cast<std::int64_t>(length));
        const Bytes block(data);
        EXPECT_TRUE(std::string(data, length) == text) << length;
        EXPECT_EQ(data[length], '\0');
    }
}

TEST(StreamUtil, ALengthOfZeroOrLessReadsNothing) {
    for (const std::int64_t length : {INT64_C(0), INT64_C(-1), INT64_MIN}) {
        std::istringstream in("hello");
        char* data = nullptr;
        StreamUtil::readLength(in, data, length);
        const Bytes block(data);
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(data[0], '\0');
        EXPECT_EQ(in.get(), 'h');
    }
}

/// Reads a block that is cut off, and checks how that ends.
void expectCutBlock(std::istream& in, std::int64_t length) {
    const LogCapture capture;
    char placeholder = 0;
    char* data = &placeholder;
    try {
        StreamUtil::readLength(in, data, length);
        ADD_FAILURE() << "nothing thrown";
    } catch (const Io::InterruptedException&) {
        ADD_FAILURE() << "the wrong class";
    } catch (Io::CvPipeException& exception) {
        EXPECT_EQ(exception.getMessage(), CUT_BLOCK);
        EXPECT_EQ(exception.getCode(), 0);
    }
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(capture.texts(), (std::vector<std::string>{std::string("WARN: ") + CUT_BLOCK}));
}

TEST(StreamUtil, ABlockThatIsCutOffIsLoggedAndThrown) {
    std::istringstream in("hell");
    expectCutBlock(in, 5);
    std::istringstream empty;
    expectCutBlock(empty, 1);
}

TEST(StreamUtil, AHugeLengthCostsOnlyWhatWasSent) {
    for (const std::int64_t length : {INT64_MAX, INT64_MAX - 1, INT64_C(1) << 50}) {
        // So many bytes cannot be had: allocating them up front would end with another exception.
        EndlessBuffer source('x', 100000);
        std::istream in(&source);
        expectCutBlock(in, length);
        EXPECT_EQ(source.taken(), 100000U);
    }
}

TEST(StreamUtil, ABlockOfAFailedStreamEndsAtOnce) {
    for (const std::ios_base::iostate state :
         {std::ios_base::badbit, std::ios_base::failbit, std::ios_base::eofbit}) {
        std::istringstream in("hello");
        in.setstate(state);
        expectCutBlock(in, 5);
    }
}

TEST(StreamUtil, ATimeoutInsideABlockPassesThrough) {
    FeedBuffer source;
    source.then("he").thenTimeOut().then("llo");
    std::istream in(&source);
    in.exceptions(std::ios_base::badbit);
    char placeholder = 0;
    char* data = &placeholder;
    EXPECT_THROW(StreamUtil::readLength(in, data, 5), Io::TimeoutException);
    EXPECT_EQ(data, nullptr);
}

TEST(StreamUtil, ReadsToTheEnd) {
    for (const std::size_t length : {0U, 1U, 40959U, 40960U, 40961U, 81920U, 81921U, 1000000U}) {
        std::string text(length, ' ');
        for (std::size_t i = 0; i < length; ++i) {
            text[i] = static_cast<char>(i * 7 + i / 251);
        }
        std::istringstream in(text);
        char* data = nullptr;
        ASSERT_EQ(StreamUtil::readToEnd(in, data), length);
        const Bytes block(data);
        EXPECT_TRUE(std::string(data, length) == text) << length;
        EXPECT_EQ(data[length], '\0');
    }
}

TEST(StreamUtil, AFailedStreamReadToItsEndIsEmpty) {
    for (const std::ios_base::iostate state :
         {std::ios_base::badbit, std::ios_base::failbit, std::ios_base::eofbit}) {
        std::istringstream in("hello");
        in.setstate(state);
        char* data = nullptr;
        EXPECT_EQ(StreamUtil::readToEnd(in, data), 0U);
        const Bytes block(data);
        ASSERT_NE(data, nullptr);
        EXPECT_EQ(data[0], '\0');
    }
}

TEST(StreamUtil, ATimeoutOnTheWayToTheEndPassesThrough) {
    FeedBuffer source;
    source.then("he").thenTimeOut().then("llo");
    std::istream in(&source);
    in.exceptions(std::ios_base::badbit);
    char placeholder = 0;
    char* data = &placeholder;
    EXPECT_THROW(StreamUtil::readToEnd(in, data), Io::TimeoutException);
    EXPECT_EQ(data, nullptr);
}

TEST(StreamUtil, RequireWritableThrowsForAFailedStream) {
    for (const std::ios_base::iostate state : {std::ios_base::badbit, std::ios_base::failbit}) {
        std::ostringstream out;
        StreamUtil::requireWritable(out);
        out.setstate(state);
        try {
            StreamUtil::requireWritable(out);
            ADD_FAILURE() << "nothing thrown";
        } catch (Io::CvPipeException& exception) {
            EXPECT_EQ(exception.getMessage(), "Pipe write failed");
        }
    }
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
