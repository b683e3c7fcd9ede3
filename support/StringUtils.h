#pragma once

#include <array>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>

namespace Corvane {
namespace StringUtils {

/// The white space that trim() removes: blank, tab, CR, LF, vertical tab and form feed.
extern const char* const WHITE_SPACE;

/// Some characters, of which each text is asked for in one look: the searches of the library cost a call for each
/// character.
class CharacterSet {
 public:
    constexpr explicit CharacterSet(std::string_view characters) {
        for (const char c : characters) {
            members[static_cast<unsigned char>(c)] = true;
        }
    }

    constexpr bool contains(char c) const { return members[static_cast<unsigned char>(c)]; }

    constexpr bool isAnyIn(std::string_view text) const {
        const char* c = text.data();
        std::size_t left = text.size();
        // Four at a time: texts are short, and most of the time of one by one would be the jumps.
        for (; left >= 4; left -= 4, c += 4) {
            // Not ||, which would jump.
            if ((bit(c[0]) | bit(c[1]) | bit(c[2]) | bit(c[3])) != 0) {
                return true;
            }
        }
        for (; left > 0; --left, ++c) {
            if (contains(*c)) {
                return true;
            }
        }
        return false;
    }

 private:
    constexpr unsigned bit(char c) const { return contains(c) ? 1U : 0U; }

    std::array<bool, 256> members{};
};

/// The same as WHITE_SPACE.
inline constexpr CharacterSet WHITE_SPACE_SET{" \t\r\n\v\f"};

/// A copy of `text` without the characters of `characters` at its two ends.
std::string trim(const std::string& text, const char* characters = WHITE_SPACE);

/// The part of `text` between the characters of `cut` at its two ends.
constexpr std::string_view trimmed(std::string_view text, const CharacterSet& cut) {
    while (!text.empty() && cut.contains(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && cut.contains(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

/// A copy of `text` in which each CR, LF and NUL became one blank, so that it cannot end the line it stands in.
std::string onOneLine(const std::string& text);

/// The same in place.
void putOnOneLine(std::string& text);

/// The characters that end a line.
inline constexpr CharacterSet LINE_ENDS{std::string_view("\r\n\0", 3)};

/// The same as the first; without a copy when `text` holds none of them. The result stands in `text` or in
/// `memory`.
inline std::string_view onOneLine(std::string_view text, std::string& memory) {
    if (!LINE_ENDS.isAnyIn(text)) {
        return text;
    }
    memory = text;
    putOnOneLine(memory);
    return memory;
}

/// The pieces, one behind the other.
std::string joined(std::initializer_list<std::string_view> pieces);

}  // namespace StringUtils
}  // namespace Corvane
