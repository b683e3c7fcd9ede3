#pragma once

#include <windows.h>

#include "io/platform/AccessSettings.h"

namespace Corvane {
namespace Io {
namespace Platform {

/// A descriptor that lets the owner of the server, and a group if `settings` say so, read and write, and nobody
/// else. It names no owner. A group that cannot be found is left out.
///
/// @return null after any other failure. All failures are logged. The descriptor is never freed, nor is what it
/// refers to.
PSECURITY_DESCRIPTOR buildSecurityDescriptor(const AccessSettings& settings);

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
