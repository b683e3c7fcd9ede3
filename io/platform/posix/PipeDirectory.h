#pragma once

#include <string>

namespace Corvane {
namespace Io {
namespace Platform {

/// The folder for all users, made by the administrator.
constexpr const char* SYSTEM_PIPE_DIRECTORY = "/run/cvtp";

/// Finds the folder that holds the socket files. In this order: the one that the environment variable
/// CVTP_PIPE_DIR names, which is the caller's own choice and only has to exist; `systemDirectory`, if it exists;
/// `cvtp` in the folder that XDG_RUNTIME_DIR names, if that exists; `/tmp/cvtp-` and the user's number. The last
/// two are for one user alone.
///
/// A folder that the variable does not name is refused when somebody else could have put it there or could put
/// things of his into the place of ours: when it belongs to neither root nor the user, is a link, or lets others
/// write without the sticky bit. So is one in a folder of XDG_RUNTIME_DIR that is not safe itself. Each refusal is
/// logged at ERROR.
///
/// @param create make a missing folder of the user's own.
/// @param directory the result, without a slash at its end.
/// @return 0 or the code of the system.
int findPipeDirectory(const std::string& systemDirectory, bool create, std::string& directory);

/// The folder that CVTP_PIPE_DIR names, whether it exists or not, without a slash at its end; empty when there is
/// no such variable.
std::string chosenPipeDirectory();

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
