#pragma once

#include <cstdint>

namespace Corvane {
namespace Bench {

/// The time that all threads of a process have spent on a processor, in nanoseconds.
/// @throws std::system_error there is no such process.
std::int64_t cpuTime(int processId);

struct Memory {
    /// What of the process is in memory, in KiB.
    std::int64_t residentKib = 0;
    std::int64_t threads = 0;
};

/// @throws std::runtime_error there is no such process.
Memory memoryOf(int processId);

/// The same once it no longer changes.
Memory settledMemoryOf(int processId);

/// Lets this process have as many files open as it may.
void raiseFileLimit();

/// Ends this process when the one that started it ends.
void endWithParent();

}  // namespace Bench
}  // namespace Corvane
