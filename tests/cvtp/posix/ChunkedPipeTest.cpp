// A read of a chunked body from a pipe brings several chunks at once, if they come as they are expected to.
// Whatever comes, and however it is split, it must not make a difference to what a plain decoder makes of the same
// bytes.

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <deque>
#include <istream>
#include <numeric>
#include <ostream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "cvtp/internal/FramingNumbers.h"
#include "cvtp/internal/IStreamBuffer.h"
#include "io/Exceptions.h"
#include "io/platform/posix/Spinning.h"
#include "io/platform/posix/SystemCalls.h"
#include "tests/cvtp/PipeSource.h"
#include "tests/support_code/LogCapture.h"

namespace Corvane {
namespace Testing {
namespace {

using Decoder = Internal::Cvtp::IStreamBuffer<char>;
using Lines = std::vector<std::string>;

/// So much is asked for at once: more than any body has.
const std::size_t PIECE = 4000;

/// What is to come of a body and what follows it in the pipe.
struct Outcome {
    std::string body;
    std::string following;
    bool isComplete = false;
    Lines log;
    std::string trace;

    bool operator==(const Outcome& other) const {
        return body == other.body && following == other.following && isComplete == other.isComplete &&
               log == other.log && trace == other.trace;
    }
};

void PrintTo(const Outcome& outcome, std::ostream* out) {
    *out << ::testing::PrintToString(outcome.body) << (outcome.isComplete ? " complete, " : " incomplete, ")
         << ::testing::PrintToString(outcome.following) << ::testing::PrintToString(outcome.log)
         << ::testing::PrintToString(outcome.trace);
}

/// Decodes a body that is all there, character by character.
class PlainDecoder {
 public:
    explicit PlainDecoder(std::string bytes) : rest(std::move(bytes)) {}

    Outcome decode() {
        while (readChunk()) {
        }
        outcome.trace = outcome.body + (outcome.isComplete ? "\n" : "");
        outcome.following = rest;
        return outcome;
    }

    /// The part of the body that stands before the chunk in which decoding ended.
    std::size_t lengthOfGoodChunks() const { return goodLength; }

 private:
    std::string take(std::size_t n) {
        const std::string taken = rest.substr(0, n);
        rest.erase(0, taken.size());
        return taken;
    }

    bool fail(const std::string& message) {
        outcome.log.push_back("ERROR: " + message);
        return false;
    }

    bool readChunk() {
        goodLength = outcome.body.size();
        const std::size_t end = rest.find('\n');
        if (end == std::string::npos || end > 19) {
            take(rest.size() > 19 ? 19 : rest.size());
            return fail("InputBuffer::read(): invalid chunksize line");
        }
        const std::size_t size = Internal::Cvtp::parseChunkSize(take(end + 1));
        outcome.body += take(size);
        if (outcome.body.size() < goodLength + size) {
            return false;
        }
        for (const char c : {'\r', '\n'}) {
            if (rest.empty() || rest.front() != c) {
                return fail("Bad end of chunk");
            }
            take(1);
        }
        outcome.isComplete = size == 0;
        return size > 0;
    }

    std::string rest;
    std::size_t goodLength = 0;
    Outcome outcome;
};

/// Bytes that come in parts: a read of the system gives bytes of one part only, and fails between parts.
struct Arrival {
    Lines parts;
    /// Of the buffer of the pipe.
    std::size_t size;
};

/// Stands between the pipe and the system, and lets the bytes in the pipe come in parts.
class PartsOfPipe {
 public:
    explicit PartsOfPipe(const Lines& parts) {
        lengths.clear();
        for (const std::string& part : parts) {
            lengths.push_back(part.size());
            lengths.push_back(FAILURE);
        }
        table.recv = [](int socket, void* buffer, std::size_t length, int flags) {
            iovec room{buffer, length};
            return receive(socket, &room, 1, flags);
        };
        table.recvmsg = [](int socket, msghdr* message, int flags) {
            return receive(socket, message->msg_iov, message->msg_iovlen, flags);
        };
        Io::Platform::Spinning::setLength(0);
        Io::Platform::substituteCalls(&table);
    }
    ~PartsOfPipe() {
        Io::Platform::substituteCalls(nullptr);
        Io::Platform::Spinning::setLength(-1);
    }
    PartsOfPipe(const PartsOfPipe&) = delete;
    PartsOfPipe& operator=(const PartsOfPipe&) = delete;

