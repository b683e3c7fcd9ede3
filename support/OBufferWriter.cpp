#include "support/OBufferWriter.h"

#include <algorithm>
#include <cstring>
#include <ios>

namespace Corvane {

namespace {

void writeBlock(std::ostream& stream, const char* data, std::size_t length) {
    stream.write(data, static_cast<std::streamsize>(length));
}

/// Writes the line that precedes a chunk. Not with the stream's own formatting, which follows its locale and flags.
void writeSizeLine(std::ostream& stream, std::size_t size) {
    static const char DIGITS[] = "0123456789abcdef";
    char line[2 * sizeof size + 2];
    char* const end = line + sizeof line;
    char* begin = end;
    *--begin = '\n';
    *--begin = '\r';
    do {
        *--begin = DIGITS[size % 16];
        size /= 16;
    } while (size != 0);
    writeBlock(stream, begin, static_cast<std::size_t>(end - begin));
}

}  // namespace

OBufferWriter::OBufferWriter(std::ostream& stream, int bufferSize, bool chunked)
    : stream(stream), chunkSize(static_cast<std::size_t>(std::max(bufferSize, 1))), chunked(chunked) {}

void OBufferWriter::write(const char* data, std::size_t length) {
    if (!chunked) {
        writeBlock(stream, data, length);
        return;
    }
    while (length > 0) {
        std::size_t taken = chunkSize;
        if (held == 0 && length >= chunkSize) {
            writeChunk(data, taken);
        } else {
            taken = std::min(length, chunkSize - held);
            collect(data, taken);
        }
        data += taken;
        length -= taken;
    }
}

void OBufferWriter::collect(const char* data, std::size_t length) {
    if (!buffer) {
        buffer.reset(new char[chunkSize]);
    }
    std::memcpy(buffer.get() + held, data, length);
    held += length;
    if (held == chunkSize) {
        writeHeld();
    }
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
        writeBlock(stream, "0\r\n\r\n", 5);
    }
    stream.flush();
    closed = true;
}

void OBufferWriter::writeHeld() {
    if (held == 0) {
        // A chunk of no bytes would end the body.
        return;
    }
    const std::size_t length = held;
    held = 0;
    writeChunk(buffer.get(), length);
}

void OBufferWriter::writeChunk(const char* data, std::size_t length) {
    writeSizeLine(stream, length);
    writeBlock(stream, data, length);
    writeBlock(stream, "\r\n", 2);
}

}  // namespace Corvane
