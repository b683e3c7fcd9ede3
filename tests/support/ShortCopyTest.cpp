#include "support/ShortCopy.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace Corvane {
namespace Testing {
namespace {

TEST(ShortCopy, CopiesEachSizeAndNothingAroundIt) {
    const std::string text = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMN";
    for (std::size_t size = 0; size <= text.size(); ++size) {
        std::string target(size + 2, '-');
        char* const end = putShort(&target[1], {text.data(), size});
        EXPECT_EQ(target, "-" + text.substr(0, size) + "-");
        EXPECT_EQ(end, &target[size + 1]);
    }
}

TEST(ShortCopy, CopiesAnEmptyTextThatStandsNowhere) {
    char target = '-';
    EXPECT_EQ(putShort(&target, {}), &target);
    EXPECT_EQ(target, '-');
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
