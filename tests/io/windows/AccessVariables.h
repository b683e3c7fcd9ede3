#pragma once

#include <string>

#include "io/platform/windows/PipeSecurity.h"

namespace Corvane {
namespace Testing {

/// Sets the two variables that say who may use the pipes, and forgets the descriptor from before; the same again at
/// its end, when neither is set. A null leaves a variable out.
class AccessVariables {
 public:
    AccessVariables(const char* permission, const char* group) {
        set(permission, group);
        Io::Platform::forgetPipeSecurity();
    }
    ~AccessVariables() {
        set(nullptr, nullptr);
        Io::Platform::forgetPipeSecurity();
    }
    AccessVariables(const AccessVariables&) = delete;
    AccessVariables& operator=(const AccessVariables&) = delete;

    static void set(const char* permission, const char* group) {
        ::SetEnvironmentVariableA("CV_PIPE_SET_GROUP_PERMISSION", permission);
        ::SetEnvironmentVariableA("CV_PIPE_OWNER_GROUP", group);
    }
};

}  // namespace Testing
}  // namespace Corvane
