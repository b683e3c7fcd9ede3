// What it costs to refuse a file: in a process of its own, as memory that was used once cannot be told from memory
// in use.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>

#include "cvtp/internal/ConfigDocument.h"
#include "cvtp/internal/ConfigParser.h"
#include "cvtp/internal/Logging.h"
#include "tests/config/BadFiles.h"
#include "tests/config/ConfigTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Internal::Cvtp::ConfigDocument;
using Internal::Cvtp::ConfigParser;

// A sanitizer takes memory and time of its own.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr int FACTOR = 10;
#else
constexpr int FACTOR = 1;
#endif

struct Cost {
    long milliseconds;
    long kilobytes;
    bool isLoaded;
};

long peakInKilobytes() {
    struct rusage usage = {};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

/// Processor time and memory to load a file.
Cost costOf(const std::string& path) {
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        Internal::Cvtp::setLogging(nullptr, 0, nullptr, 0);
        const long before = peakInKilobytes();
        const std::clock_t start = std::clock();
        ConfigDocument document;
        document.load(path);
        const std::clock_t time = std::clock() - start;
        const Cost cost = {static_cast<long>(time * 1000 / CLOCKS_PER_SEC), peakInKilobytes() - before,
                           document.isLoaded()};
        const ssize_t written = ::write(ends[1], &cost, sizeof cost);
        ::_exit(written == sizeof cost ? 0 : 1);
    }
    Cost cost = {-1, -1, true};
    EXPECT_EQ(::read(ends[0], &cost, sizeof cost), static_cast<ssize_t>(sizeof cost));
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    ::close(ends[0]);
    ::close(ends[1]);
    return cost;
}

class ConfigCostTest : public ConfigTest {
 protected:
    /// The least of several attempts: a loaded machine makes some of them dearer.
    static Cost leastCostOf(const std::string& path, long enoughMilliseconds) {
        Cost least = costOf(path);
        for (int i = 0; i < 4 && least.milliseconds > enoughMilliseconds; ++i) {
            const Cost cost = costOf(path);
            if (cost.milliseconds < least.milliseconds) {
                least = cost;
            }
        }
        return least;
    }

    static void expectLow(const std::string& path) {
        const Cost cost = leastCostOf(path, 100 * FACTOR);
        EXPECT_FALSE(cost.isLoaded);
        EXPECT_GE(cost.milliseconds, 0);
        EXPECT_LE(cost.milliseconds, 100 * FACTOR);
        EXPECT_LE(cost.kilobytes, 32 * 1024 * FACTOR);
    }
};

}  // namespace

TEST_F(ConfigCostTest, ABadFileTakesLittleTimeAndMemory) {
    std::vector<BadFile> files = malformedFiles();
    for (const auto& more : {outwardFiles(CVTP_TEST_CONFIG_SCHEMA), costlyFiles()}) {
        files.insert(files.end(), more.begin(), more.end());
    }
    for (const BadFile& file : files) {
        SCOPED_TRACE(file.name);
        expectLow(write("file.xml", file.content));
    }
}

TEST_F(ConfigCostTest, AFolderOrAMissingFileTakesLittleTimeAndMemory) {
    expectLow(folder.string());
    expectLow(pathOf("none.xml"));
}

TEST_F(ConfigCostTest, AFileOf100MegabytesTakesLittleMemory) {
    const std::string path = write("file.xml", "<any>");
    std::filesystem::resize_file(path, 100 * 1024 * 1024);
    expectLow(path);
}

