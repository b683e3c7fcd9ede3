#include "cvtp/internal/CvtpHeaders.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "cvtp/internal/CvtpHeader.h"
#include "support/StringUtils.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

using Texts = std::vector<std::string>;

Texts valuesOf(const std::string& text) {
    return CvtpHeader("X", text).getValues();
}

TEST(CvtpHeader, IsEmptyByDefault) {
    const CvtpHeader header;
    EXPECT_EQ(header.getName(), "");
    EXPECT_EQ(header.getValue(), "");
    EXPECT_EQ(header.getValues(), Texts());
}

TEST(CvtpHeader, SplitsValuesAtCommasAndDropsEmptyOnes) {
    EXPECT_EQ(valuesOf("a, b,,c "), (Texts{"a", "b", "c"}));
    EXPECT_EQ(valuesOf(",a,"), (Texts{"a"}));
    EXPECT_EQ(valuesOf(" , \t,"), Texts());
    EXPECT_EQ(valuesOf(""), Texts());
    EXPECT_EQ(valuesOf(","), Texts());
}

TEST(CvtpHeader, CutsBlankTabCarriageReturnAndLineFeedFromEachValue) {
    EXPECT_EQ(valuesOf(" \t\r\na b \t\r\n,\nc"), (Texts{"a b", "c"}));
    EXPECT_EQ(valuesOf("\v\fa\f\v"), (Texts{"\v\fa\f\v"}));
}

TEST(CvtpHeader, KeepsAValueWithoutCommaAndBlanksUnchanged) {
    const std::string value("a\r\nb\0;:\"=", 10);
    EXPECT_EQ(valuesOf(value), (Texts{value}));
}

TEST(CvtpHeader, AddValuesAppendsAndSetValuesReplaces) {
    CvtpHeader header("X", "1");
    header.addValues("2, 3");
    EXPECT_EQ(header.getValues(), (Texts{"1", "2", "3"}));
    EXPECT_EQ(header.getValue(), "1");
    header.setValues("4");
    EXPECT_EQ(header.getValues(), (Texts{"4"}));
    header.setValues(" ");
    EXPECT_EQ(header.getValue(), "");
}

TEST(CvtpHeader, TrimsItsName) {
    EXPECT_EQ(CvtpHeader(" \t\r\n\v\fX Y\f\v\n\r\t ", "").getName(), "X Y");
    CvtpHeader header;
    header.setName("X Y");
    EXPECT_EQ(header.getName(), "X Y");
    header.setName("Z ");
    EXPECT_EQ(header.getName(), "Z");
    header.setName("\tZ");
    EXPECT_EQ(header.getName(), "Z");
    header.setName("");
    EXPECT_EQ(header.getName(), "");
    header.setName(" ");
    EXPECT_EQ(header.getName(), "");
    // What setName() leaves alone is more than the constructor does; deliberate.
    header.setName("\vX\f");
    EXPECT_EQ(header.getName(), "\vX\f");
    header.setName("\vX ");
    EXPECT_EQ(header.getName(), "X");
}

TEST(CvtpHeader, CopiesNameAndValues) {
    const CvtpHeader original("X", "1, 2");
    CvtpHeader copy(original);
    EXPECT_EQ(copy.getName(), "X");
    EXPECT_EQ(copy.getValues(), (Texts{"1", "2"}));
    copy = CvtpHeader("Y", "3");
    EXPECT_EQ(copy.getName(), "Y");
    EXPECT_EQ(copy.getValues(), (Texts{"3"}));
}

TEST(CvtpHeaders, AddMergesWithoutRegardToCaseAndKeepsTheNameAsShown) {
    CvtpHeaders headers;
    headers.add("content-length", "5");
    headers.add("Content-Length", "7");
    EXPECT_EQ(headers.names(), (Texts{"content-length"}));
    EXPECT_EQ(headers.getAll("CONTENT-LENGTH"), (Texts{"5", "7"}));
    headers.set("CONTENT-LENGTH", "9");
    EXPECT_EQ(headers.names(), (Texts{"CONTENT-LENGTH"}));
    EXPECT_EQ(headers.getAll("content-length"), (Texts{"9"}));
}

TEST(CvtpHeaders, ListsNamesInTheOrderOfTheirUpperCasedForm) {
    CvtpHeaders headers;
    headers.add("b", "1");
    headers.add("A", "2");
    headers.add("c", "3");
    headers.set("_", "4");
    EXPECT_EQ(headers.names(), (Texts{"A", "b", "c", "_"}));
}

