#include "io/PipeBufferBase.h"

#include <gmock/gmock.h>

#include <array>
#include <istream>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>

#include "tests/io/PipeTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using Traits = std::char_traits<char>;

/// Reaches the operations that standard streams call.
class OpenBuffer : public PipeBufferBase<char> {
 public:
    using PipeBufferBase<char>::PipeBufferBase;
    using PipeBufferBase<char>::overflow;
    using PipeBufferBase<char>::underflow;
    using PipeBufferBase<char>::xsgetn;
    using PipeBufferBase<char>::xsputn;
    using PipeBufferBase<char>::setbuf;
    using PipeBufferBase<char>::sync;
};

class PipeBufferBaseTest : public PipeTest {
 protected:
    /// What the other end can read now.
    std::string arrived() {
        try {
            return readSome(connection.accepted, 20, 20000);
        } catch (TimeoutException&) {
            return std::string();
        }
    }

    Connection connection;
    OpenBuffer in{&connection.client, std::ios_base::in};
    OpenBuffer out{&connection.client, std::ios_base::out};
    std::array<char, 4096> memory{};
};

TEST_F(PipeBufferBaseTest, IsFoundBelowAStreamUnlessItIsDerived) {
    PipeBufferBase<char> own(&connection.client, std::ios_base::in);
    std::stringbuf foreign;
    EXPECT_EQ(PipeBufferBase<char>::from(&own), &own);
    EXPECT_EQ(PipeBufferBase<char>::from(connection.client.getInputStream()->rdbuf()),
              connection.client.getInputStream()->rdbuf());
    EXPECT_EQ(PipeBufferBase<char>::from(&foreign), nullptr);
    EXPECT_EQ(PipeBufferBase<char>::from(&in), nullptr);
    EXPECT_EQ(PipeBufferBase<char>::from(nullptr), nullptr);
}

TEST_F(PipeBufferBaseTest, TakesOneOfTwoModes) {
    const std::string MESSAGE = "Mode must be either ios_base::in or ios_base::out";
    EXPECT_EQ(messageOf<CvPipeException>(
                  [&] { OpenBuffer both(&connection.client, std::ios_base::in | std::ios_base::out); }),
              MESSAGE);
    for (const int mode : {0, 3, -1}) {
        EXPECT_EQ(messageOf<CvPipeException>([&] { OpenBuffer other(&connection.client, mode); }), MESSAGE);
    }
    EXPECT_EQ(messageOf<CvPipeException>([&] { OpenBuffer none(&connection.client, std::ios_base::openmode{}); }),
              MESSAGE);
}

TEST_F(PipeBufferBaseTest, TakesItsModeAsANumber) {
    const int input = static_cast<int>(std::ios_base::in);
    const int output = static_cast<int>(std::ios_base::out);
    for (int mode = -70; mode <= 70; ++mode) {
        if (mode != input && mode != output) {
            EXPECT_THROW(OpenBuffer(&connection.client, mode), CvPipeException) << mode;
        }
    }
    OpenBuffer writing(&connection.client, output);
    EXPECT_EQ(writing.sputc('a'), 'a');
    EXPECT_THROW(writing.sgetc(), CvPipeException);
    OpenBuffer reading(&connection.accepted, input);
    EXPECT_EQ(reading.sgetc(), 'a');
    EXPECT_THROW(reading.sputc('a'), CvPipeException);
}

TEST_F(PipeBufferBaseTest, TakesABufferOnce) {
    EXPECT_EQ(out.pubsetbuf(nullptr, 0), &out);
    EXPECT_EQ(out.pubsetbuf(memory.data(), 16), &out);
    EXPECT_EQ(messageOf<CvPipeException>([&] { out.pubsetbuf(memory.data(), 16); }),
              "Buffer already set.  Reset not supported.");
}

TEST_F(PipeBufferBaseTest, ANullBufferChangesNothing) {
    out.pubsetbuf(nullptr, 100);
    EXPECT_EQ(out.sputc('a'), 'a');
    EXPECT_EQ(arrived(), "a");
}

TEST_F(PipeBufferBaseTest, RefusesTheOtherDirection) {
    const std::string READING = "Illegal operation: reading from output stream.";
    const std::string WRITING = "Illegal operation: writing to input stream.";
    char c = 'x';
    EXPECT_EQ(messageOf<CvPipeException>([&] { out.underflow(); }), READING);
    EXPECT_EQ(messageOf<CvPipeException>([&] { out.xsgetn(&c, 1); }), READING);
    EXPECT_EQ(messageOf<CvPipeException>([&] { out.xsgetn(&c, 0); }), READING) << "also of nothing";
    EXPECT_EQ(messageOf<CvPipeException>([&] { in.overflow('x'); }), WRITING);
    EXPECT_EQ(messageOf<CvPipeException>([&] { in.xsputn(&c, 1); }), WRITING);
    EXPECT_EQ(messageOf<CvPipeException>([&] { in.xsputn(&c, 0); }), WRITING);
    EXPECT_EQ(in.sync(), 0);
}

