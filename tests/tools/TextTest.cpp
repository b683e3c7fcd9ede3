#include "tools/cvtp/Text.h"

#include <gtest/gtest.h>

using Corvane::Tools::byteCount;
using Corvane::Tools::printable;

TEST(Text, ControlBytesBecomeQuestionMarks) {
    EXPECT_EQ("a?b?c?d?", printable("a\nb\x1b"
                                    "c\x7f"
                                    "d\x1f"));
}

TEST(Text, OtherBytesStay) {
    EXPECT_EQ("a ~\xc3\xa4", printable("a ~\xc3\xa4"));
}

TEST(Text, OnlyOneByteIsSingular) {
    EXPECT_EQ("0 bytes", byteCount(0));
    EXPECT_EQ("1 byte", byteCount(1));
    EXPECT_EQ("2 bytes", byteCount(2));
}
