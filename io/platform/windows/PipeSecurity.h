#pragma once

#include <windows.h>

namespace Corvane {
namespace Io {
namespace Platform {

/// The attributes for a new instance of a pipe. Without a descriptor (null), and so with the access that the system
/// gives by default, unless one of these environment variables asks for more:
/// - CV_PIPE_SET_GROUP_PERMISSION: "true", in upper or lower case, lets a group read and write;
/// - CV_PIPE_OWNER_GROUP: the name of that group, otherwise the primary group of the process.
///
/// The first descriptor that can be built serves the whole process until its end, whatever becomes of the
/// variables. When none can be built, the log says why, the instance has the default access, and the next one tries
/// again. May be called by several threads at the same time, which then wait for each other.
SECURITY_ATTRIBUTES pipeSecurityAttributes();

/// Makes the next instance build a descriptor of its own, for tests. The one before is not freed.
void forgetPipeSecurity();

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
