#include "cvtp/internal/IStreamBuffer.h"

#include <algorithm>
#include <utility>

#include "cvtp/internal/FramingNumbers.h"
#include "cvtp/internal/Logging.h"
#include "cvtp/internal/TransferSummary.h"
#include "io/PipeBufferBase.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

/// What is less than that behind a chunk is read ahead with it: a copy costs less than a read of several places.
/// Bytes.
const std::size_t WORTHWHILE = 4096;

/// A pipe seldom holds more, and more is not asked for at once where some of it may have to be given back. Bytes.
const std::size_t MOST_AT_ONCE = 65536;

/// Reads at least one byte and at most n, and waits only when none is there; none only at the end.
///
/// @param isMoreWanted what comes behind the n bytes is soon read, too.
template <class CharT>
std::size_t readSome(std::basic_streambuf<CharT>& source, CharT* target, std::streamsize n, bool isMoreWanted) {
    using Traits = typename std::basic_streambuf<CharT>::traits_type;
    if (auto* const pipe = Io::PipeBufferBase<CharT>::from(&source)) {
        // Straight from the pipe where it can be.
        return static_cast<std::size_t>(isMoreWanted ? pipe->readSomeAndAhead(target, n)
                                                     : pipe->readSome(target, n));
    }
    if (Traits::eq_int_type(source.sgetc(), Traits::eof())) {
        return 0;
    }
    const std::streamsize there = std::max<std::streamsize>(source.in_avail(), 1);
    return static_cast<std::size_t>(source.sgetn(target, std::min(n, there)));
}

}  // namespace

template <class CharT>
IStreamBuffer<CharT>::IStreamBuffer(std::basic_istream<CharT>& stream, std::int64_t length, int bufferSize)
    : remaining(length > 0 ? static_cast<std::uint64_t>(length) : 0),
      chunked(false),
      stream(stream),
      bufferSize(static_cast<std::size_t>(std::max(bufferSize, 1))),
      complete(remaining == 0) {}

template <class CharT>
IStreamBuffer<CharT>::IStreamBuffer(std::basic_istream<CharT>& stream, int bufferSize)
    : remaining(0), chunked(true), stream(stream), bufferSize(static_cast<std::size_t>(std::max(bufferSize, 1))) {}

template <class CharT>
bool IStreamBuffer<CharT>::isComplete() const {
    return complete;
}

template <class CharT>
bool IStreamBuffer<CharT>::isAtEnd() const {
    return done;
}

template <class CharT>
void IStreamBuffer<CharT>::skipAll() {
    remaining = 0;
    done = true;
    complete = true;
}

template <class CharT>
typename IStreamBuffer<CharT>::int_type IStreamBuffer<CharT>::underflow() {
    if (this->gptr() == this->egptr()) {
        reserveArea(areaSizeNeeded());
        const std::size_t n = read(area.get(), areaSize, Reach::CHUNK);
        this->setg(area.get(), area.get(), area.get() + n);
        if (n == 0) {
            return Traits::eof();
        }
    }
    return Traits::to_int_type(*this->gptr());
}

template <class CharT>
std::streamsize IStreamBuffer<CharT>::xsgetn(CharT* target, std::streamsize n) {
    const std::size_t wanted = n > 0 ? static_cast<std::size_t>(n) : 0;
    std::size_t taken = 0;
    try {
        taken = takeBuffered(target, wanted);
        bool more = true;
        while (taken < wanted && more) {
            std::size_t count = 0;
            if (isWorthReadingStraight(wanted - taken)) {
                count = read(target + taken, wanted - taken, Reach::TARGET);
            } else if (!Traits::eq_int_type(underflow(), Traits::eof())) {
                count = takeBuffered(target + taken, wanted - taken);
            }
            taken += count;
            more = count > 0;
        }
    } catch (...) {
        // The caller does not learn how much it got, so the next read gives it once more.
        keepForLater(target, taken);
        throw;
    }
    return static_cast<std::streamsize>(taken);
}

