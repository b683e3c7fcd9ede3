// How many calls of the system it takes to read a chunked body.

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <thread>

#include "cvtp/internal/IStreamBuffer.h"
#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::Contains;

const std::size_t PIECE = 65536;
const std::size_t CHUNK = 40960;

/// No two pieces of it are the same.
std::string numbered(std::size_t size) {
    std::string text;
    for (int i = 0; text.size() < size; ++i) {
        text += std::to_string(i) + ",";
    }
    text.resize(size);
    return text;
}

class ChunkReceivesTest : public FaultTest {
 protected:
    ChunkReceivesTest() {
        connection.client.getInputStream()->rdbuf()->pubsetbuf(memory, sizeof memory);
        // The whole of a body is to lie in the pipe.
        connection.accepted.setReadTimeout(5000);
    }
    void TearDown() override {
        connection.client.close();
        connection.accepted.close();
    }

    void write(const std::string& bytes) { connection.accepted.writePipe(bytes.data(), 0, int(bytes.size())); }
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
    write("a000\r\n");
    // Nothing of the first chunk comes with its size line.
    std::thread writer([&] { write(chunk(0, CHUNK, "") + chunk(CHUNK, CHUNK) + chunk(2 * CHUNK, CHUNK)); });
    EXPECT_EQ(read(1), text.substr(0, 1));
    writer.join();
    EXPECT_EQ(read(4095), text.substr(1, 4095));
    FakeSystem system;
    EXPECT_EQ(read(PIECE), text.substr(4096, PIECE));
    EXPECT_EQ(system.getMade(), Lines{"recvmsg(36864+8+28672)"});
    system.forgetMade();
    // To the end of a chunk: the next frame is read ahead.
    EXPECT_EQ(read(12288), text.substr(4096 + PIECE, 12288));
    EXPECT_EQ(system.getMade(), Lines{"recvmsg(12288+4095)"});
}

TEST_F(ChunkReceivesTest, ASmallerChunkOfTheSameFormTakesNoMore) {
    write("a000\r\n");
    std::thread writer([&] { write(chunk(0, CHUNK, "") + chunk(CHUNK, 24000, "5dc0\r\n") + "0\r\n\r\nPOST"); });
    EXPECT_EQ(read(4096), text.substr(0, 4096));
    writer.join();
    FakeSystem system;
    EXPECT_EQ(read(PIECE), text.substr(4096, CHUNK - 4096 + 24000));
    EXPECT_TRUE(decoder.isComplete());
    EXPECT_EQ(system.getMade(), Lines{"recvmsg(36864+8+28672)"});
    EXPECT_EQ(connection.client.getInputStream()->get(), 'P');
}

TEST_F(ChunkReceivesTest, AsManyChunksAreExpectedAsThereAreFrames) {
    write("1000\r\n");
    std::string bytes = text.substr(0, 4096) + "\r\n";
    for (std::size_t at = 4096; at < 4096 * 12; at += 4096) {
        bytes += chunk(at, 4096, "1000\r\n");
    }
    std::thread writer([&] { write(bytes); });
    EXPECT_EQ(read(4096), text.substr(0, 4096));
    writer.join();
    FakeSystem system;
    // Here ends what was read ahead with the first chunk.
    EXPECT_EQ(read(4096), text.substr(4096, 4096));
    system.forgetMade();
    EXPECT_EQ(read(30000), text.substr(8192, 30000));
    EXPECT_THAT(system.getMade(), Contains("recvmsg(17+8+4096+8+4096+8+4096+8+4096+4095)"));
}

TEST_F(ChunkReceivesTest, LittleBehindAChunkIsReadAheadInstead) {
    write("a000\r\n");
    std::thread writer([&] { write(chunk(0, CHUNK, "") + chunk(CHUNK, CHUNK)); });
    EXPECT_EQ(read(4096), text.substr(0, 4096));
    writer.join();
    FakeSystem system;
    EXPECT_EQ(read(CHUNK - 4096 + 4000), text.substr(4096, CHUNK - 4096 + 4000));
    EXPECT_EQ(system.getMade(), Lines{"recvmsg(36864+4095)"});
}

TEST_F(ChunkReceivesTest, OneThatFailsLosesNothing) {
    write("a000\r\n");
    std::thread writer([&] { write(chunk(0, CHUNK, "") + chunk(CHUNK, CHUNK)); });
    EXPECT_EQ(read(4096), text.substr(0, 4096));
    writer.join();
    FakeSystem system;
    // The second stops within the frame.
    system.on("recvmsg", {failure(EINTR), moving(CHUNK - 4096 + 3)});
    system.on("recv", {failure(EIO)});
    EXPECT_EQ(messageOf<CvPipeException>([&] { read(PIECE); }), "CvPipe read failed.");
    system.on("recv", {moving(1), moving(10)});
    EXPECT_EQ(read(PIECE), text.substr(4096, PIECE));
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
