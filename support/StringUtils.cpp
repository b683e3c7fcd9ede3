#include "support/StringUtils.h"

#include <algorithm>

namespace Corvane {
namespace StringUtils {

namespace {

bool endsLine(char c) {
    return LINE_ENDS.contains(c);
}

}  // namespace

const char* const WHITE_SPACE = " \t\r\n\v\f";

std::string trim(const std::string& text, const char* characters) {
    return std::string(trimmed(text, CharacterSet(characters)));
}

std::string onOneLine(const std::string& text) {
    std::string line = text;
    putOnOneLine(line);
    return line;
}

void putOnOneLine(std::string& text) {
    std::replace_if(text.begin(), text.end(), endsLine, ' ');
}

std::string joined(std::initializer_list<std::string_view> pieces) {
    std::string::size_type size = 0;
    for (const std::string_view piece : pieces) {
        size += piece.size();
    }
    std::string text(size, '\0');
    char* place = text.data();
    for (const std::string_view piece : pieces) {
        place = std::copy(piece.begin(), piece.end(), place);
    }
    return text;
}

}  // namespace StringUtils
}  // namespace Corvane