 private:
    static constexpr std::size_t FAILURE = 0;

    static ssize_t receive(int socket, const iovec* rooms, std::size_t count, int flags) {
        if (!lengths.empty() && lengths.front() == FAILURE) {
            lengths.pop_front();
            errno = EIO;
            return -1;
        }
        std::vector<iovec> limited(rooms, rooms + count);
        std::size_t left = lengths.empty() ? PIECE : lengths.front();
        for (iovec& room : limited) {
            room.iov_len = std::min(room.iov_len, left);
            left -= room.iov_len;
        }
        msghdr message{};
        message.msg_iov = limited.data();
        message.msg_iovlen = limited.size();
        const ssize_t received = ::recvmsg(socket, &message, flags);
        if (!lengths.empty() && received > 0) {
            lengths.front() -= static_cast<std::size_t>(received);
            if (lengths.front() == 0) {
                lengths.pop_front();
            }
        }
        return received;
    }

    static inline std::deque<std::size_t> lengths;
    Io::Platform::SystemCalls table;
};

/// Reads on after failures until nothing more comes.
template <class Read>
void readAll(const Read& read) {
    bool isMore = true;
    while (isMore) {
        try {
            isMore = read();
        } catch (const Io::CvPipeException&) {
            // As after a timeout: the next part has come.
        }
    }
}

Outcome outcomeFromPipe(const Arrival& arrival) {
    PipeSource source(std::accumulate(arrival.parts.begin(), arrival.parts.end(), std::string()), arrival.size);
    const PartsOfPipe parts(arrival.parts);
    const LogCapture capture(1, 1);
    Decoder decoder(source.stream(), 1);
    Outcome outcome;
    readAll([&] {
        std::string piece(PIECE, ' ');
        const std::streamsize count = decoder.sgetn(&piece[0], static_cast<std::streamsize>(PIECE));
        outcome.body += piece.substr(0, static_cast<std::size_t>(count));
        return count > 0;
    });
    readAll([&] {
        const int next = source.buffer().sbumpc();
        const bool isMore = next != std::char_traits<char>::eof();
        outcome.following += isMore ? std::string(1, static_cast<char>(next)) : "";
        return isMore;
    });
    outcome.isComplete = decoder.isComplete();
    outcome.log = capture.texts();
    outcome.trace = capture.trace();
    return outcome;
}

/// How much of a chunk with a wrong end is dropped depends on what was there when; all before it is delivered.
void expectSameButForTheLastChunk(const Outcome& actual, PlainDecoder& plain) {
    Outcome expected = plain.decode();
    if (expected.log == Lines{"ERROR: Bad end of chunk"}) {
        EXPECT_GE(actual.body.size(), plain.lengthOfGoodChunks());
        EXPECT_EQ(actual.body, expected.body.substr(0, actual.body.size()));
        expected.body = actual.body;
    }
    EXPECT_EQ(actual, expected);
}

struct Case {
    std::string name;
    std::string bytes;
};

void PrintTo(const Case& param, std::ostream* out) {
    *out << param.name;
}

const std::string NEXT = "POST /next CVTP/1.0\r\nContent-Length: 2\r\n\r\nhi";

class ChunkedPipeTest : public testing::TestWithParam<Case> {
 protected:
    const TemporaryPipeDirectory folder;
};

TEST_P(ChunkedPipeTest, AnySplitGivesWhatAPlainDecoderGives) {
    const std::string& bytes = GetParam().bytes;
    for (const std::size_t size : {1U, 4U, 9U, 1000U}) {
        for (std::size_t at = 1; at <= bytes.size() && !HasFailure(); ++at) {
            PlainDecoder plain(bytes);
            const Arrival arrival{{bytes.substr(0, at), bytes.substr(at)}, size};
            expectSameButForTheLastChunk(outcomeFromPipe(arrival), plain);
            EXPECT_FALSE(HasFailure()) << "buffer of " << size << ", split at " << at;
        }
    }
}

TEST_P(ChunkedPipeTest, AnEndAnywhereGivesWhatAPlainDecoderGives) {
    const std::string& bytes = GetParam().bytes;
    for (std::size_t length = 1; length < bytes.size() && !HasFailure(); ++length) {
        PlainDecoder plain(bytes.substr(0, length));
        expectSameButForTheLastChunk(outcomeFromPipe({{bytes.substr(0, length)}, 4}), plain);
        EXPECT_FALSE(HasFailure()) << "length " << length;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Bodies, ChunkedPipeTest,
    testing::Values(
        Case{"EqualChunksAndASmallerLastOne",
             "9\r\nabcdefghi\r\n9\r\njklmnopqr\r\n9\r\nstuvwxyzA\r\n4\r\nBCDE\r\n0\r\n\r\n" + NEXT},
        Case{
            "MoreChunksThanOneReadBrings",
            "4\r\nabcd\r\n4\r\nefgh\r\n4\r\nijkl\r\n4\r\nmnop\r\n4\r\nqrst\r\n4\r\nuvwx\r\n4\r\nyzAB\r\n0\r\n\r\n"},
        Case{"OtherLengthsOfSizeLines",
             "a\r\nabcdefghij\r\n10\r\nklmnopqrstuvwxyz\r\n8\r\nABCDEFGH\r\n00\r\n\r\n" + NEXT},
        Case{"LargerChunksOfTheSameForm",
             "5\r\nabcde\r\n9\r\nfghijklmn\r\nC\r\nopqrstuvwxyz\r\n4\r\nABCD\r\n0\r\n\r\n"},
        Case{"UpperCaseDigits", "A\r\nabcdefghij\r\na\r\nklmnopqrst\r\nA\r\nuvwxyzABCD\r\n0\r\n\r\n" + NEXT},
        Case{"LeadingZeros", "009\r\nabcdefghi\r\n009\r\njklmnopqr\r\n9\r\nstuvwxyzA\r\n000\r\n\r\n" + NEXT},
        Case{"TextBehindTheSize",
             "9;a=b\r\nabcdefghi\r\n9;a=b\r\njklmnopqr\r\n9;c=d\r\nstuvwxyzA\r\n9\r\nBCDEFGHIJ\r\n0\r\n\r\n"},
        Case{"SizeLinesWithoutCR", "9\nabcdefghi\r\n9\njklmnopqr\r\n9\r\nstuvwxyzA\r\n0\n\r\n" + NEXT},
        Case{"DataThatLooksLikeFrames",
             "b\r\n\r\n5\r\n\r\n0\r\n\r\n\r\nb\r\n\r\n5\r\n\r\n0\r\n\r\n\r\n9\r\n\r\n9\r\nabcd\r\n0\r\n\r\n"},
        Case{"DataAtThePlaceOfAFrame",
             "9\r\nabcdefghi\r\nf\r\njklmnopqr\r\n5\r\ns\r\n9\r\ntuvwxyzAB\r\n0\r\n\r\n" + NEXT},
        Case{"ANextMessageLargerThanThePiece",
             "6\r\nabcdef\r\n6\r\nghijkl\r\n0\r\n\r\n" + NEXT + std::string(40, 'x') + NEXT},
        Case{"AWrongEndOfTheFirstChunk", "9\r\nabcdefghixy9\r\njklmnopqr\r\n0\r\n\r\n"},
        Case{"AWrongEndOfTheSecondChunk", "9\r\nabcdefghi\r\n9\r\njklmnopqr\rx9\r\nstuvwxyzA\r\n0\r\n\r\n"},
        Case{"AWrongEndOfTheThirdChunk", "9\r\nabcdefghi\r\n9\r\njklmnopqr\r\n9\r\nstuvwxyzA\n\r0\r\n\r\n"},
        Case{"AWrongEndOfAShorterChunk", "9\r\nabcdefghi\r\n9\r\njklmnopqr\r\n4\r\nstuv\r\r0\r\n\r\n"},
        Case{"AWrongEndOfTheLastChunk", "9\r\nabcdefghi\r\n9\r\njklmnopqr\r\n0\r\nTrailer: x\r\n\r\n"},
        Case{"ASizeLineThatIsTooLong", "9\r\nabcdefghi\r\n9\r\njklmnopqr\r\n00000000000000000009\r\nabcdefghi\r\n"},
        Case{"ASizeLineWithoutASize", "9\r\nabcdefghi\r\n9\r\njklmnopqr\r\nz\r\n\r\n" + NEXT},
        Case{"SizeLinesAsLongAsCanBe",
             "000000000000000009\r\nabcdefghi\r\n000000000000000009\r\njklmnopqr\r\n0\r\n\r\n" + NEXT}),
    [](const auto& test) { return test.param.name; });

class ChunkedPipe : public testing::Test {
 protected:
    const TemporaryPipeDirectory folder;
};

std::string sizeLine(std::mt19937& random, std::size_t size) {
    std::ostringstream line;
    const auto kind = random() % 20;
    if (kind == 1) {
        line << std::uppercase;
    } else if (kind == 2) {
        line << "00";
    }
    line << std::hex << size << (kind == 3 ? ";a" : "") << (kind == 4 ? "\n" : "\r\n");
    return line.str();
}

std::string chunk(std::mt19937& random, std::size_t size) {
    std::string data;
    while (data.size() < size) {
        data += static_cast<char>('a' + random() % 26);
    }
    return sizeLine(random, size) + data + (random() % 40 == 0 ? "\rx" : "\r\n");
}

TEST_F(ChunkedPipe, AnythingInAnyPartsGivesWhatAPlainDecoderGives) {
    std::mt19937 random(5);
    for (int round = 0; round < 1000 && !HasFailure(); ++round) {
        const std::size_t usual = 1 + random() % 40;
        std::string bytes;
        for (auto chunks = 1 + random() % 12; chunks > 0; --chunks) {
            bytes += chunk(random, random() % 4 == 0 ? 1 + random() % 40 : usual);
        }
        bytes += "0\r\n\r\n" + (random() % 2 == 0 ? NEXT : std::string());
        Arrival arrival{{}, 1 + random() % 50};
        for (std::string left = bytes; !left.empty();) {
            arrival.parts.push_back(left.substr(0, 1 + random() % (random() % 2 == 0 ? 20 : 400)));
            left.erase(0, arrival.parts.back().size());
        }
        PlainDecoder plain(bytes);
        expectSameButForTheLastChunk(outcomeFromPipe(arrival), plain);
        EXPECT_FALSE(HasFailure()) << "round " << round << ", buffer of " << arrival.size << ":\n"
                                   << ::testing::PrintToString(arrival.parts);
    }
}

/// Reads a piece, which may end anywhere.
std::string pieceOf(Decoder& decoder, std::size_t size) {
    std::string piece(size, ' ');
    piece.resize(static_cast<std::size_t>(decoder.sgetn(&piece[0], static_cast<std::streamsize>(size))));
    return piece;
}

TEST_F(ChunkedPipe, AWrongEndDropsWhatWasReadWithIt) {
    PipeSource source("9\r\nabcdefghi\r\n9\r\njklmnopqr\rx9\r\nstuvwxyzA\r\n", 4);
    const LogCapture capture;
    Decoder decoder(source.stream(), 1);
    // The last part of the second chunk is read with the wrong end behind it.
    EXPECT_EQ(pieceOf(decoder, PIECE), "abcdefghijk");
    EXPECT_EQ(capture.texts(), Lines{"ERROR: Bad end of chunk"});
    EXPECT_EQ(source.buffer().sbumpc(), 'x');
}

TEST_F(ChunkedPipe, AReadTakesNothingThatItsCallerDidNotAskFor) {
    PipeSource source("9\r\nabcdefghi\r\n9\r\njklmnopqr\r\n9\r\nstuvwxyzA\r\n0\r\n\r\n" + NEXT, 4);
    Decoder decoder(source.stream(), 1);
    EXPECT_EQ(pieceOf(decoder, 14), "abcdefghijklmn");
    EXPECT_EQ(source.buffer().sungetc(), 'n');
    EXPECT_EQ(source.buffer().sbumpc(), 'n');
    EXPECT_EQ(source.buffer().sbumpc(), 'o');
}

TEST_F(ChunkedPipe, ASmallReadTakesNothingOfTheNextChunk) {
    PipeSource source("9\r\nabcdefghi\r\n9\r\njklmnopqr\r\n9\r\nstuvwxyzA\r\n0\r\n\r\n", 5);
    Decoder decoder(source.stream(), 100);
    EXPECT_EQ(pieceOf(decoder, 3), "abc");
    EXPECT_EQ(pieceOf(decoder, 1), "d");
    EXPECT_EQ(decoder.in_avail(), 5);
}

TEST_F(ChunkedPipe, ABodyThatIsReadToItsEndLeavesTheNextMessage) {
    const std::string next = NEXT + std::string(3000, 'x') + NEXT;
    for (std::size_t piece = 1; piece < 60; ++piece) {
        PipeSource source("9\r\nabcdefghi\r\n9\r\njklmnopqr\r\n6\r\nstuvwx\r\n0\r\n\r\n" + next, 4);
        Decoder decoder(source.stream(), 1);
        std::string body;
        for (std::string read = pieceOf(decoder, piece); !read.empty(); read = pieceOf(decoder, piece)) {
            body += read;
        }
        EXPECT_EQ(body, "abcdefghijklmnopqrstuvwx");
        std::string following(next.size() + 1, ' ');
        const auto count = source.buffer().sgetn(&following[0], static_cast<std::streamsize>(following.size()));
        EXPECT_EQ(following.substr(0, static_cast<std::size_t>(count)), next) << piece;
    }
}

TEST_F(ChunkedPipe, OneThatIsClosedByAnotherThreadInterruptsTheRead) {
    PipeSource source(4);
    source.write("9\r\nabcdefghi\r\n9\r\njklmnopqr\r\n9\r\nstu");
    Decoder decoder(source.stream(), 1);
    std::thread closer([&] { source.close(); });
    std::string body;
    try {
        while (true) {
            body += pieceOf(decoder, PIECE);
        }
    } catch (const Io::InterruptedException&) {
        closer.join();
    }
    EXPECT_EQ(body, "");
    // What had come before the close is not lost.
    const std::streamsize kept = decoder.in_avail();
    body = pieceOf(decoder, static_cast<std::size_t>(std::max<std::streamsize>(kept, 0)));
    EXPECT_EQ(body, std::string("abcdefghijklmnopqrstu").substr(0, body.size()));
}

TEST_F(ChunkedPipe, AfterACloseNothingIsReadAgain) {
    PipeSource source(4);
    // The second chunk is smaller, and what follows it has come with it.
    source.write("9\r\nabcdefghi\r\n4\r\njklm\r\n20\r\n" + std::string(32, 'x') + "\r\n9\r\nxxxxxxxxx\r\n");
    Decoder decoder(source.stream(), 1);
    EXPECT_EQ(pieceOf(decoder, 13), "abcdefghijklm");
    EXPECT_EQ(pieceOf(decoder, 10), std::string(10, 'x'));
    source.close();
    EXPECT_THROW(pieceOf(decoder, PIECE), Io::InterruptedException);
    EXPECT_THROW(source.buffer().sgetc(), Io::InterruptedException);
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
