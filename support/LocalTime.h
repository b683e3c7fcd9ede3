#pragma once

#include <ctime>

namespace Corvane {

/// The date and time that the clocks of this machine's time zone show. Safe on several threads.
std::tm localTime(std::time_t time);

}  // namespace Corvane
