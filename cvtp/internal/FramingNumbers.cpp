#include "cvtp/internal/FramingNumbers.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "support/StringUtils.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

const std::uint64_t LARGEST = std::numeric_limits<std::uint64_t>::max();

/// Not the C library's functions: the locale of the application must not matter.
const char* skipWhiteSpace(const char* text) {
    return text + std::strspn(text, StringUtils::WHITE_SPACE);
}

/// The value of a digit; 16 for any other character.
unsigned digitValue(char c) {
    if (c >= '0' && c <= '9') {
        return static_cast<unsigned>(c - '0');
    }
    if (c >= 'a' && c <= 'f') {
        return static_cast<unsigned>(c - 'a') + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return static_cast<unsigned>(c - 'A') + 10;
    }
    return 16;
}

std::uint64_t parseDigits(const char* text, unsigned base) {
    std::uint64_t value = 0;
    for (; digitValue(*text) < base; ++text) {
        const unsigned digit = digitValue(*text);
        value = value > (LARGEST - digit) / base ? LARGEST : value * base + digit;
    }
    return value;
}

}  // namespace

std::int64_t parseContentLength(const std::string& text) {
    const char* position = skipWhiteSpace(text.c_str());
    const bool negative = *position == '-';
    if (*position == '-' || *position == '+') {
        ++position;
    }
    const std::uint64_t limit = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const std::int64_t value = static_cast<std::int64_t>(std::min(parseDigits(position, 10), limit));
    return negative ? -value : value;
}

std::uint64_t parseChunkSize(const char* text) {
    const char* position = skipWhiteSpace(text);
    if (position[0] == '0' && (position[1] == 'x' || position[1] == 'X')) {
        position += 2;
    }
    return parseDigits(position, 16);
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
