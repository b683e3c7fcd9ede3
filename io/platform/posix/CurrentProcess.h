#pragma once

#include <sys/types.h>

namespace Corvane {
namespace Io {
namespace Platform {

/// The number of this process, as getpid() has it; that would ask the system each time.
pid_t currentProcess();

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
