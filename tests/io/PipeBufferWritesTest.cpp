// What a pipe's stream buffer passes to its pipe, call by call. The pipe here is not the library's: it only notes
// what it is asked to do. So blocks can be written that would take the real one long, and failures be had for the
// asking.

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "io/CvPipe.h"
#include "io/Exceptions.h"

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

std::vector<Write> writes;
bool isBroken = false;

}  // namespace
}  // namespace Testing

namespace Io {

CvPipe::CvPipe() : connectTimeout(0), readTimeout(0) {}

CvPipe::~CvPipe() = default;

int CvPipe::getReadTimeout() {
    return readTimeout;
}

int CvPipe::readPipe(char*, int, int, int) {
    return -1;
}

void CvPipe::writePipe(const char* buffer, int offset, int length) {
    Testing::writes.push_back({buffer + offset, length});
    if (Testing::isBroken) {
        throw BrokenPipeException("Pipe was closed at other end.");
    }
}

}  // namespace Io

namespace Testing {
namespace {

using Writes = std::vector<Write>;

class PipeBufferWrites : public ::testing::Test {
 protected:
    PipeBufferWrites() {
        writes.clear();
        isBroken = false;
    }

    Io::CvPipe pipe;
    Io::PipeBufferBase<char> out{&pipe, static_cast<int>(std::ios_base::out)};
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
