#include "tools/cvtp/Text.h"

#include <algorithm>

namespace Corvane {
namespace Tools {

std::string printable(const std::string& text) {
    const auto isControl = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7f;
    };
    std::string result = text;
    std::replace_if(result.begin(), result.end(), isControl, '?');
    return result;
}

std::string byteCount(std::uintmax_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

}  // namespace Tools
}  // namespace Corvane
