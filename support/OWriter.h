#pragma once

#include <cstddef>

namespace Corvane {

/// Something that takes bytes until it is closed.
class OWriter {
 public:
    OWriter() = default;
    virtual ~OWriter() = default;
    OWriter(const OWriter&) = delete;
    OWriter& operator=(const OWriter&) = delete;

    virtual void write(const char* data, std::size_t length) = 0;
    /// Passes on what is still held back.
    virtual void flush() = 0;
    /// Ends the bytes. A writer that is destroyed without it leaves them unfinished.
    virtual void close() = 0;
};

}  // namespace Corvane
