#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Corvane {
namespace Io {
namespace Platform {

/// Whether a pipe can have that name: 1 to 256 bytes, without a backslash and without NUL.
bool isPipeName(std::string_view name);

/// The name of the socket file that stands for a pipe. No two pipes share one, it never leads out of its folder,
/// and it does not begin with a point.
///
/// ASCII letters become small ones, so that names compare without regard to case. A slash, a per cent sign, a
/// control byte and a point at the beginning are written as `%XX`; any other byte stays, so an ordinary name is the
/// name of the file. A name that is too long is replaced by its SHA-256 digest, cut to the room there is; `%s`
/// cannot come from an escape.
///
/// @param room the longest file name, in bytes.
/// @return an empty string when there is not even room for half a digest.
std::string pipeFileName(std::string_view name, std::size_t room);

/// The name of the pipe for which a socket file stands, in small letters. A digest stays as it is: what it was made
/// of cannot be found out.
std::string pipeNameOf(const std::string& fileName);

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
