#include "support/OBufferWriter.h"

#include <algorithm>
#include <ios>
#include <iterator>
#include <string_view>

namespace Corvane {

namespace {

/// So many full chunks are given to the stream together.
const std::size_t CHUNKS_AT_ONCE = 8;

constexpr std::string_view LINE_END = "\r\n";

/// The line that precedes a chunk. Not written with the stream's own formatting, which follows its locale and
/// flags.
class SizeLine {
 public:
    explicit SizeLine(std::size_t size) {
        static const char DIGITS[] = "0123456789abcdef";
        char* begin = text + sizeof text - LINE_END.size();
        LINE_END.copy(begin, LINE_END.size());
        do {
            *--begin = DIGITS[size % 16];
            size /= 16;
        } while (size != 0);
        length = static_cast<std::size_t>(text + sizeof text - begin);
    }

    std::string_view get() const { return {text + sizeof text - length, length}; }

 private:
    char text[2 * sizeof(std::size_t) + LINE_END.size()];
    std::size_t length;
};

}  // namespace

OBufferWriter::OBufferWriter(std::ostream& stream, int bufferSize, bool chunked)
    : stream(stream), chunkSize(static_cast<std::size_t>(std::max(bufferSize, 1))), chunked(chunked) {}

void OBufferWriter::write(const char* data, std::size_t length) {
    const Block block(data, length);
    if (chunked) {
        collect(writeFullChunks(block));
    } else {
        writeBlocks(&block, &block + 1);
    }
}

void OBufferWriter::writeBlocks(const Block* begin, const Block* end) {
    for (; begin != end; ++begin) {
        stream.write(begin->data(), static_cast<std::streamsize>(begin->size()));
    }
}

/// @return what is left and fills no chunk.
OBufferWriter::Block OBufferWriter::writeFullChunks(Block data) {
    const SizeLine line(chunkSize);
    while (held + data.size() >= chunkSize) {
        Block blocks[4 * CHUNKS_AT_ONCE];
        Block* end = blocks;
        for (std::size_t i = 0; i < CHUNKS_AT_ONCE && held + data.size() >= chunkSize; ++i) {
            *end++ = line.get();
            if (held > 0) {
                *end++ = Block(buffer.get(), held);
            }
            *end++ = data.substr(0, chunkSize - held);
            *end++ = LINE_END;
            data.remove_prefix(chunkSize - held);
            held = 0;
        }
        writeBlocks(blocks, end);
    }
    return data;
}

void OBufferWriter::collect(Block data) {
    if (data.empty()) {
        return;
    }
    if (!buffer) {
        buffer.reset(new char[chunkSize]);
    }
    data.copy(buffer.get() + held, data.size());
    held += data.size();
}

void OBufferWriter::flush() {
    writeHeld();
    stream.flush();
}

void OBufferWriter::close() {
    if (closed) {
        return;
    }
    writeHeld();
    if (chunked) {
        const Block lastChunk = "0\r\n\r\n";
        writeBlocks(&lastChunk, &lastChunk + 1);
    }
    stream.flush();
    closed = true;
}

void OBufferWriter::writeHeld() {
    if (held == 0) {
        // A chunk of no bytes would end the body.
        return;
    }
    const SizeLine line(held);
    const Block blocks[] = {line.get(), Block(buffer.get(), held), LINE_END};
    held = 0;
    writeBlocks(std::begin(blocks), std::end(blocks));
}

}  // namespace Corvane
