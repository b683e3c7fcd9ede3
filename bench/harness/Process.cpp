#include "harness/Process.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <time.h>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>

namespace Corvane {
namespace Bench {

std::int64_t cpuTime(int processId) {
    clockid_t clock{};
    timespec time{};
    const int error = clock_getcpuclockid(processId, &clock);
    if (error != 0 || clock_gettime(clock, &time) != 0) {
        throw std::system_error(error != 0 ? error : errno, std::generic_category(),
                                "cannot read a processor time");
    }
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

Memory memoryOf(int processId) {
    std::ifstream status("/proc/" + std::to_string(processId) + "/status");
    Memory memory;
    std::string word;
    while (status >> word) {
        if (word == "VmRSS:") {
            status >> memory.residentKib;
        } else if (word == "Threads:") {
            status >> memory.threads;
        }
    }
    if (memory.threads == 0) {
        throw std::runtime_error("cannot read the memory of process " + std::to_string(processId));
    }
    return memory;
}

Memory settledMemoryOf(int processId) {
    Memory memory = memoryOf(processId);
    for (int attempt = 0; attempt < 20; ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const Memory now = memoryOf(processId);
        const bool settled = now.residentKib == memory.residentKib && now.threads == memory.threads;
        memory = now;
        if (settled) {
            break;
        }
    }
    return memory;
}

void raiseFileLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

void endWithParent() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
}

}  // namespace Bench
}  // namespace Corvane
