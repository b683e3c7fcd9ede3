#include <time.h>

#include "io/platform/PipePlatform.h"

namespace Corvane {
namespace Io {
namespace Platform {

std::int64_t coarseTime() {
    timespec now{};
    static_cast<void>(::clock_gettime(CLOCK_REALTIME_COARSE, &now));
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
