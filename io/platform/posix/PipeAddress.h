#pragma once

#include <string>

namespace Corvane {
namespace Io {
namespace Platform {

/// Where a pipe lies in the file system.
struct PipeAddress {
    /// The socket that clients connect to.
    std::string socketFile;
    /// Whoever has it locked owns the name. Only a server's search names it; a client's leaves it empty.
    std::string lockFile;
    /// A link whose text says what a server of one direction can do, "readable" or "writable"; there is none for a
    /// server of both. It is there before the socket is.
    std::string directionFile;
};

/// The text of the direction link.
constexpr const char* DIRECTION_READABLE = "readable";
constexpr const char* DIRECTION_WRITABLE = "writable";

enum class PipeSearch {
    /// By a server, which also makes the folder when it is one of the user's own.
    TO_CREATE,
    /// By a client, who looks at a folder that CVTP_PIPE_DIR names only when a connection has failed, since all
    /// there is to know is whether it exists.
    TO_CONNECT,
    /// By a client who could not connect.
    AFTER_FAILURE
};

/// Finds the files of the pipe `path` (prefix and name). Logs at ERROR why a name or its folder cannot be used.
///
/// @return 0 or the code of the system.
int findPipe(const std::string& path, PipeSearch search, PipeAddress& address);

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
