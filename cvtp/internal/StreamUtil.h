#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

#include "io/PipeBufferBase.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// Reads lines and blocks from a stream. Exceptions of the stream's buffer pass through when the stream has badbit
/// in its exception mask, as every pipe stream has.
class StreamUtil {
 public:
    using PipeBuffer = Io::PipeBufferBase<char>;

    /// What the exception says when the bytes end before a line does.
    static const char* const LINE_CUT_OFF;

    virtual ~StreamUtil() = default;

    /// Reads one line, ended by LF or CR LF, into `line` without its end. A CR elsewhere stays.
    ///
    /// @throws Io::InterruptedException the bytes ended before the LF, or 2047 characters came without one.
    static void readLine(std::istream& in, std::string& line);

    /// A longer line is left to the stream, which knows the limit. Bytes.
    static constexpr std::size_t MOST_AHEAD = 1024;

    /// A line that has arrived as a whole.
    struct LineAhead {
        /// Without its end.
        std::string_view text;
        /// With its end.
        std::size_t size;
    };

    /// The same where the line lies in the buffer of a pipe; it stays there until something is read. Waits while
    /// nothing has arrived.
    ///
    /// @return nothing, when the line is not there as a whole, or there is no such buffer: then it is to be read.
    static std::optional<std::string_view> takeLine(std::istream& in);

    /// The buffer of a pipe below a stream that is good; else null.
    static PipeBuffer* pipeBufferOf(const std::istream& in);
    /// The line that begins `offset` bytes ahead, where it lies in the buffer, if it is there as a whole. Stays
    /// until something is read from the pipe. So many bytes are there at least.
    static std::optional<LineAhead> lookAhead(const PipeBuffer& pipe, std::size_t offset = 0);

    /// A block of the C allocator with these bytes and a NUL, which the caller gives back with free().
    static char* copyOf(std::string_view bytes);

    /// Reads exactly `length` bytes into a block that ends in a NUL, which the caller gives back with free().
    /// The block grows as bytes arrive: a length is a claim of the other end, and costs what was really sent.
    /// A length of zero or less gives an empty block.
    ///
    /// @throws Io::CvPipeException the bytes ended first. `data` is null after this and any other exception.
    static void readLength(std::istream& in, char*& data, std::int64_t length);

    /// The same from a buffer, which spares the setting up of a stream.
    static void readLength(std::streambuf& in, char*& data, std::int64_t length);

    /// Reads to the end of the stream into a block that ends in a NUL, which the caller gives back with free().
    /// A stream that fails without reaching its end gives what came until then.
    ///
    /// @return the number of bytes before the NUL. `data` is null after an exception.
    static std::size_t readToEnd(std::istream& in, char*& data);

    /// Gives a stream a state as an exception of its buffer would: without throwing, whatever its mask is.
    static void setState(std::ios& stream, std::ios::iostate state);

    /// A stream that has failed takes bytes without a word, or throws something of its own, depending on the
    /// standard library. Called before and after a write, this makes it one exception.
    ///
    /// @throws Io::CvPipeException the stream has failed.
    static void requireWritable(const std::ostream& out);
};

inline std::optional<StreamUtil::LineAhead> StreamUtil::lookAhead(const PipeBuffer& pipe, std::size_t offset) {
    std::string_view ahead = pipe.ahead();
    ahead.remove_prefix(offset);
    const std::size_t end = ahead.substr(0, MOST_AHEAD).find('\n');
    if (end == std::string_view::npos) {
        return std::nullopt;
    }
    const bool hasReturn = end > 0 && ahead[end - 1] == '\r';
    return LineAhead{ahead.substr(0, hasReturn ? end - 1 : end), end + 1};
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
