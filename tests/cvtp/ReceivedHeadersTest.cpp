#include "cvtp/internal/ReceivedHeaders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

using Texts = std::vector<std::string>;

TEST(HeaderLine, IsTakenApartAtItsFirstColon) {
    struct Case {
        std::string line;
        std::string name;
        std::string value;
    };
    const std::vector<Case> cases{
        {"A: 1", "A", "1"},
        {"A:1", "A", "1"},
        {"A", "A", ""},
        {"A:", "A", ""},
        {":", "", ""},
        {": 1", "", "1"},
        {"A: b:c", "A", "b:c"},
        {"A :\t 1 \t", "A ", "1"},
        {"", "", ""},
        {"A:  \t ", "A", ""},
        {"A: \v1\r ", "A", "\v1\r"},
    };
    for (const Case& test : cases) {
        const HeaderLine line(test.line);
        EXPECT_EQ(line.name, test.name) << test.line;
        EXPECT_EQ(line.value, test.value) << test.line;
    }
}

TEST(ReceivedHeaders, HaveTheSameFirstValueBeforeAndAfterTheyWereSorted) {
    struct Case {
        std::string lines;
        std::string value;
    };
    const std::vector<Case> cases{
        {"Content-Length: 5\r\n", "5"},
        {"cONTENT-lENGTH\t: 5\n", "5"},
        {"Content-Length: ,5\r\n", "5"},
        {"Content-Length: ,, ,\r\n", ""},
        {"Content-Length: 5\r\nContent-Length: 7\r\n", "5"},
        {"Content-Length:\r\nA: 1\r\ncontent-length: 7\r\n", "7"},
        {"Content-Length\r\nContent-Length: , 7 8 , 9\r\n", "7 8"},
        {"Content-Lengths: 5\r\nContent-Lengt: 6\r\n", ""},
        {"Content-Length\v: 5\n", ""},
        {"Content-Length: \r5\r\r\n", "5"},
        {"A: x\nContent-Length: 5\r6\n", "5\r6"},
        {"\rContent-Length\r: 5\r\n", "5"},
        {std::string("Content-Length: 5\0006\n", 20), std::string("5\0006", 3)},
        {std::string("Content-Length\0: 5\n", 19), ""},
    };
    for (const Case& test : cases) {
        ReceivedHeaders headers;
        headers.keep(test.lines);
        EXPECT_EQ(headers.firstValue("Content-Length"), test.value) << test.lines;
        static_cast<void>(headers.all());
        EXPECT_EQ(headers.firstValue("Content-Length"), test.value) << test.lines;
    }
}

/// Few names in many spellings, so that they meet.
std::string someLine(std::mt19937& random) {
    static const Texts NAMES{"A", "a", " A", "a\t", "B-b", "b-B ", "", "\t", "C\r", "\xE4", "A\v", "C", "Aa"};
    static const Texts VALUES{"",
                              "1",
                              " 2 ",
                              ",3",
                              "4, 5,",
                              "\t6",
                              " , ,",
                              "7\r",
                              "\r8",
                              "9 9",
                              "x:y",
                              " \v",
                              " long enough for memory of its own"};
    std::string line = NAMES[random() % NAMES.size()];
    if (random() % 6 > 0) {
        line += ":" + VALUES[random() % VALUES.size()];
    }
    return line;
}

/// By hand, and not with the parts of what is tested.
void addByHand(CvtpHeaders& headers, const std::string& line) {
    const std::string::size_type colon = line.find(':');
    std::string value = colon == std::string::npos ? "" : line.substr(colon + 1);
    value.erase(0, std::min(value.find_first_not_of(" \t"), value.size()));
    value.erase(value.find_last_not_of(" \t") + 1);
    headers.add(line.substr(0, colon), value);
}

Texts textsOf(const CvtpHeaders& headers) {
    Texts texts;
    for (const auto& header : headers) {
        texts.push_back(header.first + " " + header.second.getName() + ": " + header.second.getJoined());
    }
    return texts;
}

void expectFirstValues(const ReceivedHeaders& headers, const CvtpHeaders& expected) {
    for (const char* const name : {"A", "a ", "B-B", "", " \r\n", "C", "aA", "\xE4", "A\v", "none"}) {
        EXPECT_EQ(headers.firstValue(name), expected.get(name)) << name;
    }
}

TEST(ReceivedHeaders, AreThoseThatEachLineAdds) {
    std::mt19937 random(4);
    for (int round = 0; round < 2000 && !testing::Test::HasFailure(); ++round) {
        std::string lines;
        CvtpHeaders expected;
        for (auto count = random() % 7; count > 0; --count) {
            const std::string line = someLine(random);
            const bool isCr = random() % 3 > 0;
            lines += line + (isCr ? "\r\n" : "\n");
            // Directly before the line feed a carriage return is always part of the line's end.
            addByHand(expected,
                      !isCr && !line.empty() && line.back() == '\r' ? line.substr(0, line.size() - 1) : line);
        }
        ReceivedHeaders headers;
        headers.keep(lines);
        lines.assign(lines.size(), 'x');
        expectFirstValues(headers, expected);
        EXPECT_EQ(textsOf(headers.all()), textsOf(expected)) << "round " << round;
        expectFirstValues(headers, expected);
        headers.add("b-B", "10");
        expected.add("b-B", "10");
        EXPECT_EQ(textsOf(headers.all()), textsOf(expected)) << "round " << round;
    }
}

TEST(ReceivedHeaders, AreNoneWhileNothingWasKept) {
    ReceivedHeaders headers;
    EXPECT_EQ(headers.firstValue("A"), "");
    EXPECT_TRUE(headers.all().names().empty());
}

TEST(ReceivedHeaders, AreKeptAlsoAfterSomebodyAskedTooEarly) {
    ReceivedHeaders headers;
    EXPECT_TRUE(headers.all().names().empty());
    headers.keep("A: 1\r\n");
    EXPECT_EQ(headers.firstValue("A"), "1");
    EXPECT_EQ(textsOf(headers.all()), (Texts{"A A: 1"}));
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
