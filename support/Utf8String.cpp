#include "support/Utf8String.h"

#include <algorithm>

namespace Corvane {
namespace Xml {

namespace {

/// The value of a hexadecimal digit, or -1. Not isxdigit: the locale of the application must not matter.
int hexValue(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

/// The byte that the `%XX` at `position` of `text` stands for, or -1 when there is no such escape.
int escapedByte(const std::string& text, std::string::size_type position) {
    if (text[position] != '%' || text.size() - position < 3) {
        return -1;
    }
    const int high = hexValue(text[position + 1]);
    const int low = hexValue(text[position + 2]);
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

/// An ordinary text has no such character, and is its own wire form.
bool isPerhapsEscaped(char c) {
    const unsigned char byte = static_cast<unsigned char>(c);
    return byte <= ' ' || byte == 0x7F || byte == '%';
}

bool mustBeEscaped(const std::string& text, std::string::size_type position) {
    const unsigned char c = static_cast<unsigned char>(text[position]);
    return c <= ' ' || c == 0x7F || escapedByte(text, position) >= 0;
}

}  // namespace

const std::string& Utf8String::encode(const std::string& text) {
    static const char DIGITS[] = "0123456789ABCDEF";
    if (std::none_of(text.begin(), text.end(), isPerhapsEscaped)) {
        return text;
    }
    buffer.clear();
    for (std::string::size_type i = 0; i < text.size(); ++i) {
        if (mustBeEscaped(text, i)) {
            const unsigned char c = static_cast<unsigned char>(text[i]);
            buffer += '%';
            buffer += DIGITS[c >> 4];
            buffer += DIGITS[c & 15];
        } else {
            buffer += text[i];
        }
    }
    return buffer;
}

const std::string& Utf8String::decode(const std::string& text) {
    buffer.clear();
    for (std::string::size_type i = 0; i < text.size(); ++i) {
        const int byte = escapedByte(text, i);
        if (byte >= 0) {
            buffer += static_cast<char>(byte);
            i += 2;
        } else {
            buffer += text[i];
        }
    }
    return buffer;
}

}  // namespace Xml
}  // namespace Corvane
