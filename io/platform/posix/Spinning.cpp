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

int countProcessors() {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    // A system with more processors than the set holds refuses.
    return sched_getaffinity(0, sizeof(processors), &processors) == 0 ? CPU_COUNT(&processors) : CPU_SETSIZE;
}

/// The reads of all threads. Two that count at the same moment count as one: an exact number would cost more than
/// it is worth.
std::atomic<unsigned> readsOfProcess{0};

/// One read in fixed point.
const int ONE_READ = 256;
/// The average goes back over about so many reads.
const int REMEMBERED = 64;
/// A thread that comes back after a long time has missed more than it need know.
const int MOST_READS = 1024;

/// What a thread has learned.
struct Experience {
    int processors = countProcessors();
    unsigned toLeaveOut = 0;
    unsigned leftOutLast = 0;
    unsigned lastRead = readsOfProcess.load(std::memory_order_relaxed);
    /// How many reads the process makes for each one of this thread, on the average, in ONE_READ.
    int readsForEach = ONE_READ;
};

thread_local Experience experience;

void countRead() {
    const unsigned now = readsOfProcess.load(std::memory_order_relaxed) + 1;
    readsOfProcess.store(now, std::memory_order_relaxed);
    // The count may have gone back, where another thread wrote what it had seen earlier.
    const int since = std::clamp(static_cast<int>(now - experience.lastRead), 1, MOST_READS);
    experience.lastRead = now;
    experience.readsForEach += (since * ONE_READ - experience.readsForEach) / REMEMBERED;
}

/// Whether the threads that read here and as many at the other ends have more to do than there are processors: one
/// that tries again then takes the place of another that could go on.
bool isCrowded() {
    return experience.readsForEach > experience.processors * ONE_READ / 2 + ONE_READ / 2;
}

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
    if (lengthInUse() == 0 || experience.processors < 2) {
        return false;
    }
    countRead();
    if (isCrowded()) {
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
        experience.processors = countProcessors();
    }
}

std::chrono::microseconds length() {
    return std::chrono::microseconds(lengthInUse());
}

void setLength(int microseconds) {
    lengthForTests.store(microseconds, std::memory_order_relaxed);
    experience = Experience();
}

}  // namespace Spinning
}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
