#pragma once

#include <cstdint>
#include <string>

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// The time that the summaries count with: milliseconds since 1970.
std::int64_t currentMilliseconds();

/// From a time that currentMilliseconds() gave until now; 0 for a time of 0, which was not taken.
std::int64_t elapsedSince(std::int64_t startTime);

/// "Wrote 5 bytes to the CvPipe (0 Mbps)."
std::string writeSummary(std::uint64_t bytes, std::int64_t elapsedMs);

/// "Read 5 bytes from the CvPipe (0 Mbps)."
std::string readSummary(std::uint64_t bytes, std::int64_t elapsedMs);

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
