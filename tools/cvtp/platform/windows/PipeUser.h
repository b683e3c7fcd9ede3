#pragma once

#include <string>

namespace Corvane {
namespace Tools {

/// The user whose process serves a pipe. Connects to it for a moment: there is no other way to ask.
///
/// @return empty when the server does not take this client at once, or does not say who it is.
std::string userOfPipe(const std::string& path);

}  // namespace Tools
}  // namespace Corvane
