#include "support/SmallText.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace Corvane {
namespace {

TEST(SmallText, IsEmptyAtFirst) {
    const SmallText<4> text{};
    EXPECT_TRUE(text.empty());
    EXPECT_EQ(text.view(), "");
}

TEST(SmallText, HoldsTheLastTextOfAnySize) {
    SmallText<4> text;
    for (const std::string next : {"abc", "defg", "hijkl", "m", "nopqrstuvwxyz", "ABCD", "", "EFGHI"}) {
        text.assign(next);
        EXPECT_EQ(text.view(), next);
        EXPECT_EQ(text.empty(), next.empty());
    }
    text.assign(std::string("a\0b", 3));
    EXPECT_EQ(text.view(), std::string("a\0b", 3));
}

TEST(SmallText, HoldsTextsOfEachSizeAroundItsOwn) {
    SmallText<48> text;
    const std::string letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (std::size_t size = 0; size <= letters.size(); ++size) {
        text.assign(letters.substr(0, size));
        EXPECT_EQ(text.view(), letters.substr(0, size));
    }
}

}  // namespace
}  // namespace Corvane
