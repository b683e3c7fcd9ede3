#include "cvtp/internal/FramingNumbers.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

TEST(ContentLength, IsTheDecimalPrefix) {
    EXPECT_EQ(parseContentLength("0"), 0);
    EXPECT_EQ(parseContentLength("12345"), 12345);
    EXPECT_EQ(parseContentLength(" \t\r\n\v\f12"), 12);
    EXPECT_EQ(parseContentLength("+12"), 12);
    EXPECT_EQ(parseContentLength("-12"), -12);
    EXPECT_EQ(parseContentLength("0012"), 12);
    EXPECT_EQ(parseContentLength("12x34"), 12);
    EXPECT_EQ(parseContentLength(std::string("12\0"
                                             "34",
                                             5)),
              12);
}

TEST(ContentLength, HasDigitsOfItsBaseAndNoOtherCharacters) {
    const std::string digits = "0123456789";
    for (int c = 0; c < 256; ++c) {
        const std::string text = {'1', static_cast<char>(c), '1'};
        const auto digit = digits.find(text[1]);
        const std::int64_t expected = digit == std::string::npos ? 1 : 101 + 10 * static_cast<std::int64_t>(digit);
        EXPECT_EQ(parseContentLength(text), expected) << c;
    }
}

TEST(ChunkSize, HasDigitsOfItsBaseAndNoOtherCharacters) {
    const std::string digits = "0123456789abcdef0123456789ABCDEF";
    for (int c = 0; c < 256; ++c) {
        const std::string text = {'1', static_cast<char>(c), '1'};
        const auto digit = digits.find(text[1]);
        const std::uint64_t expected = digit == std::string::npos ? 1 : 0x101 + 16 * (digit % 16);
        EXPECT_EQ(parseChunkSize(text), expected) << c;
    }
}

TEST(ContentLength, OfGarbageIsZero) {
    for (const char* text : {"", " ", "x", "x12", "+", "-", "+-12", "- 12", ".5", "0x12"}) {
        EXPECT_EQ(parseContentLength(text), 0) << text;
    }
}

TEST(ContentLength, HasSixtyFourBits) {
    EXPECT_EQ(parseContentLength("2147483648"), INT64_C(2147483648));
    EXPECT_EQ(parseContentLength("4294967301"), INT64_C(4294967301));
    EXPECT_EQ(parseContentLength("9223372036854775807"), INT64_MAX);
}

TEST(ContentLength, ThatDoesNotFitIsTheLargest) {
    EXPECT_EQ(parseContentLength("9223372036854775808"), INT64_MAX);
    EXPECT_EQ(parseContentLength("18446744073709551615"), INT64_MAX);
    EXPECT_EQ(parseContentLength("18446744073709551616"), INT64_MAX);
    EXPECT_EQ(parseContentLength(std::string(100, '9')), INT64_MAX);
    EXPECT_LT(parseContentLength("-" + std::string(100, '9')), 0);
}

TEST(ChunkSize, IsTheHexadecimalPrefix) {
    EXPECT_EQ(parseChunkSize("0"), 0U);
    EXPECT_EQ(parseChunkSize("1aF"), 0x1AFU);
    EXPECT_EQ(parseChunkSize(" \t5\r"), 5U);
    EXPECT_EQ(parseChunkSize("0x1f"), 0x1FU);
    EXPECT_EQ(parseChunkSize("0X1f"), 0x1FU);
    EXPECT_EQ(parseChunkSize("5;name"), 5U);
    EXPECT_EQ(parseChunkSize("5g"), 5U);
    EXPECT_EQ(parseChunkSize("1x5"), 1U);
    EXPECT_EQ(parseChunkSize("00000000000000005"), 5U);
}

TEST(ChunkSize, OfGarbageIsZero) {
    for (const char* text : {"", " ", "x5", "g", "+5", "-5", "0x", "0xg", ";5"}) {
        EXPECT_EQ(parseChunkSize(text), 0U) << text;
    }
}

TEST(ChunkSize, HasSixtyFourBitsAndStopsAtTheLargest) {
    EXPECT_EQ(parseChunkSize("100000005"), UINT64_C(0x100000005));
    EXPECT_EQ(parseChunkSize("fffffffffffffff0"), UINT64_MAX - 15);
    EXPECT_EQ(parseChunkSize("ffffffffffffffff"), UINT64_MAX);
    EXPECT_EQ(parseChunkSize("10000000000000000"), UINT64_MAX);
    EXPECT_EQ(parseChunkSize("1000000000000000005"), UINT64_MAX);
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
