#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "io/platform/PipePlatform.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// How a chunk came.
struct ChunkForm {
    /// Of its data.
    std::uint64_t size = 0;
    /// Of what stands before the data, if another chunk comes before: the end of that one and the size line.
    std::size_t frameLength = 0;
};

/// Places for the bytes of one read, which is to bring the rest of a chunk and the chunks behind it. A sender's
/// chunks nearly always have one size. So their frames are given places of their own at where they should stand,
/// and the data falls into its place at once. Where the frames stand elsewhere, what came is decoded up to there.
class ChunkRooms {
 public:
    using Room = Io::Platform::Room;
    using Block = std::string_view;

    /// The most frames that one read brings. With more of them the chunks are so small that copies cost little.
    static constexpr int MOST_FRAMES = 4;
    /// A frame is not longer.
    static constexpr std::size_t FRAME_BUFFER = 22;
    /// The most blocks that blocksFrom() gives.
    static constexpr int MOST_BLOCKS = 2 * MOST_FRAMES + 1;

    /// @param target of the data, `n` bytes, not owned.
    /// @param remaining of the current chunk; less than `n`.
    /// @param form of the chunk before, which the ones to come are expected to have.
    ChunkRooms(char* target, std::size_t n, std::uint64_t remaining, const ChunkForm& form);
    ChunkRooms(const ChunkRooms&) = delete;
    ChunkRooms& operator=(const ChunkRooms&) = delete;

    const Room* begin() const { return rooms; }
    const Room* end() const { return rooms + count; }
    /// Of all together.
    std::size_t size() const;
    /// Whether they end where a chunk should end.
    bool isChunkEndExpected() const { return isWhole; }

    /// Decodes `received` bytes, which fill the rooms one after another, as far as they are in their places.
    void decode(std::size_t received);

    /// The first so many bytes of the target are data.
    std::size_t dataLength() const { return data; }
    /// Of the chunk that they end in, or with.
    std::uint64_t remainingOfChunk() const { return remaining; }
    const ChunkForm& formOfChunk() const { return form; }
    /// The number of received bytes up to there, frames included; those behind it are not decoded.
    std::size_t decodedLength() const { return decoded; }
    /// Whether what stands behind a chunk, or its first byte, is not what should.
    bool isChunkEndWrong(Block ahead) const;

    /// The received bytes from a position on.
    ///
    /// @return the end of them in `blocks`, which has room for MOST_BLOCKS.
    Block* blocksFrom(std::size_t position, Block* blocks) const;

 private:
    void add(char* bytes, std::size_t length);
    bool readFrame(const char* frame);

    Room rooms[2 * MOST_FRAMES + 1];
    int count = 0;
    bool isWhole = true;
    std::uint64_t remaining;
    ChunkForm form;
    const std::size_t frameLength;
    std::size_t received = 0;
    std::size_t decoded = 0;
    std::size_t data = 0;
    char frames[MOST_FRAMES][FRAME_BUFFER];
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
