#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace Corvane {

/// Copies a text that is mostly short, up to 16 bytes. A call would cost more than the copy, one of this function
/// too.
///
/// @return the place behind the copy.
[[gnu::always_inline]] inline char* putShort(char* place, std::string_view text) {
    const char* const from = text.data();
    const std::size_t size = text.size();
    // A size in between is copied by two blocks that overlap. Sizes that the compiler knows become single moves.
    if (size > 16) {
        std::memcpy(place, from, size);
    } else if (size >= 8) {
        std::memcpy(place, from, 8);
        std::memcpy(place + size - 8, from + size - 8, 8);
    } else if (size >= 4) {
        std::memcpy(place, from, 4);
        std::memcpy(place + size - 4, from + size - 4, 4);
    } else {
        for (std::size_t i = 0; i < size; ++i) {
            place[i] = from[i];
        }
    }
    return place + size;
}

}  // namespace Corvane
