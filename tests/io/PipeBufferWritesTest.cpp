// What a pipe's stream buffer asks of its pipe, call by call. The pipe here is not the library's: it only notes
// what it is asked to do. So blocks can be written that would take the real one long, and failures be had for the
// asking.

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "io/CvPipe.h"
#include "io/Exceptions.h"
#include "io/platform/PipePlatform.h"

namespace Corvane {
namespace Testing {
namespace {

struct Write {
    const char* data;
    int length;

    bool operator==(const Write& other) const { return data == other.data && length == other.length; }
};

void PrintTo(const Write& write, std::ostream* out) {
    *out << static_cast<const void*>(write.data) << " " << write.length;
}

struct Blocks {
    std::vector<Write> all;
    std::size_t piece;

    bool operator==(const Blocks& other) const { return all == other.all && piece == other.piece; }
};

void PrintTo(const Blocks& blocks, std::ostream* out) {
    *out << ::testing::PrintToString(blocks.all) << " by " << blocks.piece;
}

struct Read {
    const char* buffer;
    int length;

    bool operator==(const Read& other) const { return buffer == other.buffer && length == other.length; }
};

void PrintTo(const Read& read, std::ostream* out) {
    *out << static_cast<const void*>(read.buffer) << " " << read.length;
}

std::vector<Write> writes;
/// All of the bytes.
std::string written;
std::vector<Blocks> writtenBlocks;
std::vector<Read> reads;
/// How much each straight read may read ahead.
std::vector<int> aheads;
/// What each read delivers, one after another; then the end of data.
std::vector<std::string> incoming;
bool isBroken = false;

}  // namespace
}  // namespace Testing

namespace Io {

CvPipe::CvPipe()
    : inputBuffer(this, std::ios_base::in),
      outputBuffer(this, std::ios_base::out),
      connectTimeout(0),
      readTimeout(0) {}

CvPipe::~CvPipe() = default;

int CvPipe::getReadTimeout() {
    return readTimeout;
}

int CvPipe::readPipe(char* buffer, int offset, int length, int) {
    Testing::reads.push_back({buffer + offset, length});
    if (Testing::incoming.empty()) {
        return -1;
    }
    const std::string data = Testing::incoming.front();
    Testing::incoming.erase(Testing::incoming.begin());
    return static_cast<int>(data.copy(buffer + offset, static_cast<std::size_t>(length)));
}

int CvPipe::readBlocks(const Platform::Room* begin, const Platform::Room* end) {
    Testing::aheads.push_back(end - begin > 1 ? (end - 1)->length : 0);
    if (Testing::incoming.empty()) {
        return readPipe(begin->data, 0, begin->length, readTimeout);
    }
    const std::string data = Testing::incoming.front();
    int count = readPipe(begin->data, 0, begin->length, readTimeout);
    while (++begin != end) {
        count += static_cast<int>(data.substr(std::min(data.size(), static_cast<std::size_t>(count)))
                                      .copy(begin->data, static_cast<std::size_t>(begin->length)));
    }
    return count;
}

void CvPipe::unread(std::unique_ptr<char[]> memory, std::size_t length) {
    Testing::incoming.insert(Testing::incoming.begin(), std::string(memory.get(), length));
}

int CvPipe::readAgain(const Platform::Room* begin, const Platform::Room*) {
    std::string& data = Testing::incoming.front();
    const std::size_t count = data.copy(begin->data, static_cast<std::size_t>(begin->length));
    data.erase(0, count);
    if (data.empty()) {
        Testing::incoming.erase(Testing::incoming.begin());
    }
    return static_cast<int>(count);
}

void CvPipe::writePipe(const char* buffer, int offset, int length) {
    Testing::writes.push_back({buffer + offset, length});
    Testing::written.append(buffer + offset, static_cast<std::size_t>(std::min(length, 100)));
    if (Testing::isBroken) {
        throw BrokenPipeException("Pipe was closed at other end.");
    }
}

void CvPipe::writeBlocks(std::vector<std::string_view>& blocks, std::size_t piece) {
    Testing::writtenBlocks.push_back({{}, piece});
    for (const std::string_view& block : blocks) {
        Testing::written += block;
        // Whoever writes them leaves empty ones out.
        if (!block.empty()) {
            Testing::writtenBlocks.back().all.push_back({block.data(), static_cast<int>(block.size())});
        }
    }
    if (Testing::isBroken) {
        throw BrokenPipeException("Pipe was closed at other end.");
    }
}

}  // namespace Io

namespace Testing {
namespace {

using Writes = std::vector<Write>;
using AllBlocks = std::vector<Blocks>;
using Reads = std::vector<Read>;

class PipeBufferWrites : public ::testing::Test {
 protected:
    PipeBufferWrites() {
        writes.clear();
        written.clear();
        writtenBlocks.clear();
        reads.clear();
        aheads.clear();
        incoming.clear();
        isBroken = false;
    }

