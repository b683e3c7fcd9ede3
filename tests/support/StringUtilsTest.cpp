#include "support/StringUtils.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace Corvane {
namespace {

TEST(CharacterSet, FindsItsCharactersAtEachPlaceOfEachText) {
    const StringUtils::CharacterSet set("x\xFF");
    for (std::size_t size = 0; size < 14; ++size) {
        EXPECT_FALSE(set.isAnyIn(std::string(size, '-'))) << size;
        for (std::size_t i = 0; i < size; ++i) {
            for (const char c : {'x', '\xFF'}) {
                std::string text(size, '-');
                text[i] = c;
                EXPECT_TRUE(set.isAnyIn(text)) << size << ", " << i;
                EXPECT_FALSE(set.isAnyIn(std::string_view(text).substr(0, i))) << size << ", " << i;
                EXPECT_FALSE(set.isAnyIn(std::string_view(text).substr(i + 1))) << size << ", " << i;
            }
        }
    }
}

TEST(CharacterSet, FindsNulAmongOthers) {
    for (const char end : {'\r', '\n', '\0'}) {
        EXPECT_TRUE(StringUtils::LINE_ENDS.isAnyIn(std::string("abcd") + end));
        EXPECT_TRUE(StringUtils::LINE_ENDS.isAnyIn(std::string("ab") + end + "c"));
    }
    EXPECT_FALSE(StringUtils::LINE_ENDS.isAnyIn("abcdef"));
}

TEST(StringUtils, TrimRemovesEachKindOfWhiteSpaceFromBothEnds) {
    EXPECT_EQ(StringUtils::trim(" \t\r\n\v\fabc\f\v\n\r\t "), "abc");
}

TEST(StringUtils, TrimKeepsWhiteSpaceInside) {
    EXPECT_EQ(StringUtils::trim(" a \t b "), "a \t b");
}

TEST(StringUtils, TrimOfNothingButWhiteSpaceIsEmpty) {
    EXPECT_EQ(StringUtils::trim(" \t\r\n"), "");
    EXPECT_EQ(StringUtils::trim(""), "");
}

TEST(StringUtils, TrimLeavesOtherControlBytes) {
    const std::string text("\0 a\x01", 4);
    EXPECT_EQ(StringUtils::trim(text), text);
}

TEST(StringUtils, TrimTakesItsOwnSetOfCharacters) {
    EXPECT_EQ(StringUtils::trim("\r \tabc\t \r", " \t"), "\r \tabc\t \r");
    EXPECT_EQ(StringUtils::trim(" \tabc\t ", " \t"), "abc");
}

TEST(StringUtils, OnOneLineTurnsEachLineEndAndNulIntoOneBlank) {
    EXPECT_EQ(StringUtils::onOneLine(std::string("a\r\nb\0c", 6)), "a  b c");
}

TEST(StringUtils, OnOneLineLeavesEverythingElse) {
    std::string text;
    for (int c = 1; c < 256; ++c) {
        if (c != '\r' && c != '\n') {
            text += static_cast<char>(c);
        }
    }
    EXPECT_EQ(StringUtils::onOneLine(text), text);
}

TEST(StringUtils, PutOnOneLineDoesItInPlace) {
    std::string text = "\ra\n";
    StringUtils::putOnOneLine(text);
    EXPECT_EQ(text, " a ");
}

}  // namespace
}  // namespace Corvane
