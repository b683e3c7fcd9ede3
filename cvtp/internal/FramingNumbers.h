#pragma once

#include <cstdint>
#include <string_view>

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// The numbers that say how long a body is. They mean the same on every platform and never overflow: a number that
/// does not fit becomes the largest (or smallest) one that does.

/// The value of a Content-Length: white space, a sign, and the decimal digits up to the first other character. 0
/// when there are no digits.
std::int64_t parseContentLength(std::string_view text);

/// The size in the line before a chunk: white space, an optional "0x", and the hexadecimal digits up to the first
/// other character. 0 when there are none; a sign does not count as part of a number.
std::uint64_t parseChunkSize(std::string_view text);

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