TEST_F(PipeBufferBaseTest, WritesByTheBufferfulAndTheRestOnFlush) {
    out.pubsetbuf(memory.data(), 4096);
    std::ostream stream(&out);
    std::string text;
    for (int i = 0; i < 10000; ++i) {
        text += static_cast<char>('a' + i % 26);
    }
    EXPECT_EQ(arrived(), "");
    stream.write(text.data(), 4096);
    EXPECT_EQ(arrived(), "") << "a full buffer waits for one more byte";
    stream.write(text.data() + 4096, 1);
    EXPECT_EQ(arrived(), text.substr(0, 4096));
    stream.write(text.data() + 4097, 10000 - 4097);
    EXPECT_EQ(arrived(), text.substr(4096, 4096));
    stream.flush();
    EXPECT_EQ(arrived(), text.substr(8192));
    EXPECT_TRUE(stream.good());
}

TEST_F(PipeBufferBaseTest, UnbufferedBlocksAreWrittenWholeAndCountedAsNothing) {
    EXPECT_EQ(out.xsputn("hello", 5), 0);
    EXPECT_EQ(arrived(), "hello");
    EXPECT_EQ(out.xsputn(nullptr, 5), 0);
    EXPECT_EQ(out.xsputn("hello", 0), 0);
    EXPECT_EQ(arrived(), "");
}

TEST_F(PipeBufferBaseTest, OverflowWithEndOfFileFlushesAndReturnsEndOfFile) {
    out.pubsetbuf(memory.data(), 8);
    EXPECT_EQ(out.xsputn("abc", 3), 3);
    EXPECT_EQ(out.overflow(Traits::eof()), Traits::eof());
    EXPECT_EQ(arrived(), "abc");
    EXPECT_EQ(out.overflow('d'), 'd');
    EXPECT_EQ(arrived(), "");
    EXPECT_EQ(out.sync(), 0);
    EXPECT_EQ(arrived(), "d");
    EXPECT_EQ(out.sync(), 0);
}

TEST_F(PipeBufferBaseTest, OverflowWithoutABufferWritesTheCharacter) {
    EXPECT_EQ(out.overflow(0xFF), 0xFF);
    EXPECT_EQ(arrived(), "\xFF");
    EXPECT_EQ(out.overflow(Traits::eof()), Traits::eof());
    EXPECT_EQ(arrived(), "");
}

TEST_F(PipeBufferBaseTest, ABufferWithoutRoomTakesNothing) {
    out.pubsetbuf(memory.data(), 0);
    EXPECT_EQ(out.xsputn("abc", 3), 0);
    EXPECT_EQ(out.overflow('a'), Traits::eof());
}

TEST_F(PipeBufferBaseTest, ReadsWhatOneReadDelivers) {
    in.pubsetbuf(memory.data(), 4);
    writeText(connection.accepted, "abcdef\xFE");
    EXPECT_EQ(in.underflow(), 'a');
    EXPECT_EQ(in.in_avail(), 4);
    EXPECT_EQ(in.underflow(), 'a') << "bytes that are there are not thrown away";
    std::string text(7, ' ');
    EXPECT_EQ(in.xsgetn(text.data(), 7), 7);
    EXPECT_EQ(text, "abcdef\xFE");
    writeText(connection.accepted, "\xFE");
    EXPECT_EQ(in.underflow(), 0xFE);
}

TEST_F(PipeBufferBaseTest, WithoutABufferReadsSingleCharacters) {
    writeText(connection.accepted, "ab");
    EXPECT_EQ(in.sbumpc(), 'a');
    EXPECT_EQ(in.in_avail(), 0);
    EXPECT_EQ(in.sbumpc(), 'b');
    // From the first read on the one character counts as the buffer.
    EXPECT_THROW(in.pubsetbuf(memory.data(), 4), CvPipeException);
}

TEST_F(PipeBufferBaseTest, EndOfDataIsEndOfFile) {
    writeText(connection.accepted, "last");
    connection.accepted.close();
    std::istream* const stream = connection.client.getInputStream();
    std::string text;
    *stream >> text;
    EXPECT_EQ(text, "last");
    EXPECT_TRUE(stream->eof());
    EXPECT_FALSE(stream->bad());
    stream->clear();
    char c = 0;
    stream->read(&c, 1);
    EXPECT_EQ(stream->gcount(), 0) << "and stays so";
    EXPECT_TRUE(stream->eof());
}

