#include "io/platform/windows/PipeSecurity.h"

#include <mutex>
#include <string>

#include "cvtp/internal/Logging.h"
#include "io/platform/AccessSettings.h"
#include "io/platform/windows/SecurityDescriptorBuilder.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using Internal::Cvtp::isDebug;
using Internal::Cvtp::logDebug;

/// Guards `descriptor`: servers of one process create their instances on threads of their own, and two that found
/// none would both build one.
std::mutex mutex;

/// Null until one could be built; then never freed.
PSECURITY_DESCRIPTOR descriptor = nullptr;

PSECURITY_DESCRIPTOR getDescriptor() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (descriptor == nullptr) {
        const AccessSettings settings = readAccessSettings();
        if (!settings.areDefault()) {
            if (isDebug()) {
                logDebug("Create SecurityDescriptor.");
            }
            descriptor = buildSecurityDescriptor(settings);
        }
    }
    return descriptor;
}

}  // namespace

SECURITY_ATTRIBUTES pipeSecurityAttributes() {
    SECURITY_ATTRIBUTES attributes = {};
    attributes.nLength = sizeof attributes;
    attributes.lpSecurityDescriptor = getDescriptor();
    attributes.bInheritHandle = FALSE;
    return attributes;
}

void forgetPipeSecurity() {
    const std::lock_guard<std::mutex> lock(mutex);
    descriptor = nullptr;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
