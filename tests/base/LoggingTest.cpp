#include "cvtp/internal/Logging.h"

#include <Poco/Environment.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <ctime>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "cvtp/internal/RecursiveMutex.h"
#include "tests/support_code/LogCapture.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

using Testing::LogCapture;
using Testing::LogEntry;
using Testing::ScratchFile;
using Texts = std::vector<std::string>;

/// Where nothing else says so, local time here is not UTC, so that one cannot pass for the other.
[[maybe_unused]] const bool HAS_LOCAL_TIME = (Poco::Environment::set("TZ", "XST-5XDT-5:30,0/0,J365/24:30"), true);

/// Not std::time(), which may still give the second before.
std::time_t nowInSeconds() {
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

std::string utcNow() {
    const std::time_t now = nowInSeconds();
    char text[64];
    return std::string(text, std::strftime(text, sizeof text, "%Y/%m/%d-%H:%M:%S", std::gmtime(&now)));
}

std::string localNow() {
    const std::time_t now = nowInSeconds();
    char text[64];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", std::localtime(&now)));
}

void logAtEachLevel() {
    logError("e");
    logWarn("w");
    logInfo("i");
    logDebug("d");
}

TEST(Logging, ALineHasItsExactForm) {
    setCorrelationId("request-7");
    const LogCapture capture;
    logWarn("a message");
    const std::string log = capture.log();
    const std::string time = log.substr(7, 23);
    EXPECT_TRUE(Testing::hasShape(time, 0, "9999/99/99-99:99:99.") && Testing::hasMilliseconds(time, 20)) << time;
    EXPECT_EQ(log, "WARN - " + time + " UTC - Thread-" + std::to_string(currentThreadId()) +
                       ": request-7 - a message- Corvane.SOA.Cvtp\n");
    setCorrelationId("");
}

TEST(Logging, ALineOfAThreadWithoutACorrelationIdHasNothingInItsPlace) {
    const LogCapture capture;
    std::uint32_t id = 0;
    std::thread([&id] {
        id = currentThreadId();
        logError("text");
    }).join();
    const std::string log = capture.log();
    EXPECT_EQ(log.substr(log.find(" UTC")),
              " UTC - Thread-" + std::to_string(id) + ":  - text- Corvane.SOA.Cvtp\n");
}

TEST(Logging, MillisecondsArePaddedWithBlanksOnPurpose) {
    EXPECT_EQ(millisecondText(0), ".  0");
    EXPECT_EQ(millisecondText(5), ".  5");
    EXPECT_EQ(millisecondText(50), ". 50");
    EXPECT_EQ(millisecondText(99), ". 99");
    EXPECT_EQ(millisecondText(100), ".100");
    EXPECT_EQ(millisecondText(999), ".999");
}

TEST(Logging, TheTimeOfALineIsUtc) {
    const LogCapture capture;
    const std::string before = utcNow();
    logError("text");
    const std::string after = utcNow();
    const std::string time = capture.lines().at(0).time.substr(0, before.size());
    EXPECT_LE(before, time);
    EXPECT_LE(time, after);
}

TEST(Logging, EachLevelIncludesThoseBeforeIt) {
    const std::vector<Texts> expected = {{},
                                         {"ERROR: e"},
                                         {"ERROR: e", "WARN: w"},
                                         {"ERROR: e", "WARN: w", "INFO: i"},
                                         {"ERROR: e", "WARN: w", "INFO: i", "DEBUG: d"}};
    for (int level = 0; level <= 4; ++level) {
        const LogCapture capture(level);
        logAtEachLevel();
        EXPECT_EQ(capture.texts(), expected[static_cast<std::size_t>(level)]);
        EXPECT_EQ(isError(), level >= 1);
        EXPECT_EQ(isWarn(), level >= 2);
        EXPECT_EQ(isInfo(), level >= 3);
        EXPECT_EQ(isDebug(), level >= 4);
    }
}

TEST(Logging, AnUnknownLevelIsOff) {
    for (const int level : {-1, 5, 1000}) {
        const LogCapture capture(level, level);
        logAtEachLevel();
        traceInput("in", true);
        traceOutput("out", true);
        EXPECT_EQ(capture.log(), "");
        EXPECT_EQ(capture.trace(), "");
        EXPECT_FALSE(isError());
        EXPECT_FALSE(isInputTraced());
        EXPECT_FALSE(isOutputTraced());
    }
}

TEST(Logging, WithoutALogFileNothingIsWritten) {
    setLogging(nullptr, 4, nullptr, 0);
    logAtEachLevel();
    EXPECT_TRUE(isDebug());
    setLogging(nullptr, 0, nullptr, 0);
}

TEST(Logging, WithoutATraceFileNothingIsTracedWhateverTheLevel) {
    const ScratchFile log;
    for (int level = 0; level <= 3; ++level) {
        setLogging(log.file(), 4, nullptr, level);
        EXPECT_FALSE(isInputTraced());
        EXPECT_FALSE(isOutputTraced());
        traceInput("in", true);
        traceOutput("out", true);
    }
    setLogging(nullptr, 0, nullptr, 0);
    EXPECT_EQ(log.content(), "");
}

TEST(Logging, EachThreadCarriesItsOwnCorrelationId) {
    const LogCapture capture;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            const std::string id = "id" + std::to_string(i);
            setCorrelationId(id);
            for (int n = 0; n < 200; ++n) {
                logInfo(id + " number " + std::to_string(n));
                logDebug(id + " again");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<LogEntry> lines = capture.lines();
    EXPECT_EQ(lines.size(), 1600U);
    for (const LogEntry& line : lines) {
        EXPECT_EQ(line.message.substr(0, line.message.find(' ')), line.correlationId);
    }
}

TEST(Logging, ANewCorrelationIdReplacesTheOldOne) {
    const LogCapture capture;
    setCorrelationId("first");
    setCorrelationId("second");
    logError("text");
    EXPECT_EQ(capture.lines().at(0).correlationId, "second");
    setCorrelationId("");
}

TEST(Trace, ARecordWithPrefixHasItsExactForm) {
    setCorrelationId("request-7");
    const LogCapture capture(0, 3);
    const std::string before = localNow();
    traceInput("some text", true);
    const std::string after = localNow();
    const std::string trace = capture.trace();
    const std::string stamp = trace.substr(0, 23);
    EXPECT_TRUE(Testing::hasShape(stamp, 0, "9999-99-99 99:99:99.") && Testing::hasMilliseconds(stamp, 20))
        << stamp;
    EXPECT_EQ(trace, stamp + " [INPUT ]request-7" + std::string(41, ' ') + "\nsome text");
    const std::string time = trace.substr(0, before.size());
    EXPECT_LE(before, time);
    EXPECT_LE(time, after);
    setCorrelationId("");
}

TEST(Trace, ARecordWithoutPrefixIsTheTextAlone) {
    const LogCapture capture(0, 3);
    traceInput("one", false);
    traceOutput("two", false);
    EXPECT_EQ(capture.trace(), "onetwo");
}

TEST(Trace, BytesAreWrittenAsTheyAre) {
    const LogCapture capture(0, 3);
    traceInput("\0\r\n\xFF", 4, false);
    traceOutput("\0ab", 2, true);
    EXPECT_EQ(capture.maskedTrace(),
              std::string("\0\r\n\xFF", 4) + LogCapture::prefix("OUTPUT") + std::string("\0a", 2));
}

TEST(Trace, ACorrelationIdLongerThanItsFieldIsNotCut) {
    const std::string id(60, 'x');
    setCorrelationId(id);
    const LogCapture capture(0, 2);
    traceOutput("text", true);
    EXPECT_EQ(capture.maskedTrace(), "TIME [OUTPUT]" + id + "\ntext");
    setCorrelationId("");
}

TEST(Trace, TheLevelChoosesTheDirections) {
    const Texts expected = {"", "in", "out", "inout"};
    for (int level = 0; level <= 3; ++level) {
        const LogCapture capture(4, level);
        traceInput("in", false);
        traceOutput("out", false);
        EXPECT_EQ(capture.trace(), expected[static_cast<std::size_t>(level)]);
        EXPECT_EQ(capture.log(), "");
        EXPECT_EQ(isInputTraced(), level == 1 || level == 3);
        EXPECT_EQ(isOutputTraced(), level == 2 || level == 3);
    }
}

TEST(Trace, RecordsOfBothDirectionsAreNotTorn) {
    const LogCapture capture(0, 3);
    const auto write = [](bool input) {
        for (int i = 0; i < 300; ++i) {
            input ? traceInput("<text>", true) : traceOutput("<text>", true);
        }
    };
    std::thread first(write, true);
    std::thread second(write, false);
    first.join();
    second.join();
    std::string rest = capture.maskedTrace();
    for (const char* direction : {"INPUT ", "OUTPUT"}) {
        const std::string record = LogCapture::prefix(direction) + "<text>";
        for (int i = 0; i < 300; ++i) {
            const std::string::size_type at = rest.find(record);
            ASSERT_NE(at, std::string::npos) << rest.substr(0, 500);
            rest.erase(at, record.size());
        }
    }
    EXPECT_EQ(rest, "");
}

TEST(Logging, AFileMayBeClosedOnceItHasBeenReplaced) {
    std::atomic<bool> running{true};
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&running] {
            while (running) {
                logAtEachLevel();
                traceInput("in", true);
                traceOutput("out", true);
            }
        });
    }
    for (int i = 0; i < 100; ++i) {
        // Its destructor closes the files that the threads were writing to.
        const LogCapture capture(1 + i % 4, i % 4);
        logError("here");
        EXPECT_TRUE(capture.waitFor("ERROR: here"));
    }
    running = false;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
