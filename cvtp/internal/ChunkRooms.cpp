#include "cvtp/internal/ChunkRooms.h"

#include <algorithm>
#include <numeric>
#include <string>

#include "cvtp/internal/FramingNumbers.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

const std::string_view CHUNK_END = "\r\n";

}  // namespace

ChunkRooms::ChunkRooms(char* target, std::size_t n, std::uint64_t remaining, const ChunkForm& form)
    : remaining(remaining), form(form), frameLength(form.frameLength) {
    std::size_t used = static_cast<std::size_t>(remaining);
    add(target, used);
    for (int i = 0; i < MOST_FRAMES && used < n; ++i) {
        const std::size_t part = static_cast<std::size_t>(std::min<std::uint64_t>(form.size, n - used));
        add(frames[i], frameLength);
        add(target + used, part);
        used += part;
        isWhole = part == form.size;
    }
}

void ChunkRooms::add(char* bytes, std::size_t length) {
    rooms[count++] = {bytes, static_cast<int>(length)};
}

std::size_t ChunkRooms::size() const {
    return std::accumulate(begin(), end(), std::size_t{0}, [](std::size_t sum, const Room& room) {
        return sum + static_cast<std::size_t>(room.length);
    });
}

void ChunkRooms::decode(std::size_t length) {
    received = length;
    for (int i = 0; i < count; i += 2) {
        const std::size_t room = static_cast<std::size_t>(rooms[i].length);
        const std::size_t taken =
            static_cast<std::size_t>(std::min<std::uint64_t>(std::min(room, received - decoded), remaining));
        data += taken;
        decoded += taken;
        remaining -= taken;
        const bool isFrameNext = taken == room && remaining == 0 && i + 1 < count;
        if (!isFrameNext || received - decoded < frameLength || !readFrame(rooms[i + 1].data)) {
            return;
        }
        decoded += frameLength;
    }
}

/// False when its size line is shorter or longer than expected, or that of the last chunk.
bool ChunkRooms::readFrame(const char* frame) {
    const std::string_view text(frame, frameLength);
    if (text.substr(0, CHUNK_END.size()) != CHUNK_END || text.find('\n', CHUNK_END.size()) != text.size() - 1) {
        return false;
    }
    const std::uint64_t size = parseChunkSize(text.substr(CHUNK_END.size(), frameLength - CHUNK_END.size() - 1));
    if (size == 0) {
        return false;
    }
    remaining = size;
    form.size = size;
    return true;
}

bool ChunkRooms::isChunkEndWrong(Block ahead) const {
    if (remaining > 0) {
        return false;
    }
    Block blocks[MOST_BLOCKS + 1];
    Block* const end = blocksFrom(decoded, blocks);
    *end = ahead;
    std::string start;
    for (const Block* block = blocks; block <= end && start.size() < CHUNK_END.size(); ++block) {
        start += block->substr(0, CHUNK_END.size() - start.size());
    }
    return start != CHUNK_END.substr(0, start.size());
}

ChunkRooms::Block* ChunkRooms::blocksFrom(std::size_t position, Block* blocks) const {
    std::size_t left = received;
    for (const Room* room = begin(); room != end() && left > 0; ++room) {
        const std::size_t came = std::min(static_cast<std::size_t>(room->length), left);
        left -= came;
        if (position < came) {
            *blocks++ = Block(room->data + position, came - position);
            position = 0;
        } else {
            position -= came;
        }
    }
    return blocks;
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
