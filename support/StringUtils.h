#pragma once

#include <string>
#include <string_view>

namespace Corvane {
namespace StringUtils {

/// The white space that trim() removes: blank, tab, CR, LF, vertical tab and form feed.
extern const char* const WHITE_SPACE;

/// A copy of `text` without the characters of `characters` at its two ends.
std::string trim(const std::string& text, const char* characters = WHITE_SPACE);

/// The part of `text` between the characters of `characters` at its two ends.
std::string_view trimmed(std::string_view text, std::string_view characters);

/// A copy of `text` in which each CR, LF and NUL became one blank, so that it cannot end the line it stands in.
std::string onOneLine(const std::string& text);

/// The same; without a copy when `text` holds none of them. The result stands in `text` or in `memory`.
std::string_view onOneLine(std::string_view text, std::string& memory);

/// The same in place.
void putOnOneLine(std::string& text);

}  // namespace StringUtils
}  // namespace Corvane
