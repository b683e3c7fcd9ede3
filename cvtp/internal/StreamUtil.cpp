#include "cvtp/internal/StreamUtil.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "cvtp/internal/Logging.h"
#include "io/Exceptions.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

/// With its NUL. A protocol line must stay below this, its LF included.
const std::size_t LINE_BUFFER_SIZE = 2048;

/// What readLength() allocates before it has seen a byte.
const std::size_t FIRST_BLOCK_SIZE = 8192;

const std::size_t FIRST_READ_TO_END_SIZE = 40960;

/// A block of the C allocator, which is what callers free; it has room for a NUL behind its capacity.
class Block {
 public:
    explicit Block(std::size_t capacity) { resize(capacity); }

    void resize(std::size_t newCapacity) {
        void* const bytes = std::realloc(memory.get(), newCapacity + 1);
        if (bytes == nullptr) {
            throw std::bad_alloc();
        }
        // realloc has freed the old block.
        static_cast<void>(memory.release());
        memory.reset(static_cast<char*>(bytes));
        capacity = newCapacity;
    }

    /// Reads until the block is full or the stream gives no more.
    void fill(std::istream& in) {
        while (used < capacity && in.good()) {
            in.read(memory.get() + used, static_cast<std::streamsize>(capacity - used));
            used += static_cast<std::size_t>(in.gcount());
        }
    }
    /// The same for a buffer.
    void fill(std::streambuf& in) {
        used +=
            static_cast<std::size_t>(in.sgetn(memory.get() + used, static_cast<std::streamsize>(capacity - used)));
    }

    bool isFull() const { return used == capacity; }
    std::size_t size() const { return used; }

    char* release() {
        memory.get()[used] = '\0';
        return memory.release();
    }

 private:
    struct Free {
        void operator()(char* bytes) const { std::free(bytes); }
    };

    std::unique_ptr<char, Free> memory;
    std::size_t capacity = 0;
    std::size_t used = 0;
};

[[noreturn]] void throwEndedEarly() {
    throw Io::InterruptedException(StreamUtil::LINE_CUT_OFF);
}

/// Waits until the pipe has bytes, without the stream but with the state that the stream would have after it.
void awaitBytes(std::istream& in, Io::PipeBufferBase<char>& pipe) {
    bool isEnd = false;
    try {
        isEnd = pipe.sgetc() == std::char_traits<char>::eof();
    } catch (...) {
        StreamUtil::setState(in, std::ios::badbit);
        throw;
    }
    if (isEnd) {
        in.setstate(std::ios_base::eofbit | std::ios_base::failbit);
        throwEndedEarly();
    }
}

void readLineByStream(std::istream& in, std::string& line) {
    char buffer[LINE_BUFFER_SIZE];
    line.clear();
    if (in.good()) {
        in.getline(buffer, sizeof buffer);
    }
    // Failed, but not at the end: the buffer filled before a LF came. Nothing that goes on reading from here could
    // make progress, so a line that is too long ends like one that is cut off.
    if (!in.good()) {
        throwEndedEarly();
    }
    // The LF is counted, but not stored.
    std::size_t length = static_cast<std::size_t>(in.gcount()) - 1;
    if (length > 0 && buffer[length - 1] == '\r') {
        --length;
    }
    line.assign(buffer, length);
}

template <class Source>
void readBlock(Source& in, char*& data, std::int64_t length) {
    data = nullptr;
    const std::uint64_t wanted = static_cast<std::uint64_t>(std::max<std::int64_t>(length, 0));
    // Kept below the largest allocation, so that nothing overflows where a size has 32 bits.
    const std::uint64_t limit = std::min<std::uint64_t>(wanted, PTRDIFF_MAX - 1);
    std::size_t capacity = static_cast<std::size_t>(std::min<std::uint64_t>(limit, FIRST_BLOCK_SIZE));
    Block block(capacity);
    block.fill(in);
    while (block.size() < wanted && block.isFull()) {
        capacity = static_cast<std::size_t>(std::min<std::uint64_t>(limit, 2 * std::uint64_t{capacity}));
        block.resize(capacity);
        block.fill(in);
    }
    if (block.size() < wanted) {
        const std::string message = "Reached the stream end-of-file before the expected length.";
        logWarn(message);
        throw Io::CvPipeException(message);
    }
    data = block.release();
}

}  // namespace

const char* const StreamUtil::LINE_CUT_OFF = "Reached the stream end-of-file before the expected new line.";

StreamUtil::PipeBuffer* StreamUtil::pipeBufferOf(const std::istream& in) {
    return in.good() ? PipeBuffer::from(in.rdbuf()) : nullptr;
}

std::optional<std::string_view> StreamUtil::takeLine(std::istream& in) {
    PipeBuffer* const pipe = pipeBufferOf(in);
    if (pipe == nullptr) {
        return std::nullopt;
    }
    if (pipe->ahead().empty()) {
        awaitBytes(in, *pipe);
    }
    const auto ahead = lookAhead(*pipe);
    if (!ahead) {
        return std::nullopt;
    }
    pipe->skip(ahead->size);
    return ahead->text;
}

void StreamUtil::readLine(std::istream& in, std::string& line) {
    line.clear();
    if (const auto taken = takeLine(in)) {
        line = *taken;
    } else {
        readLineByStream(in, line);
    }
}

void StreamUtil::readLength(std::istream& in, char*& data, std::int64_t length) {
    readBlock(in, data, length);
}

void StreamUtil::readLength(std::streambuf& in, char*& data, std::int64_t length) {
    readBlock(in, data, length);
}

char* StreamUtil::copyOf(std::string_view bytes) {
    char* const block = static_cast<char*>(std::malloc(bytes.size() + 1));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    std::memcpy(block, bytes.data(), bytes.size());
    block[bytes.size()] = '\0';
    return block;
}

std::size_t StreamUtil::readToEnd(std::istream& in, char*& data) {
    data = nullptr;
    std::size_t capacity = FIRST_READ_TO_END_SIZE;
    Block block(capacity);
    block.fill(in);
    while (block.isFull() && in.good()) {
        capacity *= 2;
        block.resize(capacity);
        block.fill(in);
    }
    const std::size_t length = block.size();
    data = block.release();
    return length;
}

void StreamUtil::setState(std::ios& stream, std::ios::iostate state) {
    try {
        stream.setstate(state);
    } catch (const std::ios::failure&) {
        // That is what it does to a stream that throws; the state is set.
    }
}

void StreamUtil::requireWritable(const std::ostream& out) {
    if (out.fail()) {
        throw Io::CvPipeException("Pipe write failed");
    }
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
