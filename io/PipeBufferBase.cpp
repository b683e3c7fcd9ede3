#include "io/PipeBufferBase.h"

#include <algorithm>
#include <limits>

#include "io/CvPipe.h"
#include "io/Exceptions.h"

namespace Corvane {
namespace Io {

template <class CharT, class Traits>
PipeBufferBase<CharT, Traits>::PipeBufferBase(CvPipe* pipe, int mode)
    : pipe(pipe),
      isInput(mode == static_cast<int>(std::ios_base::in)),
      isOutput(mode == static_cast<int>(std::ios_base::out)),
      buffer(nullptr),
      bufferSize(0),
      oneChar() {
    if (!isInput && !isOutput) {
        throw CvPipeException("Mode must be either ios_base::in or ios_base::out");
    }
    PipeBufferBase::setbuf(nullptr, 0);
}

template <class CharT, class Traits>
PipeBufferBase<CharT, Traits>::PipeBufferBase(const PipeBufferBase& other)
    : std::basic_streambuf<CharT, Traits>(other),
      pipe(other.pipe),
      isInput(other.isInput),
      isOutput(other.isOutput),
      buffer(other.buffer),
      bufferSize(other.bufferSize),
      oneChar(other.oneChar) {
    adoptOneChar(other);
}

template <class CharT, class Traits>
PipeBufferBase<CharT, Traits>& PipeBufferBase<CharT, Traits>::operator=(const PipeBufferBase& other) {
    if (this != &other) {
        std::basic_streambuf<CharT, Traits>::operator=(other);
        pipe = other.pipe;
        isInput = other.isInput;
        isOutput = other.isOutput;
        buffer = other.buffer;
        bufferSize = other.bufferSize;
        oneChar = other.oneChar;
        adoptOneChar(other);
    }
    return *this;
}

template <class CharT, class Traits>
PipeBufferBase<CharT, Traits>::~PipeBufferBase() = default;

/// The caller's memory is shared with a copy, but the one character inside the original may not live as long.
template <class CharT, class Traits>
void PipeBufferBase<CharT, Traits>::adoptOneChar(const PipeBufferBase& other) {
    if (other.buffer == &other.oneChar) {
        const auto used = this->gptr() - this->eback();
        const auto filled = this->egptr() - this->eback();
        buffer = &oneChar;
        this->setg(buffer, buffer + used, buffer + filled);
    }
}

template <class CharT, class Traits>
void PipeBufferBase<CharT, Traits>::requireInput() const {
    if (!isInput) {
        throw CvPipeException("Illegal operation: reading from output stream.");
    }
}

template <class CharT, class Traits>
void PipeBufferBase<CharT, Traits>::requireOutput() const {
    if (!isOutput) {
        throw CvPipeException("Illegal operation: writing to input stream.");
    }
}

/// Passes on what the put area holds. When the pipe throws, the put area stays as it was.
template <class CharT, class Traits>
void PipeBufferBase<CharT, Traits>::writePutArea() {
    const auto held = this->pptr() - this->pbase();
    if (held > 0) {
        pipe->writePipe(buffer, 0, static_cast<int>(held));
        this->setp(buffer, buffer + bufferSize);
    }
}

/// In one piece, unless that is more than the pipe can count.
template <class CharT, class Traits>
void PipeBufferBase<CharT, Traits>::writeUnbuffered(const CharT* s, std::streamsize n) {
    while (n > 0) {
        const std::streamsize piece = std::min<std::streamsize>(n, std::numeric_limits<int>::max());
        pipe->writePipe(s, 0, static_cast<int>(piece));
        s += piece;
        n -= piece;
    }
}

template <class CharT, class Traits>
void PipeBufferBase<CharT, Traits>::discard() {
    if (isOutput) {
        this->setp(buffer, buffer + bufferSize);
    } else {
        this->setg(buffer, buffer, buffer);
    }
}

template <class CharT, class Traits>
typename PipeBufferBase<CharT, Traits>::int_type PipeBufferBase<CharT, Traits>::overflow(int_type c) {
    requireOutput();
    const bool isEnd = Traits::eq_int_type(c, Traits::eof());
    if (buffer == nullptr) {
        if (!isEnd) {
            const CharT single = Traits::to_char_type(c);
            pipe->writePipe(&single, 0, 1);
        }
        return c;
    }
    writePutArea();
    if (isEnd || this->pptr() == this->epptr()) {
        // Also after a flush that worked; deliberate.
        return Traits::eof();
    }
    *this->pptr() = Traits::to_char_type(c);
    this->pbump(1);
    return c;
}

template <class CharT, class Traits>
typename PipeBufferBase<CharT, Traits>::int_type PipeBufferBase<CharT, Traits>::underflow() {
    requireInput();
    if (this->gptr() < this->egptr()) {
        return Traits::to_int_type(*this->gptr());
    }
    if (buffer == nullptr) {
        buffer = &oneChar;
        bufferSize = 1;
        this->setg(buffer, buffer, buffer);
    }
    const int count = pipe->readPipe(buffer, 0, bufferSize, pipe->getReadTimeout());
    this->setg(buffer, buffer, buffer + std::max(count, 0));
    return count < 1 ? Traits::eof() : Traits::to_int_type(*buffer);
}

template <class CharT, class Traits>
std::streamsize PipeBufferBase<CharT, Traits>::xsgetn(CharT* s, std::streamsize n) {
    requireInput();
    return std::basic_streambuf<CharT, Traits>::xsgetn(s, n);
}

template <class CharT, class Traits>
std::streamsize PipeBufferBase<CharT, Traits>::xsputn(const CharT* s, std::streamsize n) {
    requireOutput();
    if (s == nullptr || n <= 0) {
        return 0;
    }
    if (buffer == nullptr) {
        writeUnbuffered(s, n);
        // Not n, although all of it was written; deliberate. Whoever writes to a pipe's stream gives it a buffer.
        return 0;
    }
    std::streamsize taken = 0;
    for (;;) {
        const std::streamsize fitting = std::min<std::streamsize>(n - taken, this->epptr() - this->pptr());
        Traits::copy(this->pptr(), s + taken, static_cast<std::size_t>(fitting));
        this->pbump(static_cast<int>(fitting));
        taken += fitting;
        if (taken == n || Traits::eq_int_type(overflow(Traits::to_int_type(s[taken])), Traits::eof())) {
            return taken;
        }
        ++taken;
    }
}

template <class CharT, class Traits>
std::basic_streambuf<CharT, Traits>* PipeBufferBase<CharT, Traits>::setbuf(CharT* s, std::streamsize n) {
    if (buffer != nullptr) {
        // Two blanks after the first point; deliberate.
        throw CvPipeException("Buffer already set.  Reset not supported.");
    }
    const std::streamsize limit = std::numeric_limits<std::int32_t>::max();
    buffer = s;
    bufferSize = s == nullptr ? 0 : static_cast<std::int32_t>(std::clamp<std::streamsize>(n, 0, limit));
    discard();
    return this;
}

template <class CharT, class Traits>
int PipeBufferBase<CharT, Traits>::sync() {
    if (isOutput && buffer != nullptr) {
        writePutArea();
    }
    return 0;
}

template class PipeBufferBase<char>;

}  // namespace Io
}  // namespace Corvane
