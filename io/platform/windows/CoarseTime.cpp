#include <windows.h>

#include "io/platform/PipePlatform.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

/// The system counts from 1601, in units of 100 ns.
const std::int64_t UNITS_UNTIL_1970 = 116444736000000000;
const std::int64_t UNITS_PER_MS = 10000;

}  // namespace

std::int64_t coarseTime() {
    FILETIME now{};
    ::GetSystemTimeAsFileTime(&now);
    const std::int64_t units = (std::int64_t{now.dwHighDateTime} << 32) + now.dwLowDateTime;
    return (units - UNITS_UNTIL_1970) / UNITS_PER_MS;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