TEST_F(PipeBufferBaseTest, ATimeoutComesThroughTheStreamAndTheNextReadGoesOn) {
    connection.client.setReadTimeout(20);
    std::istream* const stream = connection.client.getInputStream();
    EXPECT_EQ(messageOf<TimeoutException>([&] { stream->get(); }), "CvPipe read timeout.");
    stream->clear();
    writeText(connection.accepted, "x");
    EXPECT_EQ(stream->get(), 'x');
}

TEST_F(PipeBufferBaseTest, AFailedWriteComesThroughTheStream) {
    connection.accepted.close();
    std::ostream* const stream = connection.client.getOutputStream();
    stream->rdbuf()->pubsetbuf(memory.data(), 16);
    *stream << "abc";
    EXPECT_EQ(messageOf<BrokenPipeException>([&] { stream->flush(); }), "Pipe was closed at other end.");
}

TEST_F(PipeBufferBaseTest, ACopySharesPipeAndMemory) {
    in.pubsetbuf(memory.data(), 16);
    writeText(connection.accepted, "abc");
    EXPECT_EQ(in.sbumpc(), 'a');
    OpenBuffer copy(in);
    EXPECT_EQ(copy.in_avail(), 2);
    EXPECT_EQ(copy.sbumpc(), 'b');
    EXPECT_THROW(copy.pubsetbuf(memory.data(), 16), CvPipeException);
    OpenBuffer assigned(&connection.client, std::ios_base::out);
    assigned = in;
    EXPECT_EQ(assigned.sbumpc(), 'b');
    EXPECT_THROW(assigned.sputc('x'), CvPipeException);
}

/// A copy of `original`: made as one, or assigned to a buffer of another pipe and direction.
std::unique_ptr<OpenBuffer> copyOf(const OpenBuffer& original, bool assigned, CvPipe& otherPipe, int otherMode) {
    if (!assigned) {
        return std::make_unique<OpenBuffer>(original);
    }
    auto copy = std::make_unique<OpenBuffer>(&otherPipe, otherMode);
    *copy = original;
    return copy;
}

TEST_F(PipeBufferBaseTest, ACopyGoesOnReadingWhereItsOriginalStood) {
    connection.client.setReadTimeout(20000);
    connection.accepted.setReadTimeout(20);
    for (const bool assigned : {false, true}) {
        OpenBuffer original(&connection.client, std::ios_base::in);
        original.pubsetbuf(memory.data(), 4);
        writeText(connection.accepted, "abcdef");
        EXPECT_EQ(original.sbumpc(), 'a');
        const auto copy = copyOf(original, assigned, connection.accepted, std::ios_base::out);
        EXPECT_THROW(copy->pubsetbuf(memory.data(), 4), CvPipeException);
        EXPECT_THROW(copy->overflow('x'), CvPipeException);
        std::string text(5, ' ');
        EXPECT_EQ(copy->xsgetn(text.data(), 5), 5);
        EXPECT_EQ(text, "bcdef");
        EXPECT_EQ(std::string(memory.data(), 4), "efcd") << "read into the memory of the original";
    }
}

TEST_F(PipeBufferBaseTest, ACopyGoesOnWritingWhereItsOriginalStood) {
    for (const bool assigned : {false, true}) {
        OpenBuffer original(&connection.client, std::ios_base::out);
        original.pubsetbuf(memory.data(), 4);
        EXPECT_EQ(original.xsputn("ab", 2), 2);
        const auto copy = copyOf(original, assigned, connection.accepted, std::ios_base::in);
        EXPECT_THROW(copy->underflow(), CvPipeException);
        EXPECT_EQ(copy->xsputn("cdef", 4), 4);
        EXPECT_EQ(arrived(), "abcd");
        EXPECT_EQ(copy->xsputn("ghi", 3), 3);
        EXPECT_EQ(arrived(), "efgh");
        EXPECT_EQ(copy->sync(), 0);
        EXPECT_EQ(arrived(), "i");
    }
}

TEST_F(PipeBufferBaseTest, AnUnbufferedCopyDoesNotGiveACharacterTwice) {
    writeText(connection.accepted, "ab");
    EXPECT_EQ(in.sbumpc(), 'a');
    OpenBuffer copy(in);
    EXPECT_EQ(copy.sbumpc(), 'b');
}

TEST_F(PipeBufferBaseTest, AnUnbufferedCopyOutlivesItsOriginal) {
    writeText(connection.accepted, "ab");
    auto original = std::make_unique<OpenBuffer>(&connection.client, std::ios_base::in);
    EXPECT_EQ(original->sgetc(), 'a');
    OpenBuffer copy(*original);
    OpenBuffer assigned(&connection.client, std::ios_base::in);
    assigned = *original;
    original.reset();
    EXPECT_EQ(copy.sbumpc(), 'a');
    EXPECT_EQ(copy.sgetc(), 'b');
    EXPECT_EQ(assigned.sbumpc(), 'a');
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
