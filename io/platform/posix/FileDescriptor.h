#pragma once

#include <utility>

#include "io/platform/posix/SystemCalls.h"

namespace Corvane {
namespace Io {
namespace Platform {

/// Owns a file descriptor and closes it.
class FileDescriptor {
 public:
    FileDescriptor() = default;
    /// Takes over `number`; a negative one means none.
    explicit FileDescriptor(int number) : number(number) {}
    FileDescriptor(FileDescriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        std::swap(number, other.number);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() {
        // Not repeated after EINTR: the number is free by then, and may be another's already.
        if (isOpen()) {
            calls().close(number);
        }
    }

    bool isOpen() const { return number >= 0; }
    int get() const { return number; }

 private:
    int number = -1;
};

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