/// Reads at least one byte, at most n, and none only at the end. Throws, if at all, before it has taken a byte.
template <class CharT>
std::size_t IStreamBuffer<CharT>::read(CharT* target, std::size_t n, Reach reach) {
    if (done) {
        return 0;
    }
    begin();
    if (chunkEndRead < 2 && !readChunkEnd()) {
        return fail("Bad end of chunk");
    }
    if (chunked && remaining == 0 && !lastChunk && !readSizeLine()) {
        return fail("InputBuffer::read(): invalid chunksize line");
    }
    std::size_t count = 0;
    if (remaining > 0) {
        count = readBytes(target, n, reach);
        if (count == 0) {
            // Cut off. The stream has told so, and nothing more is to be said.
            done = true;
            return 0;
        }
    }
    const bool atEnd = remaining == 0 && (!chunked || lastChunk);
    // What was read is not held back until the CR LF behind it arrives. When that is there it is looked at, and a
    // wrong one drops what was read with it; deliberate.
    if (chunked && remaining == 0 && (atEnd || isChunkEndThere()) && !readChunkEnd()) {
        return fail("Bad end of chunk");
    }
    if (atEnd) {
        finish();
    }
    return count;
}

template <class CharT>
std::size_t IStreamBuffer<CharT>::readBytes(CharT* target, std::size_t n, Reach reach) {
    PipeBuffer* const pipe = reach == Reach::TARGET ? pipeForChunks(n) : nullptr;
    const std::size_t count = pipe != nullptr ? readChunks(*pipe, target, n) : readOfChunk(target, n);
    if (count == 0) {
        return 0;
    }
    bytesRead += count;
    if (remaining == 0) {
        chunkEndRead = chunked ? 0 : 2;
    }
    if (isInputTraced()) {
        traceInput(target, count, false);
    }
    return count;
}

/// Of the current chunk, or of a counted body.
template <class CharT>
std::size_t IStreamBuffer<CharT>::readOfChunk(CharT* target, std::size_t n) {
    const std::uint64_t size = std::min<std::uint64_t>(n, remaining);
    // A chunk is read with its end and the size of the next one. Behind a counted body there may be nothing.
    const bool isMoreWanted = chunked && size == remaining;
    const std::size_t count = readSome(*stream.rdbuf(), target, static_cast<std::streamsize>(size), isMoreWanted);
    remaining -= count;
    return count;
}

/// The pipe, when it is worthwhile to read the chunks behind this one with it.
template <class CharT>
typename IStreamBuffer<CharT>::PipeBuffer* IStreamBuffer<CharT>::pipeForChunks(std::size_t n) const {
    n = std::min(n, MOST_AT_ONCE);
    if (!chunked || n <= remaining) {
        return nullptr;
    }
    PipeBuffer* const pipe = PipeBuffer::from(stream.rdbuf());
    if (pipe == nullptr || pipe->capacity() == 0 || !pipe->ahead().empty()) {
        return nullptr;
    }
    const std::size_t least = std::min(WORTHWHILE, static_cast<std::size_t>(pipe->capacity()));
    return n - remaining >= least && chunkForm.size >= least ? pipe : nullptr;
}

/// Reads the rest of the chunk, which is less than n, and in one go what of the next chunks has come.
template <class CharT>
std::size_t IStreamBuffer<CharT>::readChunks(PipeBuffer& pipe, CharT* target, std::size_t n) {
    ChunkRooms rooms(target, std::min(n, MOST_AT_ONCE), remaining, chunkForm);
    // Before a byte is taken, since there may be no memory.
    reserveUnread(rooms.size() + static_cast<std::size_t>(pipe.capacity()));
    const std::streamsize received = pipe.readInto(rooms.begin(), rooms.end(), rooms.isChunkEndExpected());
    rooms.decode(static_cast<std::size_t>(received));
    ChunkRooms::Block blocks[ChunkRooms::MOST_BLOCKS];
    if (rooms.isChunkEndWrong(pipe.ahead())) {
        // How much of the last chunk that drops is up to reads that know one chunk only.
        pipe.unread(nullptr, blocks, rooms.blocksFrom(0, blocks), std::move(unreadMemory));
        return readOfChunk(target, n);
    }
    remaining = rooms.remainingOfChunk();
    chunkForm = rooms.formOfChunk();
    const std::size_t count = rooms.dataLength();
    if (rooms.decodedLength() < static_cast<std::size_t>(received)) {
        pipe.unread(target + count - 1, blocks, rooms.blocksFrom(rooms.decodedLength(), blocks),
                    std::move(unreadMemory));
    }
    return count;
}

