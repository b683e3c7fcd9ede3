#pragma once

#include <string>

namespace Corvane {
namespace Io {
namespace Platform {

/// Who besides the owner of the server may use its pipes, as two environment variables say. The same on every
/// platform; only what is made of it differs.
struct AccessSettings {
    /// A group may read and write as well: the named one, or else the primary group of the process.
    bool groupHasAccess = false;
    /// The name of a group; empty for none. Pipes get it even without access.
    std::string group;

    /// Nothing is asked for that the system would not do by itself.
    bool areDefault() const { return !groupHasAccess && group.empty(); }
};

/// What CV_PIPE_SET_GROUP_PERMISSION and CV_PIPE_OWNER_GROUP say now.
AccessSettings readAccessSettings();

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