TEST(CvtpHeaders, FindsANameWithBlanksAroundIt) {
    CvtpHeaders headers;
    headers.add(" \tX-A\r\n", "1");
    EXPECT_EQ(headers.get("x-a "), "1");
    EXPECT_EQ(headers.names(), (Texts{"X-A"}));
    headers.set("\nx-A", "2");
    EXPECT_EQ(headers.names(), (Texts{"x-A"}));
}

TEST(CvtpHeaders, OtherWhiteSpaceIsPartOfTheKeyButNotOfTheNameAsShown) {
    CvtpHeaders headers;
    headers.add("\vX-A", "1");
    headers.add("X-A", "2");
    EXPECT_EQ(headers.getAll("X-A"), (Texts{"2"}));
    EXPECT_EQ(headers.getAll("\vX-A"), (Texts{"1"}));
    EXPECT_EQ(headers.names(), (Texts{"X-A", "X-A"}));
}

TEST(CvtpHeaders, AnEmptyAndABlankNameAreTheSame) {
    CvtpHeaders headers;
    headers.add("", "1");
    headers.add(" \t", "2");
    EXPECT_EQ(headers.names(), (Texts{""}));
    EXPECT_EQ(headers.getAll(" "), (Texts{"1", "2"}));
}

TEST(CvtpHeaders, WhatIsAbsentIsEmpty) {
    CvtpHeaders headers;
    headers.add("X-A", ",");
    EXPECT_EQ(headers.get("X-A"), "");
    EXPECT_EQ(headers.getAll("X-A"), Texts());
    EXPECT_EQ(headers.names(), (Texts{"X-A"}));
    EXPECT_EQ(headers.get("X-B"), "");
    EXPECT_EQ(headers.getAll("X-B"), Texts());
    EXPECT_EQ(headers.names().size(), 1U) << "asking must not add";
}

TEST(CvtpHeaders, RemoveTakesOutOneHeader) {
    CvtpHeaders headers;
    headers.add("X-A", "1");
    headers.add("X-B", "2");
    headers.remove("x-a ");
    headers.remove("X-C");
    EXPECT_EQ(headers.names(), (Texts{"X-B"}));
}

/// What the collection does, in the simplest way: a map.
class PlainHeaders {
 public:
    void add(const std::string& name, const std::string& value) {
        const auto place = headers.emplace(keyOf(name), CvtpHeader(name, value));
        if (!place.second) {
            place.first->second.addValues(value);
        }
    }
    void set(const std::string& name, const std::string& value) {
        headers[keyOf(name)].setName(name);
        headers[keyOf(name)].setValues(value);
    }
    void remove(const std::string& name) { headers.erase(keyOf(name)); }

    Texts all() const {
        Texts result;
        for (const auto& header : headers) {
            result.push_back(header.second.getName() + ": " + header.second.getJoined());
        }
        return result;
    }

 private:
    static std::string keyOf(const std::string& name) {
        std::string key = StringUtils::trim(name, " \t\r\n");
        std::transform(key.begin(), key.end(), key.begin(),
                       [](char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); });
        return key;
    }

    std::map<std::string, CvtpHeader> headers;
};

Texts allOf(const CvtpHeaders& headers) {
    Texts result;
    for (const auto& header : headers) {
        result.push_back(header.second.getName() + ": " + header.second.getJoined());
    }
    return result;
}

/// Few letters, so that names meet; upper and lower case, white space of both kinds and bytes above ASCII among
/// them.
std::string someName(std::mt19937& random) {
    static const std::string LETTERS = "aAbB-_ \t\v\xC4\xE4";
    std::string name;
    for (auto length = random() % 5; length > 0; --length) {
        name += LETTERS[random() % LETTERS.size()];
    }
    return name;
}

TEST(CvtpHeaders, DoesWhatAMapDoes) {
    std::mt19937 random(20);
    for (int round = 0; round < 300; ++round) {
        CvtpHeaders headers;
        PlainHeaders plain;
        for (auto steps = random() % 120; steps > 0; --steps) {
            const std::string name = someName(random);
            const std::string value = std::to_string(steps) + (steps % 3 == 0 ? ", x," : "");
            switch (random() % 12) {
                case 0:
                    headers.remove(name);
                    plain.remove(name);
                    break;
                case 1:
                    headers.set(name, value);
                    plain.set(name, value);
                    break;
                default:
                    headers.add(name, value);
                    plain.add(name, value);
            }
            if (steps % 17 == 0) {
                ASSERT_EQ(allOf(headers), plain.all()) << "round " << round;
            }
        }
        ASSERT_EQ(allOf(headers), plain.all()) << "round " << round;
        for (const std::string& shown : headers.names()) {
            ASSERT_EQ(headers.getAll(shown).empty(), headers.get(shown).empty());
        }
    }
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
