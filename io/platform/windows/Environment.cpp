#include "io/platform/PipePlatform.h"

#include <windows.h>

namespace Corvane {
namespace Io {
namespace Platform {

// Not by getenv, whose result another thread may change while it is read, and which does not see what a program has
// set through another C runtime than that of this library.
std::optional<std::string> environmentVariable(const char* name) {
    std::string value;
    // With the NUL when the buffer is too short, otherwise without.
    DWORD size = ::GetEnvironmentVariableA(name, nullptr, 0);
    if (size == 0) {
        return std::nullopt;
    }
    while (size > value.size()) {
        value.resize(size);
        size = ::GetEnvironmentVariableA(name, &value[0], static_cast<DWORD>(value.size()));
    }
    value.resize(size);
    return value;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
