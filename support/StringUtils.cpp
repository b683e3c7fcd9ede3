#include "support/StringUtils.h"

#include <algorithm>

namespace Corvane {
namespace StringUtils {

namespace {

bool endsLine(char c) {
    return c == '\r' || c == '\n' || c == '\0';
}

}  // namespace

const char* const WHITE_SPACE = " \t\r\n\v\f";

std::string trim(const std::string& text, const char* characters) {
    return std::string(trimmed(text, characters));
}

std::string_view trimmed(std::string_view text, std::string_view characters) {
    // Not the searches of the library: one call of theirs for each character costs more than all of this.
    const auto isCut = [characters](char c) {
        return std::any_of(characters.begin(), characters.end(), [c](char cut) { return cut == c; });
    };
    while (!text.empty() && isCut(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isCut(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

std::string onOneLine(const std::string& text) {
    std::string line = text;
    putOnOneLine(line);
    return line;
}

std::string_view onOneLine(std::string_view text, std::string& memory) {
    if (std::none_of(text.begin(), text.end(), endsLine)) {
        return text;
    }
    memory = text;
    putOnOneLine(memory);
    return memory;
}

void putOnOneLine(std::string& text) {
    std::replace_if(text.begin(), text.end(), endsLine, ' ');
}

}  // namespace StringUtils
}  // namespace Corvane
