#pragma once

#include <cstdint>
#include <string>

namespace Corvane {
namespace Tools {

/// A copy of `text` in which each control byte became a question mark. Names and messages come from the other side
/// of a pipe; they must neither break a line nor command a terminal.
std::string printable(const std::string& text);

/// "1 byte", "2 bytes" and so on.
std::string byteCount(std::uintmax_t count);

}  // namespace Tools
}  // namespace Corvane
