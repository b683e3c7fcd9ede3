#include "io/platform/windows/PipeSecurity.h"

#include <algorithm>
#include <mutex>
#include <string>

#include "cvtp/internal/Logging.h"
#include "io/platform/PipePlatform.h"
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

/// Empty when the variable is not set.
std::string fromEnvironment(const char* variable) {
    return environmentVariable(variable).value_or(std::string());
}

char toLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// Only the word counts; "1" is false, deliberately.
bool isTrue(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), toLower);
    return text == "true";
}

AccessSettings readSettings() {
    AccessSettings settings;
    settings.groupHasAccess = isTrue(fromEnvironment("CV_PIPE_SET_GROUP_PERMISSION"));
    settings.group = fromEnvironment("CV_PIPE_OWNER_GROUP");
    return settings;
}

PSECURITY_DESCRIPTOR getDescriptor() {
    const std::lock_guard<std::mutex> lock(mutex);
    if (descriptor == nullptr) {
        const AccessSettings settings = readSettings();
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