template <class CharT>
void IStreamBuffer<CharT>::reserveUnread(std::size_t size) {
    if (unreadMemory == nullptr || unreadSize < size) {
        unreadMemory.reset(new CharT[size]);
        unreadSize = size;
    }
}

/// False when no LF comes within 19 characters.
template <class CharT>
bool IStreamBuffer<CharT>::readSizeLine() {
    std::basic_streambuf<CharT>& source = *stream.rdbuf();
    for (;;) {
        const int_type next = source.sgetc();
        if (Traits::eq_int_type(next, Traits::eof())) {
            return false;
        }
        const CharT c = Traits::to_char_type(next);
        if (c != '\n' && sizeLineLength == SIZE_LINE_BUFFER - 1) {
            return false;
        }
        source.sbumpc();
        if (c == '\n') {
            break;
        }
        sizeLine[sizeLineLength++] = c;
    }
    sizeLine[sizeLineLength] = '\0';
    remaining = parseChunkSize(sizeLine);
    // The line has a LF, and before it comes the CR LF of the chunk before.
    chunkForm = {remaining, static_cast<std::size_t>(sizeLineLength) + 3};
    sizeLineLength = 0;
    if (remaining == 0) {
        lastChunk = true;
        chunkEndRead = 0;
    }
    return true;
}

/// Reads the CR LF behind a chunk; false when something else stands there.
template <class CharT>
bool IStreamBuffer<CharT>::readChunkEnd() {
    std::basic_streambuf<CharT>& source = *stream.rdbuf();
    while (chunkEndRead < 2) {
        const CharT expected = chunkEndRead == 0 ? '\r' : '\n';
        if (!Traits::eq_int_type(source.sgetc(), Traits::to_int_type(expected))) {
            return false;
        }
        source.sbumpc();
        ++chunkEndRead;
    }
    return true;
}

template <class CharT>
bool IStreamBuffer<CharT>::isChunkEndThere() {
    return stream.rdbuf()->in_avail() >= 2;
}

template <class CharT>
void IStreamBuffer<CharT>::begin() {
    if (startTime == 0 && isDebug()) {
        startTime = currentMilliseconds();
    }
}

template <class CharT>
void IStreamBuffer<CharT>::finish() {
    done = true;
    complete = true;
    if (isDebug()) {
        logDebug(readSummary(bytesRead, elapsedSince(startTime)));
    }
    if (isInputTraced()) {
        traceInput("\n", 1, false);
    }
}

template <class CharT>
std::size_t IStreamBuffer<CharT>::fail(const char* message) {
    done = true;
    logError(message);
    return 0;
}

template <class CharT>
std::size_t IStreamBuffer<CharT>::takeBuffered(CharT* target, std::size_t n) {
    const std::size_t count = std::min(n, static_cast<std::size_t>(this->egptr() - this->gptr()));
    Traits::copy(target, this->gptr(), count);
    // Not gbump(), which takes an int.
    this->setg(this->eback(), this->gptr() + count, this->egptr());
    return count;
}

/// Reading into the get area first makes small reads cheap; a read that would empty it at once skips it.
template <class CharT>
bool IStreamBuffer<CharT>::isWorthReadingStraight(std::size_t n) const {
    return n >= bufferSize || (!chunked && n >= remaining);
}

template <class CharT>
std::size_t IStreamBuffer<CharT>::areaSizeNeeded() const {
    if (chunked) {
        return bufferSize;
    }
    return static_cast<std::size_t>(std::max<std::uint64_t>(std::min<std::uint64_t>(bufferSize, remaining), 1));
}

template <class CharT>
void IStreamBuffer<CharT>::reserveArea(std::size_t size) {
    if (areaSize < size) {
        this->setg(nullptr, nullptr, nullptr);
        area.reset(new CharT[size]);
        areaSize = size;
    }
}

template <class CharT>
void IStreamBuffer<CharT>::keepForLater(const CharT* bytes, std::size_t n) {
    reserveArea(n);
    Traits::copy(area.get(), bytes, n);
    this->setg(area.get(), area.get(), area.get() + n);
}

template class IStreamBuffer<char>;

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
