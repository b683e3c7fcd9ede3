#include "support/LocalTime.h"

#include <time.h>

namespace Corvane {

std::tm localTime(std::time_t time) {
    std::tm broken = {};
    // The C library's function that is safe on several threads has another name, and another order, on Windows.
#ifdef _WIN32
    localtime_s(&broken, &time);
#else
    localtime_r(&time, &broken);
#endif
    return broken;
}

}  // namespace Corvane
