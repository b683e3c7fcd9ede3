#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <memory>
#include <streambuf>

#include "cvtp/internal/ChunkRooms.h"
#include "io/PipeBufferBase.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// Decodes the body of a message from the pipe's stream: a counted body, or a chunked one. Only the `char`
/// instantiation exists.
///
/// It gives what is there, and waits only when nothing is. It takes the bytes from the buffer of the pipe's stream,
/// not through the stream itself: an exception of the pipe, such as a timeout, passes through, leaves the pipe's
/// stream usable, and costs no byte; the next read goes on where this one stopped.
template <class CharT>
class IStreamBuffer : public std::basic_streambuf<CharT> {
 public:
    using Traits = typename std::basic_streambuf<CharT>::traits_type;
    using int_type = typename Traits::int_type;

    /// A counted body. @param stream not owned. @param length in bytes; below 0 counts as 0.
    /// @param bufferSize in bytes; below 1 counts as 1.
    IStreamBuffer(std::basic_istream<CharT>& stream, std::int64_t length, int bufferSize);

    /// A chunked body.
    IStreamBuffer(std::basic_istream<CharT>& stream, int bufferSize);

    /// True once the declared end of the body was reached; stays false when the body is cut off or malformed.
    bool isComplete() const;
    /// True once nothing more is to be read, be the body complete or not.
    bool isAtEnd() const;

    /// For a body that was read otherwise: as if all of it had been read from here.
    void skipAll();

 protected:
    int_type underflow() override;
    std::streamsize xsgetn(CharT* target, std::streamsize n) override;

 private:
    /// A size line, and the NUL behind it.
    static constexpr int SIZE_LINE_BUFFER = 20;

    using PipeBuffer = Io::PipeBufferBase<CharT>;

    /// How far a read may go: to the end of the chunk, or as far as the caller's memory reaches.
    enum class Reach { CHUNK, TARGET };

    std::size_t read(CharT* target, std::size_t n, Reach reach);
    std::size_t readBytes(CharT* target, std::size_t n, Reach reach);
    std::size_t readOfChunk(CharT* target, std::size_t n);
    PipeBuffer* pipeForChunks(std::size_t n) const;
    std::size_t readChunks(PipeBuffer& pipe, CharT* target, std::size_t n);
    void reserveUnread(std::size_t size);
    bool readSizeLine();
    bool readChunkEnd();
    bool isChunkEndThere();
    void begin();
    void finish();
    std::size_t fail(const char* message);

    std::size_t takeBuffered(CharT* target, std::size_t n);
    bool isWorthReadingStraight(std::size_t n) const;
    std::size_t areaSizeNeeded() const;
    void reserveArea(std::size_t size);
    void keepForLater(const CharT* bytes, std::size_t n);

    /// Bytes left of the current chunk, or of the counted body.
    std::uint64_t remaining;
    const bool chunked;
    /// Nothing more is to be read: the end was reached, or an error found.
    bool done = false;
    std::basic_istream<CharT>& stream;
    /// Milliseconds; 0 while nobody wants to know.
    std::int64_t startTime = 0;
    std::uint64_t bytesRead = 0;
    /// The get area, allocated when it is needed first.
    std::unique_ptr<CharT[]> area;
    std::size_t areaSize = 0;
    const std::size_t bufferSize;

    bool complete = false;
    /// The size line of the last chunk has been read.
    bool lastChunk = false;
    /// Where the reading of a chunk's frame stands, kept over a timeout: the characters of a size line that is not
    /// all there, and how much of the CR LF behind a chunk has been read (2: all, or no chunk was read yet).
    CharT sizeLine[SIZE_LINE_BUFFER];
    int sizeLineLength = 0;
    int chunkEndRead = 2;
    /// Of the current chunk, as far as its size line is known.
    ChunkForm chunkForm;
    /// For what a read of several chunks may have to give back.
    std::unique_ptr<CharT[]> unreadMemory;
    std::size_t unreadSize = 0;
};

extern template class IStreamBuffer<char>;

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
