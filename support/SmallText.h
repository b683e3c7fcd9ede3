#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "support/ShortCopy.h"

namespace Corvane {

/// A text that is set once or seldom and mostly short: up to SIZE bytes it needs no memory of its own.
template <std::size_t SIZE>
class SmallText {
 public:
    SmallText() = default;
    SmallText(const SmallText&) = delete;
    SmallText& operator=(const SmallText&) = delete;

    void assign(std::string_view text) {
        if (text.size() <= SIZE) {
            putShort(few.data(), text);
        } else {
            many = text;
        }
        size = text.size();
    }

    /// Holds until the next assign().
    std::string_view view() const { return {size <= SIZE ? few.data() : many.data(), size}; }
    bool empty() const { return size == 0; }

 private:
    std::array<char, SIZE> few;
    std::string many;
    std::size_t size = 0;
};

}  // namespace Corvane
