#pragma once

#include <cstddef>
#include <cstdint>
#include <ios>
#include <memory>
#include <streambuf>
#include <string>
#include <string_view>

#include "support/Export.h"

namespace Corvane {
namespace Io {

namespace Platform {
struct Room;
}

class CvPipe;

/// The stream buffer that puts a standard stream on one direction of a CvPipe. Only the `char` instantiation
/// exists. The streams of CvPipe::getInputStream() and getOutputStream() stand on it.
///
/// It owns no memory: without a buffer it reads and writes single blocks unbuffered; one buffer may be given, once,
/// through pubsetbuf(), must outlive the pipe, and is released by whoever gave it. Bytes written reach the pipe
/// when the buffer is full and one more byte comes, or when the stream is flushed. Exceptions of the pipe pass
/// through.
///
/// Used by one thread at a time. A copy shares pipe and memory with its original.
template <class CharT, class Traits = std::char_traits<CharT>>
class PipeBufferBase : public std::basic_streambuf<CharT, Traits> {
 public:
    using int_type = typename Traits::int_type;
    using Block = std::basic_string_view<CharT, Traits>;

    /// @param pipe not owned.
    /// @param mode the value of std::ios_base::in or std::ios_base::out.
    /// @throws CvPipeException any other mode.
    PipeBufferBase(CvPipe* pipe, int mode);
    PipeBufferBase(const PipeBufferBase& other);
    PipeBufferBase& operator=(const PipeBufferBase& other);
    ~PipeBufferBase() override;

    /// The same buffer as what it is; null when it is not a pipe's.
    static PipeBufferBase* from(std::basic_streambuf<CharT, Traits>* buffer);

    /// What was read ahead. Valid until the next call that reads.
    Block ahead() const { return {this->gptr(), static_cast<std::size_t>(this->egptr() - this->gptr())}; }
    /// Takes the first `n` of it away.
    void skip(std::size_t n);

    /// The size of the buffer in bytes; 0 without one.
    std::streamsize capacity() const;

    /// How many more bytes it takes before it has to write to the pipe; 0 without a buffer, and for input.
    std::streamsize room() const { return this->epptr() - this->pptr(); }

    /// Takes `n` bytes, which the caller then puts where this points to, before it does anything else with the
    /// buffer. `n` is at most room().
    CharT* claim(std::size_t n) {
        CharT* const place = this->pptr();
        this->pbump(static_cast<int>(n));
        return place;
    }

    /// Writes blocks, one behind the other, as if they were one. Needs a buffer.
    void putBlocks(const Block* begin, const Block* end);

    /// Reads at least one byte and at most `n`, and waits only when none is there; many are read straight into
    /// `s`.
    ///
    /// @return the number of bytes; 0 at the end of data.
    std::streamsize readSome(CharT* s, std::streamsize n);

    /// The same; what has come behind many bytes is read ahead with them.
    std::streamsize readSomeAndAhead(CharT* s, std::streamsize n);

    /// The same into several places, straight: what has no room in the first one goes into the next one, and so on.
    /// Needs a buffer, and nothing may be read ahead before.
    ///
    /// @param begin the places, at least one and fewer than Platform::MOST_ROOMS, none of them empty.
    /// @param isMoreWanted what has come behind them is read ahead.
    std::streamsize readInto(const Platform::Room* begin, const Platform::Room* end, bool isMoreWanted);

    /// Takes the last bytes that were read back, and with them what was read ahead: they are read again before all
    /// that comes. Throws nothing.
    ///
    /// @param last the byte before them. It stays read, and some of those behind it are read ahead at once. Null:
    ///        nothing is.
    /// @param memory where they may stay; at least as large as the blocks and the buffer together.
    void unread(const CharT* last, const Block* begin, const Block* end, std::unique_ptr<CharT[]> memory);

 protected:
    /// Each of these throws CvPipeException when the buffer is of the other direction.
    int_type overflow(int_type c = Traits::eof()) override;
    int_type underflow() override;
    std::streamsize xsgetn(CharT* s, std::streamsize n) override;
    std::streamsize xsputn(const CharT* s, std::streamsize n) override;
    /// @throws CvPipeException a buffer was given before.
    std::basic_streambuf<CharT, Traits>* setbuf(CharT* s, std::streamsize n) override;
    int sync() override;

 private:
    /// A pipe that is opened again must not go on with the bytes of the connection before.
    friend class CvPipe;

    void requireInput() const;
    void requireOutput() const;
    void writePutArea();
    const Block* writeWholeBuffers(const Block* block, std::streamsize n);
    void putDown(const Block& block);
    std::streamsize readSome(CharT* s, std::streamsize n, bool isMoreWanted);
    std::streamsize readStraight(CharT* s, std::streamsize n, bool isMoreWanted);
    void putBehind(CharT last, std::streamsize n);
    std::streamsize pickUp(CharT* s, std::streamsize n);
    void writeUnbuffered(const CharT* s, std::streamsize n);
    /// Forgets what was read ahead, or not written yet.
    void discard();
    void adoptOneChar(const PipeBufferBase& other);

    CvPipe* pipe;
    bool isInput;
    bool isOutput;
    CharT* buffer;
    std::int32_t bufferSize;
    /// The read buffer while no other was given.
    CharT oneChar;
};

extern template class CVTP_EXPORT_DECLARED PipeBufferBase<char>;

}  // namespace Io
}  // namespace Corvane
