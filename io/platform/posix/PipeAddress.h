#pragma once

#include <string>

namespace Corvane {
namespace Io {
namespace Platform {

/// Where a pipe lies in the file system.
struct PipeAddress {
    /// The socket that clients connect to.
    std::string socketFile;
    /// Whoever has it locked owns the name.
    std::string lockFile;
    /// A link whose text says what a server of one direction can do, "readable" or "writable"; there is none for a
    /// server of both. It is there before the socket is.
    std::string directionFile;
};

/// The text of the direction link.
constexpr const char* DIRECTION_READABLE = "readable";
constexpr const char* DIRECTION_WRITABLE = "writable";

/// Finds the files of the pipe `path` (prefix and name). Logs at ERROR why a name or its folder cannot be used.
///
/// @param create make the folder when it is one of the user's own; servers do.
/// @return 0 or the code of the system.
int findPipe(const std::string& path, bool create, PipeAddress& address);

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
