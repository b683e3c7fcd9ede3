#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <iosfwd>
#include <memory>
#include <string>

namespace Corvane {
namespace Tools {

/// Keeps bytes until they are asked for: the first ones in memory, all of them in a temporary file once there are
/// more than `memoryLimit`. The file has no name and goes with the object, however the program ends.
class Spool {
 public:
    static constexpr std::size_t DEFAULT_MEMORY_LIMIT = 1024 * 1024;

    explicit Spool(std::size_t memoryLimit = DEFAULT_MEMORY_LIMIT);

    /// @throws std::runtime_error the temporary file cannot be created or takes no more.
    void append(const char* data, std::size_t length);

    std::uintmax_t size() const { return total; }
    bool isInMemory() const { return file == nullptr; }

    /// What was appended, while it is in memory.
    const std::string& bytes() const { return memory; }

    /// Writes all bytes to a stream. May be called again, but nothing may be appended after it.
    ///
    /// @throws std::runtime_error the temporary file cannot be read back.
    void copyTo(std::ostream& out);

 private:
    struct Closer {
        void operator()(std::FILE* opened) const { std::fclose(opened); }
    };

    void moveToFile();
    void writeToFile(const char* data, std::size_t length);

    std::size_t memoryLimit;
    std::uintmax_t total = 0;
    std::string memory;
    std::unique_ptr<std::FILE, Closer> file;
};

}  // namespace Tools
}  // namespace Corvane
