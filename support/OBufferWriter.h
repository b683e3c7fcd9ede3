#pragma once

#include <cstddef>
#include <memory>
#include <ostream>
#include <string_view>

#include "support/OWriter.h"

namespace Corvane {

/// Writes bytes to a stream, either as they are or in chunks: the size of a chunk in hexadecimal, CR LF, its bytes,
/// CR LF. close() of a chunked writer adds the last chunk, "0" CR LF CR LF.
///
/// Chunked, it collects bytes until a chunk is full; the part of a block that fills a chunk is not copied: it goes
/// from the caller's memory to the stream. Without chunks it holds nothing back, since the stream has a buffer of
/// its own. What the stream throws passes through; the bytes of the chunk that was being written are dropped then.
class OBufferWriter : public OWriter {
 public:
    /// @param stream not owned. @param bufferSize the size of a full chunk in bytes; below 1 counts as 1.
    OBufferWriter(std::ostream& stream, int bufferSize, bool chunked);

    void write(const char* data, std::size_t length) override;
    /// Writes what is held back, as a chunk, and flushes the stream.
    void flush() override;
    /// A second call does nothing. Nothing may be written after it.
    void close() override;

 protected:
    using Block = std::string_view;

    /// Writes blocks, one behind the other: to the stream, one at a time, where a derived class knows no better.
    virtual void writeBlocks(const Block* begin, const Block* end);

 private:
    Block writeFullChunks(Block data);
    void collect(Block data);
    void writeHeld();

    std::ostream& stream;
    const std::size_t chunkSize;
    const bool chunked;
    bool closed = false;
    /// The bytes of a chunk that is not full; allocated when it is needed first.
    std::unique_ptr<char[]> buffer;
    std::size_t held = 0;
};

}  // namespace Corvane
