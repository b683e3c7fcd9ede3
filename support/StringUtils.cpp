#include "support/StringUtils.h"

#include <algorithm>

namespace Corvane {
namespace StringUtils {

const char* const WHITE_SPACE = " \t\r\n\v\f";

std::string trim(const std::string& text, const char* characters) {
    const std::string::size_type first = text.find_first_not_of(characters);
    if (first == std::string::npos) {
        return std::string();
    }
    return text.substr(first, text.find_last_not_of(characters) - first + 1);
}

std::string onOneLine(const std::string& text) {
    std::string line = text;
    putOnOneLine(line);
    return line;
}

void putOnOneLine(std::string& text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\r' || c == '\n' || c == '\0'; }, ' ');
}

}  // namespace StringUtils
}  // namespace Corvane
