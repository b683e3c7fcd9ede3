#include "support/OBufferWriter.h"

#include <gtest/gtest.h>

#include <locale>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "support/OStreamBuffer.h"

namespace Corvane {
namespace {

/// Notes each block that it is given, from where, and each flush.
class NotingBuffer : public std::streambuf {
 public:
    /// What it throws while `isBroken` is set.
    struct Broken {};

    std::vector<const char*> addresses;
    std::string bytes;
    int flushes = 0;
    bool isBroken = false;

 protected:
    int_type overflow(int_type c) override {
        bytes += traits_type::to_char_type(c);
        return c;
    }
    std::streamsize xsputn(const char* s, std::streamsize n) override {
        if (isBroken) {
            throw Broken();
        }
        addresses.push_back(s);
        bytes.append(s, static_cast<std::size_t>(n));
        return n;
    }
    int sync() override {
        ++flushes;
        return 0;
    }
};

class OBufferWriterTest : public testing::Test {
 protected:
    /// What came out since the last call.
    std::string taken() {
        std::string result;
        result.swap(buffer.bytes);
        return result;
    }

    NotingBuffer buffer;
    std::ostream stream{&buffer};
};

TEST_F(OBufferWriterTest, WithoutChunksPassesBytesOnAtOnce) {
    OBufferWriter writer(stream, 100, false);
    const char data[] = "hello";
    writer.write(data, 5);
    EXPECT_EQ(taken(), "hello");
    EXPECT_EQ(buffer.addresses, (std::vector<const char*>{data}));
    EXPECT_EQ(buffer.flushes, 0);
    writer.close();
    EXPECT_EQ(taken(), "");
    EXPECT_EQ(buffer.flushes, 1);
}

TEST_F(OBufferWriterTest, ChunkedHoldsBytesBackUntilAChunkIsFull) {
    OBufferWriter writer(stream, 4, true);
    writer.write("abc", 3);
    EXPECT_EQ(taken(), "");
    writer.write("de", 2);
    EXPECT_EQ(taken(), "4\r\nabcd\r\n");
    writer.write("fgh", 3);
    EXPECT_EQ(taken(), "4\r\nefgh\r\n");
}

TEST_F(OBufferWriterTest, ABlockThatFillsChunksIsCutIntoThemWithoutACopy) {
    OBufferWriter writer(stream, 4, true);
    const std::string data = "0123456789";
    writer.write(data.data(), data.size());
    EXPECT_EQ(taken(), "4\r\n0123\r\n4\r\n4567\r\n");
    // Each chunk is a size line, the bytes, and a line end.
    ASSERT_EQ(buffer.addresses.size(), 6U);
    EXPECT_EQ(buffer.addresses[1], data.data());
    EXPECT_EQ(buffer.addresses[4], data.data() + 4);
    writer.flush();
    EXPECT_EQ(taken(), "2\r\n89\r\n");
    buffer.addresses.clear();
    writer.write(data.data(), 4);
    ASSERT_EQ(buffer.addresses.size(), 3U);
    EXPECT_EQ(buffer.addresses[1], data.data()) << "nor one that fills a chunk exactly";
}

TEST_F(OBufferWriterTest, TheChunkWhoseWriteThrowsIsDropped) {
    stream.exceptions(std::ios_base::badbit);
    OBufferWriter writer(stream, 100, true);
    writer.write("ab", 2);
    buffer.isBroken = true;
    EXPECT_THROW(writer.flush(), NotingBuffer::Broken);
    buffer.isBroken = false;
    stream.clear();
    writer.write("cd", 2);
    writer.flush();
    EXPECT_EQ(taken(), "2\r\ncd\r\n");
}

TEST_F(OBufferWriterTest, ABlockBehindHeldBytesFillsTheirChunkFirst) {
    OBufferWriter writer(stream, 4, true);
    writer.write("a", 1);
    writer.write("bcdefghijk", 10);
    writer.close();
    EXPECT_EQ(taken(), "4\r\nabcd\r\n4\r\nefgh\r\n3\r\nijk\r\n0\r\n\r\n");
}

TEST_F(OBufferWriterTest, FlushWritesWhatIsHeldAsAChunkAndFlushesTheStream) {
    OBufferWriter writer(stream, 100, true);
    writer.write("ab", 2);
    writer.flush();
    EXPECT_EQ(taken(), "2\r\nab\r\n");
    EXPECT_EQ(buffer.flushes, 1);
}

TEST_F(OBufferWriterTest, FlushOfNothingWritesNoChunkSinceThatWouldEndTheBody) {
    OBufferWriter writer(stream, 100, true);
    writer.flush();
    writer.write("", 0);
    writer.flush();
    EXPECT_EQ(taken(), "");
    EXPECT_EQ(buffer.flushes, 2);
}

TEST_F(OBufferWriterTest, CloseWritesTheLastChunkOnce) {
    OBufferWriter writer(stream, 100, true);
    writer.write("ab", 2);
    writer.close();
    writer.close();
    EXPECT_EQ(taken(), "2\r\nab\r\n0\r\n\r\n");
}

TEST_F(OBufferWriterTest, CloseOfAnEmptyBodyWritesTheLastChunk) {
    OBufferWriter writer(stream, 100, true);
    writer.close();
    EXPECT_EQ(taken(), "0\r\n\r\n");
}

TEST_F(OBufferWriterTest, DestroyedWithoutCloseItLeavesTheBodyUnfinished) {
    {
        OBufferWriter writer(stream, 100, true);
        writer.write("ab", 2);
    }
    EXPECT_EQ(taken(), "");
}

TEST_F(OBufferWriterTest, SizesAreHexadecimal) {
    for (const int size : {1, 15, 16, 255, 4096, 40960}) {
        OBufferWriter writer(stream, size, true);
        const std::string data(static_cast<std::size_t>(size), 'x');
        writer.write(data.data(), data.size());
        std::ostringstream expected;
        expected << std::hex << size << "\r\n" << data << "\r\n";
        EXPECT_EQ(taken(), expected.str());
    }
}

TEST_F(OBufferWriterTest, SizesDoNotFollowTheFormatAndLocaleOfTheStream) {
    struct Grouping : std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\1"; }
    };
    stream.imbue(std::locale(std::locale::classic(), new Grouping));
    stream << std::oct << std::showbase;
    OBufferWriter writer(stream, 0xABC, true);
    const std::string data(0xABC, 'x');
    writer.write(data.data(), data.size());
    EXPECT_EQ(taken().substr(0, 5), "abc\r\n");
}

TEST_F(OBufferWriterTest, ABufferSizeBelowOneCountsAsOne) {
    for (const int size : {0, -1, -40960}) {
        OBufferWriter writer(stream, size, true);
        writer.write("ab", 2);
        EXPECT_EQ(taken(), "1\r\na\r\n1\r\nb\r\n");
    }
}

TEST_F(OBufferWriterTest, BytesAreNotLookedAt) {
    OBufferWriter writer(stream, 100, true);
    writer.write("\0\r\n", 3);
    writer.close();
    EXPECT_EQ(taken(), std::string("3\r\n\0\r\n\r\n0\r\n\r\n", 13));
}

/// Notes what reaches the writer below a stream.
class NotingWriter : public OWriter {
 public:
    void write(const char* data, std::size_t length) override { calls.push_back(std::string(data, length)); }
    void flush() override { calls.push_back("<flush>"); }
    void close() override { calls.push_back("<close>"); }

