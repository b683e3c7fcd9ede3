#include "cvtp/Version.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace Corvane {
namespace Cvtp {
namespace {

TEST(Version, IsOneZeroByDefault) {
    EXPECT_EQ(Version().getMajor(), 1);
    EXPECT_EQ(Version().getMinor(), 0);
    EXPECT_EQ(Version::CURRENT_VERSION, Version(1, 0));
    EXPECT_EQ(Version::CURRENT_VERSION.toString(), "CVTP/1.0");
}

TEST(Version, KeepsAnyTwoNumbers) {
    const Version version(-1, 5);
    EXPECT_EQ(version.getMajor(), -1);
    EXPECT_EQ(version.getMinor(), 5);
    EXPECT_EQ(version.toString(), "CVTP/-1.5");
}

TEST(Version, ReadsALabel) {
    EXPECT_EQ(Version("CVTP/3.12"), Version(3, 12));
    EXPECT_EQ(Version(" \t CVTP/3.12 \r\n"), Version(3, 12));
    EXPECT_EQ(Version("CVTP/1.7 and more"), Version(1, 7));
    EXPECT_EQ(Version("CVTP/-2.-3"), Version(-2, -3));
}

TEST(Version, WhatALabelLacksKeepsTheValueOfOneZero) {
    EXPECT_EQ(Version("CVTP/2"), Version(2, 0));
    EXPECT_EQ(Version("CVTP/2.x"), Version(2, 0));
    EXPECT_EQ(Version("CVTP/x"), Version(1, 0));
    EXPECT_EQ(Version("CVTP/.5"), Version(1, 0));
}

TEST(Version, WhatIsNoLabelIsOneZero) {
    for (const char* text :
         {"", "CVTP/", "CVTP", "CVTP 3.12", "cvtp/3.12", "HTTP/3.12", "3.12", "XCVTP/3.12", "CVTP//3"}) {
        EXPECT_EQ(Version(text), Version(1, 0)) << text;
    }
}

TEST(Version, ANumberThatDoesNotFitBecomesTheLargestOrSmallest) {
    const std::int32_t largest = std::numeric_limits<std::int32_t>::max();
    const std::int32_t smallest = std::numeric_limits<std::int32_t>::min();
    EXPECT_EQ(Version("CVTP/99999999999999999999.-99999999999999999999"), Version(largest, smallest));
    EXPECT_EQ(Version("CVTP/4294967297.2"), Version(largest, 2));
}

TEST(Version, ScansAsTheCLibraryDoes) {
    EXPECT_EQ(Version("CVTP/ 2. 3"), Version(2, 3));
    EXPECT_EQ(Version("CVTP/+2.-3"), Version(2, -3));
    EXPECT_EQ(Version("CVTP/2 .3"), Version(2, 0));
    EXPECT_EQ(Version("CVTP/.3"), Version(1, 0));
    EXPECT_EQ(Version("CVTP/2x3"), Version(2, 0));
    EXPECT_EQ(Version("CVTP/010.08"), Version(10, 8)) << "a leading zero does not make it octal";
    EXPECT_EQ(Version("CVTP/0x5.7"), Version(0, 0));
}

TEST(Version, ComparesAsNumbersMajorFirst) {
    EXPECT_TRUE(Version(1, 10) > Version(1, 9));
    EXPECT_TRUE(Version(2, 0) > Version(1, 99));
    EXPECT_TRUE(Version(-2, 9) < Version(-1, 0));
}

TEST(Version, ItsComparisonsAgree) {
    const std::vector<Version> ascending = {Version(-1, 5), Version(0, -1), Version(0, 0),
                                            Version(1, 9),  Version(1, 10), Version(2, 0)};
    for (std::size_t i = 0; i < ascending.size(); ++i) {
        for (std::size_t j = 0; j < ascending.size(); ++j) {
            const Version& a = ascending[i];
            const Version& b = ascending[j];
            EXPECT_EQ(a == b, i == j);
            EXPECT_EQ(a != b, i != j);
            EXPECT_EQ(a < b, i < j);
            EXPECT_EQ(a <= b, i <= j);
            EXPECT_EQ(a > b, i > j);
            EXPECT_EQ(a >= b, i >= j);
        }
    }
}

TEST(Version, CopiesAndAssigns) {
    const Version original(3, 12);
    Version copy(original);
    EXPECT_EQ(copy, original);
    copy = Version();
    EXPECT_EQ(copy, Version(1, 0));
}

}  // namespace
}  // namespace Cvtp
}  // namespace Corvane
