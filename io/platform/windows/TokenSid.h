#pragma once

#include "io/platform/windows/SecurityResources.h"

namespace Corvane {
namespace Io {
namespace Platform {

/// Who becomes the owner of what this process creates, which need not be the user who has logged on. Null after a
/// failure, which is logged.
Sid readOwnerSid();

/// The primary group of this process. Null after a failure, which is logged.
Sid readPrimaryGroupSid();

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
