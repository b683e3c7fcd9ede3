#include "io/platform/windows/SecurityResources.h"

#include <string>

#include "cvtp/internal/Logging.h"

namespace Corvane {
namespace Io {
namespace Platform {

using Internal::Cvtp::isError;
using Internal::Cvtp::logError;

void logSecurityFailure(const char* text, DWORD code) {
    if (isError()) {
        logError(text + std::to_string(code));
    }
}

void logSecurityFailure(const char* text) {
    logSecurityFailure(text, GetLastError());
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
