#include "cvtp/internal/ChunkRooms.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

std::vector<int> lengthsOf(const ChunkRooms& rooms) {
    std::vector<int> lengths;
    for (const ChunkRooms::Room* room = rooms.begin(); room != rooms.end(); ++room) {
        lengths.push_back(room->length);
    }
    return lengths;
}

/// Fills the rooms as a read does.
void fill(const ChunkRooms& rooms, const std::string& bytes) {
    std::size_t at = 0;
    for (const ChunkRooms::Room* room = rooms.begin(); room != rooms.end() && at < bytes.size(); ++room) {
        at += bytes.copy(room->data, static_cast<std::size_t>(room->length), at);
    }
}

std::string undecoded(const ChunkRooms& rooms, std::size_t from) {
    ChunkRooms::Block blocks[ChunkRooms::MOST_BLOCKS];
    const ChunkRooms::Block* const end = rooms.blocksFrom(from, blocks);
    std::string bytes;
    for (const ChunkRooms::Block* block = blocks; block != end; ++block) {
        bytes += *block;
    }
    return bytes;
}

class ChunkRoomsTest : public testing::Test {
 protected:
    char target[100] = {};
};

TEST_F(ChunkRoomsTest, EndWithTheTargetOrWithTheLastFrame) {
    const ChunkRooms inChunk(target, 20, 3, {10, 6});
    EXPECT_EQ(lengthsOf(inChunk), (std::vector<int>{3, 6, 10, 6, 7}));
    EXPECT_FALSE(inChunk.isChunkEndExpected());
    EXPECT_EQ(inChunk.size(), 32u);
    const ChunkRooms atChunkEnd(target, 23, 3, {10, 6});
    EXPECT_EQ(lengthsOf(atChunkEnd), (std::vector<int>{3, 6, 10, 6, 10}));
    EXPECT_TRUE(atChunkEnd.isChunkEndExpected());
    const ChunkRooms small(target, 100, 3, {4, 5});
    EXPECT_EQ(lengthsOf(small), (std::vector<int>{3, 5, 4, 5, 4, 5, 4, 5, 4}));
    EXPECT_TRUE(small.isChunkEndExpected());
}

TEST_F(ChunkRoomsTest, FramesOfTheSameLengthMayGiveOtherSizes) {
    ChunkRooms rooms(target, 20, 3, {10, 5});
    fill(rooms, "abc\r\nf\r\ndefghijklm");
    rooms.decode(18);
    EXPECT_EQ(std::string(target, rooms.dataLength()), "abcdefghijklm");
    EXPECT_EQ(rooms.decodedLength(), 18u);
    EXPECT_EQ(rooms.remainingOfChunk(), 5u);
    EXPECT_EQ(rooms.formOfChunk().size, 15u);
    EXPECT_FALSE(rooms.isChunkEndWrong({}));
}

TEST_F(ChunkRoomsTest, ChunkThatEndsWithinItsRoomIsTheLastInPlace) {
    ChunkRooms rooms(target, 20, 3, {9, 5});
    fill(rooms, "abc\r\n4\r\ndefg\r\n9\r\nhij");
    rooms.decode(20);
    EXPECT_EQ(std::string(target, rooms.dataLength()), "abcdefg");
    EXPECT_EQ(rooms.remainingOfChunk(), 0u);
    EXPECT_EQ(undecoded(rooms, rooms.decodedLength()), "\r\n9\r\nhij");
    EXPECT_EQ(undecoded(rooms, 0), "abc\r\n4\r\ndefg\r\n9\r\nhij");
}

TEST_F(ChunkRoomsTest, AFrameThatCameInPartIsNone) {
    ChunkRooms rooms(target, 20, 3, {9, 5});
    // The rest of it is from before.
    fill(rooms, "abc\r\n9\r\n");
    rooms.decode(6);
    EXPECT_EQ(rooms.decodedLength(), 3u);
    EXPECT_EQ(rooms.remainingOfChunk(), 0u);
    EXPECT_EQ(undecoded(rooms, 3), "\r\n9");
}

TEST_F(ChunkRoomsTest, DataAtThePlaceOfAFrameIsNone) {
    ChunkRooms rooms(target, 40, 3, {4, 5});
    fill(rooms, "abc\r\nd\r\ndefg\r\n4\r\nhijk");
    rooms.decode(21);
    EXPECT_EQ(std::string(target, rooms.dataLength()), "abcdefg");
    EXPECT_EQ(rooms.remainingOfChunk(), 9u);
    EXPECT_EQ(undecoded(rooms, rooms.decodedLength()), "\r\n4\r\nhijk");
}

TEST_F(ChunkRoomsTest, AnEndIsWrongAsSoonAsItsFirstByteIs) {
    for (const std::string end : {"x", "\rx", "\n\r", "\r\r9"}) {
        ChunkRooms rooms(target, 20, 3, {9, 5});
        fill(rooms, "abc" + end);
        rooms.decode(3 + end.size());
        EXPECT_TRUE(rooms.isChunkEndWrong({})) << testing::PrintToString(end);
    }
    for (const std::string end : {"", "\r", "\r\n", "\r\nx"}) {
        ChunkRooms rooms(target, 20, 3, {9, 5});
        fill(rooms, "abc" + end);
        rooms.decode(3 + end.size());
        EXPECT_FALSE(rooms.isChunkEndWrong({})) << testing::PrintToString(end);
    }
}

TEST_F(ChunkRoomsTest, AnEndMayStandInWhatWasReadAhead) {
    ChunkRooms rooms(target, 7, 3, {4, 5});
    fill(rooms, "abc\r\n4\r\ndefg");
    rooms.decode(12);
    EXPECT_FALSE(rooms.isChunkEndWrong("\r\n"));
    EXPECT_TRUE(rooms.isChunkEndWrong("\rx"));
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
