#include "io/platform/PipePlatform.h"

#include <cstdlib>

namespace Corvane {
namespace Io {
namespace Platform {

std::optional<std::string> environmentVariable(const char* name) {
    const char* const value = ::secure_getenv(name);
    return value == nullptr ? std::nullopt : std::optional<std::string>(value);
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