    Io::CvPipe pipe;
    Io::PipeBufferBase<char> out{&pipe, static_cast<int>(std::ios_base::out)};
    Io::PipeBufferBase<char> in{&pipe, static_cast<int>(std::ios_base::in)};
    char memory[8] = {};
};

TEST_F(PipeBufferWrites, AnUnbufferedBlockOfMoreThanThePipeCanCountIsWrittenInPieces) {
    const int largest = std::numeric_limits<int>::max();
    const std::streamsize size = std::streamsize{largest} + 5;
    // Neither written nor read, so that the system need not provide it.
    const std::unique_ptr<char[]> block(new char[static_cast<std::size_t>(size)]);
    EXPECT_EQ(out.sputn(block.get(), size), 0);
    EXPECT_EQ(writes, (Writes{{block.get(), largest}, {block.get() + largest, 5}}));
}

TEST_F(PipeBufferWrites, AnyOtherUnbufferedBlockIsWrittenInOnePiece) {
    const std::string block(100000, 'x');
    EXPECT_EQ(out.sputn(block.data(), 100000), 0);
    EXPECT_EQ(writes, (Writes{{block.data(), 100000}}));
}

TEST_F(PipeBufferWrites, AFailedWriteKeepsWhatWasToBeWritten) {
    out.pubsetbuf(memory, 8);
    EXPECT_EQ(out.sputn("abc", 3), 3);
    isBroken = true;
    EXPECT_THROW(out.pubsync(), Io::BrokenPipeException);
    EXPECT_THROW(out.sputn("defghijk", 8), Io::BrokenPipeException);
    isBroken = false;
    EXPECT_EQ(out.pubsync(), 0);
    EXPECT_EQ(writes, (Writes{{memory, 3}, {memory, 8}, {memory, 8}}));
    EXPECT_EQ(std::string(memory, 8), "abcdefgh");
}

TEST_F(PipeBufferWrites, WholeBuffersAreWrittenStraightFromTheCallersMemory) {
    const std::string text = "defghijklmnopqrstuvwxyz";
    out.pubsetbuf(memory, 8);
    EXPECT_EQ(out.sputn("abc", 3), 3);
    EXPECT_EQ(out.sputn(text.data(), 23), 23);
    EXPECT_EQ(writtenBlocks, (AllBlocks{{{{memory, 3}, {text.data(), 21}}, 8}}));
    EXPECT_EQ(writes, Writes());
    EXPECT_EQ(out.pubsync(), 0);
    EXPECT_EQ(writes, (Writes{{memory, 2}}));
    EXPECT_EQ(std::string(memory, 2), "yz");
}

TEST_F(PipeBufferWrites, TheLastBufferStaysUntilOneMoreByteComes) {
    const std::string text(32, 'x');
    out.pubsetbuf(memory, 8);
    EXPECT_EQ(out.sputn(text.data(), 32), 32);
    EXPECT_EQ(writtenBlocks, (AllBlocks{{{{text.data(), 24}}, 8}}));
    EXPECT_EQ(out.room(), 0);
    EXPECT_EQ(out.sputc('y'), 'y');
    EXPECT_EQ(writes, (Writes{{memory, 8}}));
    EXPECT_EQ(out.room(), 7);
}

TEST_F(PipeBufferWrites, ABufferThatAFewBytesFillIsWrittenByItself) {
    out.pubsetbuf(memory, 8);
    EXPECT_EQ(out.sputn("abcde", 5), 5);
    EXPECT_EQ(out.sputn("fghi", 4), 4);
    EXPECT_EQ(writes, (Writes{{memory, 8}}));
    EXPECT_EQ(writtenBlocks, AllBlocks());
    EXPECT_EQ(out.room(), 7);
}

TEST_F(PipeBufferWrites, ALargeBufferIsNotFilledByACopy) {
    const std::unique_ptr<char[]> large(new char[5000]);
    const std::string text(5001, 'x');
    out.pubsetbuf(large.get(), 5000);
    EXPECT_EQ(out.sputn(text.data(), 5001), 5001);
    EXPECT_EQ(writtenBlocks, (AllBlocks{{{{text.data(), 5000}}, 5000}}));
    EXPECT_EQ(out.room(), 4999);
}

TEST_F(PipeBufferWrites, BlocksThatFailedLeaveTheBufferAsItWas) {
    const std::string text(20, 'x');
    out.pubsetbuf(memory, 8);
    EXPECT_EQ(out.sputn("abc", 3), 3);
    isBroken = true;
    EXPECT_THROW(out.sputn(text.data(), 20), Io::BrokenPipeException);
    EXPECT_EQ(out.room(), 5);
    EXPECT_EQ(std::string(memory, 3), "abc");
}

TEST_F(PipeBufferWrites, SeveralBlocksAreWrittenAsIfTheyWereOne) {
    const std::string held = "ABCDEFGH";
    const std::string text = "abcdefghijklmnopqrst";
    for (std::size_t before = 0; before <= 8; ++before) {
        for (std::size_t n = 0; n < 100 * text.size(); ++n) {
            // Some of the ways to make three blocks of it, empty ones among them.
            const std::size_t first = n % text.size();
            const std::size_t second = first + n / 100 % (text.size() - first);
            const std::string_view blocks[] = {{text.data(), first},
                                               {text.data() + first, second - first},
                                               {text.data() + second, text.size() - second}};
            Io::PipeBufferBase<char> buffer(&pipe, static_cast<int>(std::ios_base::out));
            buffer.pubsetbuf(memory, 8);
            written.clear();
            buffer.sputn(held.data(), static_cast<std::streamsize>(before));
            buffer.putBlocks(std::begin(blocks), std::end(blocks));
            // One more byte must come before the last buffer goes.
            ASSERT_EQ(written.size(), (before + text.size() - 1) / 8 * 8)
                << before << " " << first << " " << second;
            buffer.pubsync();
            ASSERT_EQ(written, held.substr(0, before) + text) << before << " " << first << " " << second;
        }
    }
}

TEST_F(PipeBufferWrites, SeveralBlocksLeaveTogether) {
    const std::string text = "abcdefghijklmnopqrst";
    const std::string_view blocks[] = {{text.data(), 9}, {text.data() + 9, 2}, {text.data() + 11, 9}};
    out.pubsetbuf(memory, 8);
    EXPECT_EQ(out.sputn("xy", 2), 2);
    out.putBlocks(std::begin(blocks), std::end(blocks));
    EXPECT_EQ(writtenBlocks,
              (AllBlocks{{{{memory, 2}, {text.data(), 9}, {text.data() + 9, 2}, {text.data() + 11, 3}}, 8}}));
    EXPECT_EQ(out.room(), 2);
}

TEST_F(PipeBufferWrites, BlocksThatHaveRoomAreNotWritten) {
    const std::string_view blocks[] = {"abc", "", "defgh"};
    out.pubsetbuf(memory, 8);
    out.putBlocks(std::begin(blocks), std::end(blocks));
    EXPECT_EQ(written, "");
    EXPECT_EQ(std::string(memory, 8), "abcdefgh");
    EXPECT_THROW(in.putBlocks(std::begin(blocks), std::end(blocks)), Io::CvPipeException);
}

TEST_F(PipeBufferWrites, HasNoRoomWithoutABufferNorForInput) {
    EXPECT_EQ(out.room(), 0);
    in.pubsetbuf(memory, 8);
    EXPECT_EQ(in.room(), 0);
}

TEST_F(PipeBufferWrites, AReadOfABufferOrMoreGoesStraightIntoTheCallersMemory) {
    char target[20] = {};
    incoming = {"abc", "defghijkl", "mnop"};
    in.pubsetbuf(memory, 8);
    EXPECT_EQ(in.sgetn(target, 14), 14);
    // What is left to read after the second is less than a buffer.
    EXPECT_EQ(reads, (Reads{{target, 14}, {target + 3, 11}, {memory, 8}}));
    EXPECT_EQ(std::string(target, 14), "abcdefghijklmn");
    EXPECT_EQ(in.sgetn(target, 14), 2);
    EXPECT_EQ(std::string(target, 2), "op");
}

TEST_F(PipeBufferWrites, TheLastByteOfAStraightReadCanBePutBack) {
    char target[20] = {};
    incoming = {"abcdef", "ghijklmnopqrst", "uvwxyz"};
    in.pubsetbuf(memory, 8);
    EXPECT_EQ(in.sgetn(target, 6), 6);
    EXPECT_EQ(in.readSome(target, 14), 14);
    EXPECT_EQ(in.sungetc(), 't');
    EXPECT_EQ(in.sungetc(), std::char_traits<char>::eof()) << "there is one only";
    EXPECT_EQ(in.sbumpc(), 't');
    EXPECT_EQ(in.sbumpc(), 'u');
    EXPECT_EQ(in.sgetn(target, 10), 5);
    EXPECT_EQ(in.sungetc(), std::char_traits<char>::eof()) << "not behind the end";
}

TEST_F(PipeBufferWrites, WhatComesBehindAStraightReadIsReadAhead) {
    char target[20] = {};
    incoming = {"abcdefghijklmnop", "qrstuvwxyz"};
    in.pubsetbuf(memory, 8);
    EXPECT_EQ(in.readSomeAndAhead(target, 12), 12);
    EXPECT_EQ(std::string(target, 12), "abcdefghijkl");
    EXPECT_EQ(in.ahead(), "mnop");
    EXPECT_EQ(in.sungetc(), 'l');
    EXPECT_EQ(in.sungetc(), std::char_traits<char>::eof()) << "there is one only";
    EXPECT_EQ(in.sgetn(target, 5), 5);
    EXPECT_EQ(std::string(target, 5), "lmnop");
    // A place is left for the byte before.
    EXPECT_EQ(aheads, std::vector<int>{7});
    EXPECT_EQ(in.readSomeAndAhead(target, 12), 10);
    EXPECT_EQ(in.ahead(), "");
    EXPECT_EQ(in.sungetc(), 'z');
    EXPECT_EQ(in.sbumpc(), 'z');
    EXPECT_EQ(in.readSomeAndAhead(target, 12), 0);
    EXPECT_EQ(in.ahead(), "");
    EXPECT_EQ(in.readSome(target, 12), 0);
    EXPECT_EQ(aheads, (std::vector<int>{7, 7, 7, 0}));
}

TEST_F(PipeBufferWrites, SeveralPlacesAreFilledOneAfterAnother) {
    char first[4] = {};
    char second[3] = {};
    const Io::Platform::Room rooms[] = {{first, 4}, {second, 3}};
    incoming = {"abcdefghij", "klmno", "p", "qrstuvwxyz"};
    in.pubsetbuf(memory, 8);
    EXPECT_EQ(in.readInto(rooms, rooms + 2, true), 7);
    EXPECT_EQ(std::string(first, 4) + std::string(second, 3), "abcdefg");
    EXPECT_EQ(in.ahead(), "hij");
    EXPECT_EQ(in.sungetc(), 'g');
    in.skip(4);
    EXPECT_EQ(in.readInto(rooms, rooms + 2, true), 5);
    EXPECT_EQ(in.sungetc(), 'o');
    in.skip(1);
    EXPECT_EQ(in.readInto(rooms, rooms + 2, true), 1);
    EXPECT_EQ(in.sungetc(), 'p');
    in.skip(1);
    // Nothing is read ahead.
    EXPECT_EQ(in.readInto(rooms, rooms + 2, false), 7);
    EXPECT_EQ(in.ahead(), "");
    EXPECT_EQ(in.sungetc(), 'w');
    in.skip(1);
    EXPECT_EQ(in.readInto(rooms, rooms + 2, true), 0);
    EXPECT_EQ(in.sungetc(), std::char_traits<char>::eof()) << "not behind the end";
    EXPECT_THROW(out.readInto(rooms, rooms + 2, true), Io::CvPipeException);
}

using Block = std::string_view;

TEST_F(PipeBufferWrites, WhatWasTakenBackIsReadAgain) {
    char target[12] = {};
    incoming = {"abcdefghijklmnop", "qrs"};
    in.pubsetbuf(memory, 8);
    EXPECT_EQ(in.readSomeAndAhead(target, 12), 12);
    const Block blocks[] = {Block(target + 1, 2), Block(target + 3, 9)};
    in.unread(nullptr, blocks, blocks + 2, std::make_unique<char[]>(20));
    EXPECT_EQ(in.in_avail(), 0);
    EXPECT_EQ(in.sungetc(), std::char_traits<char>::eof()) << "nothing to put back";
    // As from the pipe: a whole buffer at most.
    EXPECT_EQ(in.sgetc(), 'b');
    EXPECT_EQ(in.ahead(), "bcdefghi");
}

TEST_F(PipeBufferWrites, SomeOfWhatWasTakenBackIsReadAheadBehindTheLastByte) {
    char target[12] = {};
    incoming = {"abcdefghijklmnop"};
    in.pubsetbuf(memory, 8);
    EXPECT_EQ(in.readSomeAndAhead(target, 12), 12);
    const Block block(target + 2, 10);
    in.unread(target + 1, &block, &block + 1, std::make_unique<char[]>(20));
    EXPECT_EQ(in.ahead(), "cdefghi");
    EXPECT_EQ(in.sungetc(), 'b');
    EXPECT_EQ(in.sungetc(), std::char_traits<char>::eof()) << "there is one only";
    EXPECT_EQ(incoming, std::vector<std::string>{"jklmnop"});
}

TEST_F(PipeBufferWrites, ABufferOfOneByteHoldsNothingAhead) {
    char target[3] = {};
    const Io::Platform::Room room{target, 3};
    incoming = {"abcde"};
    in.pubsetbuf(memory, 1);
    EXPECT_EQ(in.readInto(&room, &room + 1, true), 3);
    const Block block(target + 1, 2);
    in.unread(target, &block, &block + 1, std::make_unique<char[]>(3));
    EXPECT_EQ(in.ahead(), "");
    EXPECT_EQ(in.sungetc(), 'a');
    in.skip(1);
    EXPECT_EQ(in.sbumpc(), 'b');
}

TEST_F(PipeBufferWrites, ThroughABufferOfNothingNothingIsRead) {
    char target[20] = {};
    incoming = {"", ""};
    in.pubsetbuf(memory, 0);
    EXPECT_EQ(in.sgetn(target, 20), 0);
    EXPECT_EQ(in.readSome(target, 20), 0);
    EXPECT_EQ(in.sgetc(), std::char_traits<char>::eof());
    EXPECT_EQ(reads, (Reads{{memory, 0}, {memory, 0}, {memory, 0}}));
}

TEST_F(PipeBufferWrites, WithoutABufferTheFirstReadIsOfOneByte) {
    char target[20] = {};
    incoming = {"a", "bcdef"};
    EXPECT_EQ(in.sgetn(target, 6), 6);
    EXPECT_EQ(std::string(target, 6), "abcdef");
    ASSERT_EQ(reads.size(), 2u);
    EXPECT_EQ(reads[0].length, 1);
    EXPECT_EQ(reads[1].length, 5);
    EXPECT_EQ(in.sungetc(), 'f');
}

TEST_F(PipeBufferWrites, WhatWasReadAheadComesFirst) {
    char target[20] = {};
    incoming = {"abcdef", "ghijklmnopqrst"};
    in.pubsetbuf(memory, 8);
    EXPECT_EQ(in.sbumpc(), 'a');
    EXPECT_EQ(in.readSome(target, 20), 5);
    EXPECT_EQ(std::string(target, 5), "bcdef");
    EXPECT_EQ(in.readSome(target, 20), 14);
    EXPECT_EQ(in.readSome(target, 20), 0);
    EXPECT_EQ(reads, (Reads{{memory, 8}, {target, 20}, {target, 20}}));
}

TEST_F(PipeBufferWrites, ReadsNothingWhenNothingIsAskedFor) {
    in.pubsetbuf(memory, 8);
    EXPECT_EQ(in.readSome(memory, 0), 0);
    EXPECT_EQ(in.readSome(memory, -1), 0);
    EXPECT_EQ(reads, Reads());
    EXPECT_THROW(out.readSome(memory, 1), Io::CvPipeException);
}

TEST_F(PipeBufferWrites, ABlockOfLessThanNothingIsNothing) {
    EXPECT_EQ(out.sputn("abc", -1), 0);
    out.pubsetbuf(memory, 8);
    EXPECT_EQ(out.sputn("abc", -1), 0);
    EXPECT_EQ(out.pubsync(), 0);
    EXPECT_EQ(writes, Writes());
}

TEST_F(PipeBufferWrites, ABufferOfLessThanNothingHasNoRoom) {
    out.pubsetbuf(memory + 4, -4);
    EXPECT_EQ(out.sputn("abc", 3), 0);
    EXPECT_EQ(out.sputc('a'), std::char_traits<char>::eof());
    EXPECT_EQ(writes, Writes());
}

TEST_F(PipeBufferWrites, OfABufferOfMoreThanThePipeCanCountTheFirstPartIsUsed) {
    const std::streamsize size = std::streamsize{std::numeric_limits<int>::max()} + 5;
    const std::unique_ptr<char[]> buffer(new char[static_cast<std::size_t>(size)]);
    out.pubsetbuf(buffer.get(), size);
    EXPECT_EQ(out.sputn("abc", 3), 3);
    EXPECT_EQ(out.pubsync(), 0);
    EXPECT_EQ(writes, (Writes{{buffer.get(), 3}}));
    EXPECT_EQ(std::string(buffer.get(), 3), "abc");
}

TEST_F(PipeBufferWrites, AFlushOfNothingWritesNothing) {
    EXPECT_EQ(out.pubsync(), 0);
    out.pubsetbuf(memory, 8);
    EXPECT_EQ(out.pubsync(), 0);
    EXPECT_EQ(out.sputc('a'), 'a');
    EXPECT_EQ(out.pubsync(), 0);
    EXPECT_EQ(out.pubsync(), 0);
    EXPECT_EQ(writes, (Writes{{memory, 1}}));
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
