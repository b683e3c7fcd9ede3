#pragma once

#include <windows.h>

#include <string>

namespace Corvane {
namespace Io {
namespace Platform {

/// Who besides the owner of the server may use its pipes.
struct AccessSettings {
    /// A group may read and write as well: the named one, or else the primary group of the process.
    bool groupHasAccess = false;
    /// The name of an account; empty for none. It becomes the group of the descriptor even without access.
    std::string group;

    /// Nothing is asked for that the system would not do by itself.
    bool areDefault() const { return !groupHasAccess && group.empty(); }
};

/// A descriptor that lets the owner of the server, and a group if `settings` say so, read and write, and nobody
/// else. It names no owner. A group that cannot be found is left out.
///
/// @return null after any other failure. All failures are logged. The descriptor is never freed, nor is what it
/// refers to.
PSECURITY_DESCRIPTOR buildSecurityDescriptor(const AccessSettings& settings);

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
