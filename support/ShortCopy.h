#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

namespace Corvane {

/// Copies a text that is mostly short, up to 32 bytes. A call would cost more than the copy, one of this function
/// too.
///
/// @param text must not reach into the place. @return the place behind the copy.
[[gnu::always_inline]] inline char* putShort(char* place, std::string_view text) {
    const char* const from = text.data();
    const std::size_t size = text.size();
    // A size in between is copied by two blocks that overlap. Sizes that the compiler knows become single moves.
    if (size >= 8) {
        if (size <= 16) {
            std::memcpy(place, from, 8);
            std::memcpy(place + size - 8, from + size - 8, 8);
        } else if (size <= 32) {
            std::memcpy(place, from, 16);
            std::memcpy(place + size - 16, from + size - 16, 16);
        } else {
            std::memcpy(place, from, size);
        }
    } else if (size >= 4) {
        std::memcpy(place, from, 4);
        std::memcpy(place + size - 4, from + size - 4, 4);
    } else if (size > 0) {
        // The first, the middle and the last one, which may be the same.
        place[0] = from[0];
        place[size / 2] = from[size / 2];
        place[size - 1] = from[size - 1];
    }
    return place + size;
}

}  // namespace Corvane
