#include "cvtp/internal/HeadersToSend.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "cvtp/CvtpMessage.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

using Corvane::Cvtp::CvtpMessage;
using Lines = std::vector<std::string>;

Lines linesOf(const HeadersToSend& headers) {
    Lines lines;
    headers.forEach([&lines](std::string_view name, std::string_view values) {
        lines.push_back(std::string(name) + ": " + std::string(values));
    });
    return lines;
}

Lines linesOf(const CvtpHeaders& headers) {
    Lines lines;
    for (const auto& header : headers) {
        lines.push_back(header.second.getName() + ": " + header.second.getJoined());
    }
    return lines;
}

/// The same headers twice: as they are sent, and in the plain collection, which never keeps any apart.
struct Pair {
    void setProgram(const std::string& name, const std::string& value) {
        headers.setProgram(name, value);
        plain.set(name, value);
    }
    void addLength(std::size_t length) {
        headers.addLength(length);
        plain.add(CvtpMessage::HEADER_CONTENT_LENGTH, std::to_string(length));
    }
    void add(const std::string& name, const std::string& value) {
        headers.add(name, value);
        plain.add(name, value);
    }
    void set(const std::string& name, const std::string& value) {
        headers.set(name, value);
        plain.set(name, value);
    }
    void remove(const std::string& name) {
        headers.remove(name);
        plain.remove(name);
    }

    HeadersToSend headers;
    CvtpHeaders plain;
};

/// Names that meet those of the library, and some around them in the order of names.
const std::string& someName(std::mt19937& random) {
    static const Lines NAMES{"content-length", " User-Agent\t", "SERVER", "Server",   "Content-Length", "A",
                             "Content",        "Content-Zone",  "Sf",     "T\v",      "user-agent",     "",
                             "Zulu",           "\xE4",          "  \r\n", "Server\v", "contenT-Length"};
    return NAMES[random() % NAMES.size()];
}

/// As they come from an application: no value at all, several, none but blanks, line ends at both sides.
const std::string& someValue(std::mt19937& random) {
    static const Lines VALUES{
        "",     " ",    ",",       "one",      "a,b",        " a , b ,", "\r\nx\r\n",
        "\tt ", "5",    ",5",      "a  b",     "\v",         "\xC3\xA4", "longer than a short string",
        "a,",   "c\vd", "\r\n, x", "Prog/1.0", "Two words/2"};
    return VALUES[random() % VALUES.size()];
}

void takeAStep(Pair& pair, std::mt19937& random) {
    const std::string& name = someName(random);
    switch (random() % 6) {
        case 0:
            pair.add(name, someValue(random));
            break;
        case 1:
            pair.set(name, someValue(random));
            break;
        case 2:
            pair.remove(name);
            break;
        default:
            pair.addLength(random() % 3 == 0 ? SIZE_MAX - random() % 2 : random() % 2000);
    }
}

TEST(HeadersToSend, AreTheSameAndInTheSameOrderAsInTheCollection) {
    std::mt19937 random(6);
    for (int round = 0; round < 5000; ++round) {
        Pair pair;
        if (random() % 8 > 0) {
            const std::string* const names[] = {&CvtpMessage::HEADER_SERVER, &CvtpMessage::HEADER_USER_AGENT};
            pair.setProgram(*names[random() % 2], someValue(random));
        }
        ASSERT_EQ(linesOf(pair.headers), linesOf(pair.plain)) << "round " << round;
        for (auto steps = random() % 5; steps > 0; --steps) {
            takeAStep(pair, random);
            ASSERT_EQ(linesOf(pair.headers), linesOf(pair.plain)) << "round " << round;
        }
    }
}

TEST(HeadersToSend, HaveTheLengthBeforeEitherProgram) {
    for (const std::string* const name : {&CvtpMessage::HEADER_SERVER, &CvtpMessage::HEADER_USER_AGENT}) {
        Pair pair;
        pair.setProgram(*name, "Counter/2.1");
        pair.addLength(0);
        EXPECT_EQ(linesOf(pair.headers), (Lines{"Content-Length: 0", *name + ": Counter/2.1"}));
        EXPECT_EQ(linesOf(pair.headers), linesOf(pair.plain));
    }
}

TEST(HeadersToSend, KeepTheProgramWhenItsTextIsGone) {
    HeadersToSend headers;
    std::string program = "Counter/2.1 of a long name";
    headers.setProgram(CvtpMessage::HEADER_USER_AGENT, program);
    program.assign(program.size(), 'x');
    headers.addLength(7);
    EXPECT_EQ(linesOf(headers), (Lines{"Content-Length: 7", "User-Agent: Counter/2.1 of a long name"}));
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
