#include "io/platform/posix/Spinning.h"

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>

#include "io/platform/PipePlatform.h"

namespace Corvane {
namespace Io {
namespace Platform {
namespace Spinning {

namespace {

const int DEFAULT_LENGTH_US = 50;
const int MAX_LENGTH_US = 1000;

/// A thread that never wins still looks now and then whether that has changed.
const unsigned MAX_LEFT_OUT = 4096;

/// Below zero: that of the environment.
std::atomic<int> lengthForTests{-1};

int lengthInUse() {
    static const int ofEnvironment = lengthFrom(environmentVariable("CVTP_SPIN_US").value_or(""));
    const int forTests = lengthForTests.load(std::memory_order_relaxed);
    return forTests < 0 ? ofEnvironment : forTests;
}

bool hasSeveralProcessors() {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    // A system with more processors than the set holds refuses, and has several.
    return sched_getaffinity(0, sizeof(processors), &processors) != 0 || CPU_COUNT(&processors) > 1;
}

/// What a thread has learned.
struct Experience {
    bool mayRunBesideOthers = hasSeveralProcessors();
    unsigned toLeaveOut = 0;
    unsigned leftOutLast = 0;
};

thread_local Experience experience;

}  // namespace

int lengthFrom(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    // What is no number must not change how a program behaves.
    const bool isNumber = end != text.c_str() && *end == '\0' && errno == 0 && value >= 0;
    return isNumber ? static_cast<int>(std::min<long>(value, MAX_LENGTH_US)) : DEFAULT_LENGTH_US;
}

bool isDue() {
    if (lengthInUse() == 0 || !experience.mayRunBesideOthers) {
        return false;
    }
    if (experience.toLeaveOut > 0) {
        --experience.toLeaveOut;
        return false;
    }
    return true;
}

void note(bool found) {
    experience.leftOutLast = found ? 0 : std::clamp(2 * experience.leftOutLast, 1U, MAX_LEFT_OUT);
    experience.toLeaveOut = experience.leftOutLast;
    if (!found) {
        // It may have been bound to one meanwhile.
        experience.mayRunBesideOthers = hasSeveralProcessors();
    }
}

std::chrono::microseconds length() {
    return std::chrono::microseconds(lengthInUse());
}

void setLength(int microseconds) {
    lengthForTests.store(microseconds, std::memory_order_relaxed);
    note(true);
}

}  // namespace Spinning
}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
