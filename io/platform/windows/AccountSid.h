#pragma once

#include <string>

#include "io/platform/windows/SecurityResources.h"

namespace Corvane {
namespace Io {
namespace Platform {

/// The identifier of the account `name`, in the code page of the system. Null after a failure, which is logged. May
/// ask another machine and so take its time.
Sid lookUpAccountSid(const std::string& name);

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
