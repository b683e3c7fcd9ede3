#include "support/Utf8String.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

namespace Corvane {
namespace {

std::string encoded(const std::string& text) {
    Xml::Utf8String utf8;
    return utf8.encode(text);
}

std::string decoded(const std::string& text) {
    Xml::Utf8String utf8;
    return utf8.decode(text);
}

TEST(Utf8String, EncodeLeavesOrdinaryTextAlone) {
    EXPECT_EQ(encoded("/Orders/42?name=value&x=1,2;+~"), "/Orders/42?name=value&x=1,2;+~");
    EXPECT_EQ(encoded("Gr\xC3\xB6\xC3\x9F"
                      "e"),
              "Gr\xC3\xB6\xC3\x9F"
              "e");
    EXPECT_EQ(encoded(""), "");
}

TEST(Utf8String, EncodeEscapesBlanksAndControlBytes) {
    EXPECT_EQ(encoded(std::string("a b\r\n\0\x7F\t", 8)), "a%20b%0D%0A%00%7F%09");
}

TEST(Utf8String, EncodeEscapesAPercentOnlyBeforeTwoHexadecimalDigits) {
    EXPECT_EQ(encoded("100%"), "100%");
    EXPECT_EQ(encoded("%4"), "%4");
    EXPECT_EQ(encoded("%4g%g4"), "%4g%g4");
    EXPECT_EQ(encoded("%41"), "%2541");
    EXPECT_EQ(encoded("%aF"), "%25aF");
    EXPECT_EQ(encoded("%%41"), "%%2541");
}

TEST(Utf8String, DecodeTakesBothCasesOfDigits) {
    EXPECT_EQ(decoded("%0d%0D%7e%41"), "\r\r~A");
}

TEST(Utf8String, DecodeLeavesWhatIsNoEscapeAlone) {
    EXPECT_EQ(decoded("%"), "%");
    EXPECT_EQ(decoded("%4"), "%4");
    EXPECT_EQ(decoded("a%4gb%%+"), "a%4gb%%+");
}

TEST(Utf8String, EachHexadecimalDigitAndNoOtherByteMakesAnEscape) {
    const std::string lower = "0123456789abcdef";
    const std::string upper = "0123456789ABCDEF";
    for (int c = 0; c < 256; ++c) {
        const char digit = static_cast<char>(c);
        const std::string::size_type value = std::min(lower.find(digit), upper.find(digit));
        const std::string first = std::string("%") + digit + "1";
        const std::string second = std::string("%4") + digit;
        const bool isDigit = value != std::string::npos;
        EXPECT_EQ(decoded(first), isDigit ? std::string(1, static_cast<char>(value * 16 + 1)) : first);
        EXPECT_EQ(decoded(second), isDigit ? std::string(1, static_cast<char>(4 * 16 + value)) : second);
        EXPECT_EQ(encoded(first) == "%25" + first.substr(1), isDigit);
        EXPECT_EQ(encoded(second) == "%25" + second.substr(1), isDigit);
    }
}

TEST(Utf8String, DecodeDoesNotDecodeItsOwnResult) {
    EXPECT_EQ(decoded("%2541"), "%41");
}

TEST(Utf8String, EveryPairOfBytesComesBack) {
    Xml::Utf8String utf8;
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const std::string text = {static_cast<char>(first), static_cast<char>(second)};
            const std::string wire = utf8.encode(text);
            ASSERT_EQ(utf8.decode(wire), text) << wire;
        }
    }
}

TEST(Utf8String, TextsMadeOfEscapesComeBackAndHoldNoBlank) {
    static const char ALPHABET[] = {'%', '4', '1', 'a', 'F', 'g', ' ', '\n', '\0', '\x80'};
    std::mt19937 random(20240229);
    Xml::Utf8String utf8;
    for (int i = 0; i < 20000; ++i) {
        std::string text(random() % 8, ' ');
        for (char& c : text) {
            c = ALPHABET[random() % sizeof ALPHABET];
        }
        const std::string wire = utf8.encode(text);
        ASSERT_EQ(wire.find_first_of(std::string(" \n\0", 3)), std::string::npos) << wire;
        ASSERT_EQ(utf8.decode(wire), text) << wire;
    }
}

TEST(Utf8String, OneObjectServesOneTextAfterAnother) {
    Xml::Utf8String utf8;
    EXPECT_EQ(utf8.encode("a longer text than the next"), "a%20longer%20text%20than%20the%20next");
    EXPECT_EQ(utf8.encode("b"), "b");
    EXPECT_EQ(utf8.decode("c%20d"), "c d");
}

}  // namespace
}  // namespace Corvane
