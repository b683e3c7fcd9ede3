#pragma once

#include <sys/types.h>

#include <mutex>
#include <optional>
#include <string>

namespace Corvane {
namespace Io {
namespace Platform {

/// Who may open a pipe.
struct PipeAccess {
    /// Of the socket file. To connect takes the right to write.
    mode_t mode = 0;
    /// The group of the socket file; none leaves it as the system makes it.
    std::optional<gid_t> group;
};

/// The access that a new pipe gets: what the system gives by default, which is a matter of the umask, unless one of
/// these environment variables asks for more:
/// - CV_PIPE_SET_GROUP_PERMISSION: "true", in upper or lower case, lets a group read and write;
/// - CV_PIPE_OWNER_GROUP: the name of that group, otherwise the effective group of the process.
///
/// With either of them the process's user may read and write, the group when it is asked for, and nobody else. The
/// first access that a pipe could be given serves the whole process until its end, whatever becomes of the
/// variables. When one cannot be given, the log says why, the pipe has the default access, and the next pipe tries
/// again.
///
/// Lives while one pipe is made. As long as the process has no access that serves it, one thread at a time has one
/// of these, and others wait in the constructor.
class PipeSecurity {
 public:
    PipeSecurity();
    PipeSecurity(const PipeSecurity&) = delete;
    PipeSecurity& operator=(const PipeSecurity&) = delete;

    bool isDefault() const { return !access; }

    /// Makes the file of a socket that is bound after this be born for the user alone.
    ///
    /// @return false after a failure, which is logged.
    bool narrow(int socket) const;

    /// Gives the file of the bound socket its access. It never has more than that on the way.
    ///
    /// @return false after a failure, which is logged.
    bool grant(const std::string& socketFile);

 private:
    /// Held while there is no access for the whole process.
    std::unique_lock<std::mutex> building;
    /// None for the default one.
    std::optional<PipeAccess> access;
};

/// Makes the next pipe read the variables again, for tests.
void forgetPipeAccess();

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
