#include "cvtp/internal/FramingNumbers.h"

#include <algorithm>
#include <limits>

#include "support/StringUtils.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

const std::uint64_t LARGEST = std::numeric_limits<std::uint64_t>::max();

/// Not the C library's functions: the locale of the application must not matter.
void skipWhiteSpace(std::string_view& text) {
    while (!text.empty() && StringUtils::WHITE_SPACE_SET.contains(text.front())) {
        text.remove_prefix(1);
    }
}

/// The value of a digit of the base 10 or 16; the base or more for any other character.
template <unsigned BASE>
unsigned digitValue(char c) {
    // What comes before the first digit becomes a large number.
    const unsigned decimal = static_cast<unsigned char>(c) - static_cast<unsigned>('0');
    if constexpr (BASE <= 10) {
        return decimal;
    } else {
        const unsigned letter = static_cast<unsigned char>(c | 0x20) - static_cast<unsigned>('a');
        return decimal < 10 ? decimal : letter < 6 ? letter + 10 : BASE;
    }
}

/// The base is known to the compiler, which spares a division for each digit.
template <unsigned BASE>
std::uint64_t parseDigits(std::string_view text) {
    std::uint64_t value = 0;
    for (const char c : text) {
        const unsigned digit = digitValue<BASE>(c);
        if (digit >= BASE) {
            break;
        }
        value = value > (LARGEST - digit) / BASE ? LARGEST : value * BASE + digit;
    }
    return value;
}

}  // namespace

std::int64_t parseContentLength(std::string_view text) {
    skipWhiteSpace(text);
    const bool negative = !text.empty() && text.front() == '-';
    if (negative || (!text.empty() && text.front() == '+')) {
        text.remove_prefix(1);
    }
    const std::uint64_t limit = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const std::int64_t value = static_cast<std::int64_t>(std::min(parseDigits<10>(text), limit));
    return negative ? -value : value;
}

std::uint64_t parseChunkSize(std::string_view text) {
    skipWhiteSpace(text);
    if (text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        text.remove_prefix(2);
    }
    return parseDigits<16>(text);
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
