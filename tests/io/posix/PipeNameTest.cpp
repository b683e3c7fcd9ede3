#include "io/platform/posix/PipeName.h"

#include <gtest/gtest.h>

#include <string>

namespace Corvane {
namespace Io {
namespace Platform {
namespace {

const std::size_t ROOM = 90;

TEST(PipeName, HasOneTo256BytesAndNeitherBackslashNorNul) {
    EXPECT_FALSE(isPipeName(""));
    EXPECT_TRUE(isPipeName("a"));
    EXPECT_TRUE(isPipeName(std::string(256, 'a')));
    EXPECT_FALSE(isPipeName(std::string(257, 'a')));
    EXPECT_FALSE(isPipeName("a\\b"));
    EXPECT_FALSE(isPipeName(std::string("a\0b", 3)));
    EXPECT_TRUE(isPipeName("../../etc/\n\x7F"));
}

TEST(PipeName, AnOrdinaryNameIsTheFileName) {
    EXPECT_EQ(pipeFileName("service-1_a.b c~(x)$", ROOM), "service-1_a.b c~(x)$");
}

TEST(PipeName, AsciiLettersBecomeSmallAndOtherBytesStay) {
    EXPECT_EQ(pipeFileName("ABCxyzZ@[`{", ROOM), "abcxyzz@[`{");
    EXPECT_EQ(pipeFileName("\xC3\x84\xFF\x80", ROOM), "\xC3\x84\xFF\x80");
}

TEST(PipeName, BlanksAndUtf8StayAsTheyAre) {
    EXPECT_EQ(pipeFileName(" a  b ", ROOM), " a  b ");
    // The letters of other alphabets have no other case here, as bytes.
    EXPECT_EQ(pipeFileName("Gr\xC3\xBC\xC3\x9F"
                           "E \xC3\x84",
                           ROOM),
              "gr\xC3\xBC\xC3\x9F"
              "e \xC3\x84");
}

TEST(PipeName, AHundredBytesNeedADigestWhereThePathIsShort) {
    EXPECT_EQ(pipeFileName(std::string(100, 'a'), 100), std::string(100, 'a'));
    EXPECT_EQ(pipeFileName(std::string(100, 'a'), ROOM).substr(0, 8), "%sha256-");
    EXPECT_EQ(pipeFileName("a", ROOM), "a");
}

TEST(PipeName, WhatIsUnfitIsEscaped) {
    EXPECT_EQ(pipeFileName("a/b", ROOM), "a%2Fb");
    EXPECT_EQ(pipeFileName("50%", ROOM), "50%25");
    EXPECT_EQ(pipeFileName("\x01\n\x1F\x7F ", ROOM), "%01%0A%1F%7F ");
}

TEST(PipeName, NeverBeginsWithAPoint) {
    EXPECT_EQ(pipeFileName(".", ROOM), "%2E");
    EXPECT_EQ(pipeFileName("..", ROOM), "%2E.");
    EXPECT_EQ(pipeFileName(".pipe.lock", ROOM), "%2Epipe.lock");
    EXPECT_EQ(pipeFileName("../../x", ROOM), "%2E.%2F..%2Fx");
}

TEST(PipeName, ALongNameBecomesADigestOfTheLoweredName) {
    const std::string small(200, 'a');
    const std::string DIGEST = "%sha256-c2a908d98f5df987ade41b5fce213067efbcc21ef2240212a41e54b5e7c28ae5";
    EXPECT_EQ(pipeFileName(small, 199), DIGEST);
    EXPECT_EQ(pipeFileName(std::string(200, 'A'), 199), DIGEST);
    EXPECT_EQ(pipeFileName(small, 200), small);
    EXPECT_NE(pipeFileName(small + "b", 199), DIGEST);
}

TEST(PipeName, ADigestIsCutToTheRoomButNotBelowHalf) {
    const std::string small(200, 'a');
    EXPECT_EQ(pipeFileName(small, 72).size(), 72u);
    EXPECT_EQ(pipeFileName(small, 71), pipeFileName(small, 72).substr(0, 71));
    EXPECT_EQ(pipeFileName(small, 40), pipeFileName(small, 72).substr(0, 40));
    EXPECT_EQ(pipeFileName(small, 39), "");
}

TEST(PipeName, ALiteralNameCannotLookLikeADigest) {
    EXPECT_EQ(pipeFileName("%sha256-00", ROOM), "%25sha256-00");
}

TEST(PipeName, ComesBackFromTheFileNameInSmallLetters) {
    std::string all;
    for (int c = 1; c < 256; ++c) {
        all += c >= 'A' && c <= 'Z' ? std::string() : std::string(1, static_cast<char>(c));
    }
    for (const std::string& name : {all, std::string("a/b"), std::string(".."), std::string("50%"),
                                    std::string("%2f"), std::string("%sha256-00"), std::string("x%")}) {
        EXPECT_EQ(pipeNameOf(pipeFileName(name, 1000)), name);
    }
    EXPECT_EQ(pipeNameOf(pipeFileName("ABC", ROOM)), "abc");
}

TEST(PipeName, ADigestIsShownAsItIs) {
    const std::string digest = pipeFileName(std::string(200, 'a'), ROOM);
    EXPECT_EQ(pipeNameOf(digest), digest);
    // What no name is written as, stays.
    for (const std::string text : {"%", "%2", "a%", "%2f", "%G0", "%0G"}) {
        EXPECT_EQ(pipeNameOf(text), text);
    }
}

TEST(PipeName, TheEscapedNameCounts) {
    EXPECT_EQ(pipeFileName(std::string(30, '/'), 90).size(), 90u);
    EXPECT_EQ(pipeFileName(std::string(30, '/'), 89).substr(0, 8), "%sha256-");
}

}  // namespace
}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