// Such files need not be refused within the same time, but not for seconds either.
TEST_F(ConfigCostTest, AFileFullOfOneThingTakesNeitherMuchTimeNorMemory) {
    std::string attributes = "<a";
    std::string defaults = "<!DOCTYPE a [<!ATTLIST b";
    for (int i = 0; i < 100000; ++i) {
        attributes += " b" + std::to_string(i) + "=\"\"";
    }
    for (int i = 0; i < 250; ++i) {
        defaults += " b" + std::to_string(i) + " CDATA #IMPLIED";
    }
    attributes.resize(ConfigDocument::LARGEST_FILE - 2);
    const std::vector<std::string> contents = {
        attributes + "/>",
        defaults + ">]><a>" + repeated("<b/>", 200000) + "</a>",
        "<!DOCTYPE a [<!ATTLIST b c (" + repeated("d|", 200000) + "z) #IMPLIED>]><a>" +
            repeated("<b c=\"z\"/>", 50000) + "</a>",
        repeated("<a>", 300000),
        "<!DOCTYPE a [<!ELEMENT a " + repeated("(b,", 300000),
        "<!DOCTYPE a [<!ELEMENT a (b" + repeated("|c", 300000) + ")>]><a/>",
        "<!DOCTYPE a [" + repeated("<!ELEMENT a ANY>", 60000) + "]><a/>",
    };
    for (const std::string& content : contents) {
        SCOPED_TRACE(content.substr(0, 40));
        const Cost cost = leastCostOf(write("file.xml", content), 3000 * FACTOR);
        EXPECT_FALSE(cost.isLoaded);
        EXPECT_LE(cost.milliseconds, 3000 * FACTOR);
        EXPECT_LE(cost.kilobytes, 48 * 1024 * FACTOR);
    }
}

TEST_F(ConfigCostTest, AnAttributeOfManyValuesIsNoTrouble) {
    std::string text = "<!DOCTYPE a [<!ATTLIST a b (";
    for (int i = 0; i < 30000; ++i) {
        text += "c" + std::to_string(i) + "|";
    }
    const Cost cost = leastCostOf(write("file.xml", text + "d) \"d\">]><a/>"), 100 * FACTOR);
    EXPECT_TRUE(cost.isLoaded);
    EXPECT_LE(cost.milliseconds, 100 * FACTOR);
    EXPECT_LE(cost.kilobytes, 8 * 1024 * FACTOR);
}

// As much text as entities can ever stand for.
TEST_F(ConfigCostTest, TheLongestEntityManyTimesTakesNotMuchTime) {
    const std::string blanks(ConfigParser::LONGEST_ENTITY, ' ');
    const std::vector<std::string> contents = {
        "<!DOCTYPE a [<!ENTITY b \"" + blanks + "\"><!ATTLIST c d NMTOKENS \"\">]><a>" +
            repeated("<c d=\"&b;\"/>", ConfigParser::MOST_EXPANSIONS) + "</a>",
        "<!DOCTYPE a [<!NOTATION c SYSTEM ''><!ENTITY % b \"<!NOTATION c SYSTEM '" + blanks.substr(30) + "'>\">" +
            repeated("%b;", ConfigParser::MOST_EXPANSIONS) + "]><a/>",
    };
    for (const std::string& content : contents) {
        SCOPED_TRACE(content.substr(0, 40));
        const Cost cost = leastCostOf(write("file.xml", content), 500 * FACTOR);
        EXPECT_TRUE(cost.isLoaded);
        EXPECT_LE(cost.milliseconds, 500 * FACTOR);
        EXPECT_LE(cost.kilobytes, 32 * 1024 * FACTOR);
    }
}

// Such a table of all orders in which the children may come would have millions of lines.
TEST_F(ConfigCostTest, ADeclarationOfManyChildrenIsNoTrouble) {
    const Cost cost = leastCostOf(write("file.xml", "<!DOCTYPE a [<!ELEMENT a ((b|c)*,b" + repeated(",(b|c)", 20) +
                                                        ")>]><a>" + repeated("<b/>", 50) + "</a>"),
                                  100 * FACTOR);
    EXPECT_TRUE(cost.isLoaded);
    EXPECT_LE(cost.milliseconds, 100 * FACTOR);
    EXPECT_LE(cost.kilobytes, 8 * 1024 * FACTOR);
}

}  // namespace Testing
}  // namespace Corvane
