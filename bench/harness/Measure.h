#pragma once

#include <cstdint>
#include <iosfwd>

#include "harness/Histogram.h"
#include "harness/Peer.h"
#include "harness/Process.h"

namespace Corvane {
namespace Bench {

/// What the client's side of one measurement brings.
struct Result {
    /// Requests, messages, streams or connections, as the workload has it.
    std::uint64_t operations = 0;
    std::int64_t nanoseconds = 0;
    /// What both processes spent meanwhile, in nanoseconds.
    std::int64_t clientCpu = 0;
    std::int64_t serverCpu = 0;
    Histogram latencies;
    /// Of the server, without connections and with them; for Workload::W7 alone.
    Memory before;
    Memory after;
};

/// Runs the workload for about so long, at least once, after a warm-up.
Result measure(const Settings& settings, double seconds, int serverId);

/// Writes one line of JSON.
void print(const Result& result, std::ostream& out);

}  // namespace Bench
}  // namespace Corvane
