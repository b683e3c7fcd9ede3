#include "io/PipeBufferBase.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <typeinfo>
#include <utility>
#include <vector>

#include "io/CvPipe.h"
#include "io/Exceptions.h"
#include "io/platform/PipePlatform.h"

namespace Corvane {
namespace Io {

namespace {

/// A block of this size is put behind another one sooner than it is written beside it. Bytes.
const std::streamsize COPIED_AT_MOST = 4096;

}  // namespace

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
PipeBufferBase<CharT, Traits>* PipeBufferBase<CharT, Traits>::from(std::basic_streambuf<CharT, Traits>* buffer) {
    // Comparing types costs a fraction of a dynamic_cast, and each message asks. A class that derives from this one
    // is taken for any other buffer.
    return buffer != nullptr && typeid(*buffer) == typeid(PipeBufferBase) ? static_cast<PipeBufferBase*>(buffer)
                                                                          : nullptr;
}

template <class CharT, class Traits>
void PipeBufferBase<CharT, Traits>::skip(std::size_t n) {
    this->gbump(static_cast<int>(std::min(n, ahead().size())));
}

template <class CharT, class Traits>
std::streamsize PipeBufferBase<CharT, Traits>::capacity() const {
    return bufferSize;
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
    std::streamsize taken = 0;
    std::streamsize count = 1;
    requireInput();
    while (taken < n && count > 0) {
        count = readSome(s + taken, n - taken);
        taken += count;
    }
    return taken;
}

template <class CharT, class Traits>
std::streamsize PipeBufferBase<CharT, Traits>::readSome(CharT* s, std::streamsize n) {
    return readSome(s, n, false);
}

template <class CharT, class Traits>
std::streamsize PipeBufferBase<CharT, Traits>::readSomeAndAhead(CharT* s, std::streamsize n) {
    return readSome(s, n, true);
}

template <class CharT, class Traits>
std::streamsize PipeBufferBase<CharT, Traits>::readSome(CharT* s, std::streamsize n, bool isMoreWanted) {
    requireInput();
    if (n <= 0) {
        return 0;
    }
    if (this->gptr() == this->egptr()) {
        if (bufferSize > 0 && n >= bufferSize) {
            return readStraight(s, n, isMoreWanted);
        }
        if (Traits::eq_int_type(underflow(), Traits::eof())) {
            return 0;
        }
    }
    return pickUp(s, n);
}

template <class CharT, class Traits>
std::streamsize PipeBufferBase<CharT, Traits>::readStraight(CharT* s, std::streamsize n, bool isMoreWanted) {
    const Platform::Room room{s, static_cast<int>(std::min<std::streamsize>(n, std::numeric_limits<int>::max()))};
    return readInto(&room, &room + 1, isMoreWanted);
}

template <class CharT, class Traits>
std::streamsize PipeBufferBase<CharT, Traits>::readInto(const Platform::Room* begin, const Platform::Room* end,
                                                        bool isMoreWanted) {
    requireInput();
    Platform::Room rooms[Platform::MOST_ROOMS];
    Platform::Room* last = std::copy(begin, end, rooms);
    if (isMoreWanted && bufferSize > 1) {
        // What is read ahead leaves a place for the byte before it.
        *last++ = {buffer + 1, bufferSize - 1};
    }
    const std::streamsize count = std::max(pipe->readBlocks(rooms, last), 0);
    if (count == 0) {
        discard();
        return 0;
    }
    std::streamsize straight = 0;
    const CharT* lastByte = nullptr;
    for (; begin != end && straight < count; ++begin) {
        const std::streamsize taken = std::min<std::streamsize>(begin->length, count - straight);
        lastByte = begin->data + taken - 1;
        straight += taken;
    }
    putBehind(*lastByte, count - straight);
    return straight;
}

/// Makes the bytes that stand behind the first one of the buffer, `n`, what was read ahead. The byte before stands
/// where it can be put back, as after any other read.
template <class CharT, class Traits>
void PipeBufferBase<CharT, Traits>::putBehind(CharT last, std::streamsize n) {
    *buffer = last;
    this->setg(buffer, buffer + 1, buffer + 1 + n);
}

template <class CharT, class Traits>
void PipeBufferBase<CharT, Traits>::unread(const CharT* last, const Block* begin, const Block* end,
                                           std::unique_ptr<CharT[]> memory) {
    CharT* place = memory.get();
    for (; begin != end; ++begin) {
        place = std::copy(begin->begin(), begin->end(), place);
    }
    place = std::copy(this->gptr(), this->egptr(), place);
    const std::size_t size = static_cast<std::size_t>(place - memory.get());
    pipe->unread(std::move(memory), size);
    discard();
    if (last != nullptr) {
        const Platform::Room room{buffer + 1, bufferSize - 1};
        putBehind(*last, pipe->readAgain(&room, &room + 1));
    }
}

/// Takes what the get area holds.
template <class CharT, class Traits>
std::streamsize PipeBufferBase<CharT, Traits>::pickUp(CharT* s, std::streamsize n) {
    const std::streamsize count = std::min<std::streamsize>(n, this->egptr() - this->gptr());
    Traits::copy(s, this->gptr(), static_cast<std::size_t>(count));
    this->gbump(static_cast<int>(count));
    return count;
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
    if (bufferSize == 0) {
        return 0;
    }
    const Block block(s, static_cast<std::size_t>(n));
    putBlocks(&block, &block + 1);
    return n;
}

template <class CharT, class Traits>
void PipeBufferBase<CharT, Traits>::putBlocks(const Block* begin, const Block* end) {
    requireOutput();
    std::streamsize n = 0;
    for (const Block* block = begin; block != end; ++block) {
        n += static_cast<std::streamsize>(block->size());
    }
    if (n > room()) {
        begin = writeWholeBuffers(begin, n);
    }
    for (; begin != end; ++begin) {
        putDown(*begin);
    }
}

/// Writes as many whole buffers as the put area and the blocks, `n` bytes, make together and still leave a byte:
/// the put area first, then straight from the caller's memory. Puts down the rest of the block in which they end.
///
/// @return the block behind that.
template <class CharT, class Traits>
const typename PipeBufferBase<CharT, Traits>::Block* PipeBufferBase<CharT, Traits>::writeWholeBuffers(
    const Block* block, std::streamsize n) {
    const std::streamsize held = this->pptr() - this->pbase();
    const std::streamsize straight = (held + n - 1) / bufferSize * bufferSize - held;
    std::vector<Block> blocks;
    std::size_t left = static_cast<std::size_t>(straight);
    for (; left >= block->size(); ++block) {
        left -= block->size();
        blocks.push_back(*block);
    }
    blocks.push_back(block->substr(0, left));
    if (straight <= COPIED_AT_MOST && straight == room()) {
        // For a few bytes two blocks cost more than a copy.
        std::for_each(blocks.begin(), blocks.end(), [this](const Block& few) { putDown(few); });
        writePutArea();
    } else {
        blocks.insert(blocks.begin(), Block(buffer, static_cast<std::size_t>(held)));
        pipe->writeBlocks(blocks, static_cast<std::size_t>(bufferSize));
        this->setp(buffer, buffer + bufferSize);
    }
    putDown(block->substr(left));
    return block + 1;
}

template <class CharT, class Traits>
void PipeBufferBase<CharT, Traits>::putDown(const Block& block) {
    Traits::copy(this->pptr(), block.data(), block.size());
    this->pbump(static_cast<int>(block.size()));
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

template class CVTP_EXPORT_DEFINED PipeBufferBase<char>;

}  // namespace Io
}  // namespace Corvane
