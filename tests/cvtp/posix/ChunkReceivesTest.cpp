// How many calls of the system it takes to read a chunked body.

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "cvtp/internal/IStreamBuffer.h"
#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;

const std::size_t PIECE = 65536;
const std::size_t CHUNK = 40960;
/// What a buffer holds of a chunk behind its size line.
const std::size_t FIRST = 4096 - 6;

class ChunkReceivesTest : public FaultTest {
 protected:
    ChunkReceivesTest() { connection.client.getInputStream()->rdbuf()->pubsetbuf(memory, sizeof memory); }
    void TearDown() override {
        connection.client.close();
        connection.accepted.close();
    }

    /// Puts all of it into the pipe, and reads what of the first chunk comes with its size line.
    void begin(const std::string& bytes) {
        writeText(connection.accepted, bytes);
        EXPECT_EQ(read(FIRST), text.substr(0, FIRST));
    }
    std::string read(std::size_t n) {
        std::string piece(n, ' ');
        piece.resize(static_cast<std::size_t>(decoder.sgetn(&piece[0], static_cast<std::streamsize>(n))));
        return piece;
    }
    std::string chunk(std::size_t at, std::size_t size, const char* sizeLine = "a000\r\n") const {
        return sizeLine + text.substr(at, size) + "\r\n";
    }

    char memory[4096];
    Connection connection;
    const std::string text = numbered(4 * CHUNK);
    Internal::Cvtp::IStreamBuffer<char> decoder{*connection.client.getInputStream(), 4096};
};

TEST_F(ChunkReceivesTest, APieceAcrossChunksTakesOne) {
    begin(chunk(0, CHUNK) + chunk(CHUNK, CHUNK) + chunk(2 * CHUNK, CHUNK));
    FakeSystem system;
    EXPECT_EQ(read(PIECE), text.substr(FIRST, PIECE));
    EXPECT_EQ(system.getMade(), Lines{"recvmsg(36870+8+28666)"});
    system.forgetMade();
    // To the end of a chunk: the next frame is read ahead.
    EXPECT_EQ(read(12294), text.substr(FIRST + PIECE, 12294));
    EXPECT_EQ(system.getMade(), Lines{"recvmsg(12294+4095)"});
}

TEST_F(ChunkReceivesTest, ASmallerChunkOfTheSameFormTakesNoMore) {
    begin(chunk(0, CHUNK) + chunk(CHUNK, 24000, "5dc0\r\n") + "0\r\n\r\nPOST");
    FakeSystem system;
    EXPECT_EQ(read(PIECE), text.substr(FIRST, CHUNK - FIRST + 24000));
    EXPECT_TRUE(decoder.isComplete());
    EXPECT_EQ(system.getMade(), Lines{"recvmsg(36870+8+28666)"});
    EXPECT_EQ(connection.client.getInputStream()->get(), 'P');
}

TEST_F(ChunkReceivesTest, AsManyChunksAreExpectedAsThereAreFrames) {
    std::string bytes;
    for (std::size_t at = 0; at < 4096 * 12; at += 4096) {
        bytes += chunk(at, 4096, "1000\r\n");
    }
    begin(bytes);
    FakeSystem system;
    EXPECT_EQ(read(30000), text.substr(FIRST, 30000));
    EXPECT_EQ(system.getMade().at(0), "recvmsg(6+8+4096+8+4096+8+4096+8+4096+4095)");
}

TEST_F(ChunkReceivesTest, TheSizeOfTheLastChunkIsExpectedAgain) {
    begin(chunk(0, CHUNK) + chunk(CHUNK, 20480, "5000\r\n") + chunk(CHUNK + 20480, 20480, "5000\r\n"));
    EXPECT_EQ(read(CHUNK - FIRST + 10000), text.substr(FIRST, CHUNK - FIRST + 10000));
    FakeSystem system;
    EXPECT_EQ(read(30960), text.substr(CHUNK + 10000, 30960));
    EXPECT_EQ(system.getMade(), Lines{"recvmsg(10480+8+20480+4095)"});
}

TEST_F(ChunkReceivesTest, SmallChunksGoThroughTheBuffer) {
    std::string bytes;
    for (std::size_t at = 0; at < 100 * 256; at += 256) {
        bytes += chunk(at, 256, "100\r\n");
    }
    writeText(connection.accepted, bytes);
    FakeSystem system;
    EXPECT_EQ(read(100 * 256), text.substr(0, 100 * 256));
    EXPECT_EQ(system.madeOf("recvmsg"), Lines());
}

TEST_F(ChunkReceivesTest, LittleBehindAChunkIsReadAheadInstead) {
    begin(chunk(0, CHUNK) + chunk(CHUNK, CHUNK));
    FakeSystem system;
    EXPECT_EQ(read(CHUNK - FIRST + 4000), text.substr(FIRST, CHUNK - FIRST + 4000));
    EXPECT_EQ(system.getMade(), Lines{"recvmsg(36870+4095)"});
}

TEST_F(ChunkReceivesTest, OneThatFailsLosesNothing) {
    begin(chunk(0, CHUNK) + chunk(CHUNK, CHUNK));
    FakeSystem system;
    // The second stops within the frame.
    system.on("recvmsg", {failure(EINTR), moving(CHUNK - FIRST + 3)});
    system.on("recv", {failure(EIO)});
    EXPECT_EQ(messageOf<CvPipeException>([&] { read(PIECE); }), "CvPipe read failed.");
    system.on("recv", {moving(1), moving(10)});
    EXPECT_EQ(read(PIECE), text.substr(FIRST, PIECE));
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
