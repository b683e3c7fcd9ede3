#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "io/platform/windows/SystemCalls.h"

namespace Corvane {
namespace Io {
namespace Platform {

/// Owns a handle of the system and closes it.
class Handle {
 public:
    Handle() = default;
    /// Takes over `value`. Both null and INVALID_HANDLE_VALUE mean none: the system's calls report failure now by
    /// the one, now by the other.
    explicit Handle(HANDLE value) : value(value == nullptr ? INVALID_HANDLE_VALUE : value) {}
    Handle(Handle&& other) noexcept : value(std::exchange(other.value, INVALID_HANDLE_VALUE)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(value, other.value);
        return *this;
    }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() {
        if (isOpen()) {
            calls().closeHandle(value);
        }
    }

    bool isOpen() const { return value != INVALID_HANDLE_VALUE; }
    HANDLE get() const { return value; }

    /// The number of the handle for the log; -1 for none.
    std::string text() const { return std::to_string(reinterpret_cast<std::intptr_t>(value)); }

 private:
    HANDLE value = INVALID_HANDLE_VALUE;
};

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
