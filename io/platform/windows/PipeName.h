#pragma once

#include <string>

namespace Corvane {
namespace Io {
namespace Platform {

/// Whether the pipe `path` (prefix and name) has a name of 1 to 256 bytes, without a backslash and without NUL. If
/// not, that is logged at ERROR. The name goes to the system as it is; the system compares names without regard to
/// case.
///
/// @return 0, or the system's code for a wrong name.
int checkPipeName(const std::string& path);

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
