#include "io/platform/AccessSettings.h"

#include <algorithm>

#include "io/platform/PipePlatform.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

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

}  // namespace

AccessSettings readAccessSettings() {
    AccessSettings settings;
    settings.groupHasAccess = isTrue(fromEnvironment("CV_PIPE_SET_GROUP_PERMISSION"));
    settings.group = fromEnvironment("CV_PIPE_OWNER_GROUP");
    return settings;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
