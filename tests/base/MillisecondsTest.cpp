#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>

#include "cvtp/internal/Logging.h"
#include "tests/support_code/LogCapture.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

/// How far the current minute has come, in milliseconds: the same in every time zone of today.
int clockInMinute() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count() % 60000);
}

/// The same of a time as it is written, which ends in seconds and milliseconds: "59.  5".
int inMinute(std::string time) {
    std::replace(time.begin(), time.end(), ' ', '0');
    return std::stoi(time.substr(time.size() - 6, 2)) * 1000 + std::stoi(time.substr(time.size() - 3));
}

/// Lets `write` write something between two looks at the clock, and expects the time that `timeOf` finds in it to
/// be between these. All digits of the milliseconds are in use then, and no minute begins meanwhile.
template <class Write, class TimeOf>
void expectTimeOfTheClock(const Write& write, const TimeOf& timeOf) {
    for (;;) {
        const Testing::LogCapture capture(4, 3);
        int before = clockInMinute();
        while (before % 1000 < 100) {
            std::this_thread::yield();
            before = clockInMinute();
        }
        write();
        const int after = clockInMinute();
        if (before <= after) {
            const int written = inMinute(timeOf(capture));
            EXPECT_LE(before, written);
            EXPECT_LE(written, after);
            return;
        }
    }
}

TEST(Logging, TheMillisecondsOfALineAreThoseOfTheClock) {
    expectTimeOfTheClock([] { logError("text"); },
                         [](const Testing::LogCapture& capture) { return capture.lines().at(0).time; });
}

TEST(Trace, TheMillisecondsOfARecordAreThoseOfTheClock) {
    expectTimeOfTheClock([] { traceInput("text", true); },
                         [](const Testing::LogCapture& capture) { return capture.trace().substr(0, 23); });
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