    std::vector<std::string> calls;
};

TEST(OStreamBuffer, PassesBlocksCharactersAndFlushesOn) {
    NotingWriter writer;
    OStreamBuffer<char> buffer(writer);
    std::ostream stream(&buffer);
    stream.write("abc", 3);
    stream.put('\xFF');
    stream.flush();
    EXPECT_TRUE(stream.good());
    EXPECT_EQ(writer.calls, (std::vector<std::string>{"abc", "\xFF", "<flush>"}));
}

TEST(OStreamBuffer, BlocksWithoutBytesDoNotReachTheWriter) {
    NotingWriter writer;
    OStreamBuffer<char> buffer(writer);
    EXPECT_EQ(buffer.sputn("abc", 0), 0);
    EXPECT_EQ(buffer.sputn("abc", 3), 3);
    EXPECT_EQ(writer.calls, (std::vector<std::string>{"abc"}));
}

TEST(OStreamBuffer, OverflowWithEndOfFileWritesNothingAndSucceeds) {
    struct OpenBuffer : OStreamBuffer<char> {
        using OStreamBuffer<char>::OStreamBuffer;
        using OStreamBuffer<char>::overflow;
    };
    const int end = std::char_traits<char>::eof();
    NotingWriter writer;
    OpenBuffer buffer(writer);
    EXPECT_NE(buffer.overflow(end), end);
    EXPECT_TRUE(writer.calls.empty());
    EXPECT_EQ(buffer.overflow('a'), 'a');
    EXPECT_EQ(writer.calls, (std::vector<std::string>{"a"}));
}

TEST(OStreamBuffer, DestroyedDoesNotCloseTheWriter) {
    NotingWriter writer;
    {
        OStreamBuffer<char> buffer(writer);
        std::ostream stream(&buffer);
        stream << 12;
    }
    std::string all;
    for (const std::string& call : writer.calls) {
        all += call;
    }
    EXPECT_EQ(all, "12");
}

TEST(OStreamBuffer, WhatTheWriterThrowsPassesThroughAStreamThatAsksForIt) {
    struct Thrown {};
    struct ThrowingWriter : NotingWriter {
        void write(const char*, std::size_t) override { throw Thrown(); }
    };
    ThrowingWriter writer;
    OStreamBuffer<char> buffer(writer);
    std::ostream stream(&buffer);
    stream.exceptions(std::ios_base::badbit);
    EXPECT_THROW(stream.write("a", 1), Thrown);
}

}  // namespace
}  // namespace Corvane
