#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <sstream>

#include "cvtp/internal/CvtpHeaderWriter.h"
#include "support/OBufferWriter.h"
#include "support/OWriter.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// Writes the body of a message behind its head: lets the head be committed before the first byte, counts what is
/// written, and reports it when the body is closed.
class CVTP_OBufferWriter : public OWriter {
 public:
    /// @param bufferSize the size of a full chunk in bytes; below 1 counts as 1. @param stream the pipe's, not
    /// owned.
    /// @param headerWriter null when the head is committed by somebody else; not owned.
    CVTP_OBufferWriter(int bufferSize, bool chunked, std::ostream& stream, CvtpHeaderWriter* headerWriter);
    ~CVTP_OBufferWriter() override;

    /// @throws Io::CvPipeException the message has been sent, or the stream has failed; and what the stream throws.
    void write(const char* data, std::size_t length) override;
    void flush() override;
    /// Commits the head if no byte was written yet. A second call does nothing.
    void close() override;
    /// Refuses bytes from now on as after close(), without writing any.
    void seal();

 private:
    void start();
    void report();

    /// Gives blocks to the buffer of a pipe together, which spares calls of the system.
    class PipeWriter : public OBufferWriter {
     public:
        PipeWriter(std::ostream& stream, int bufferSize, bool chunked);

     protected:
        void writeBlocks(const Block* begin, const Block* end) override;

     private:
        std::ostream& stream;
    };

    PipeWriter inner;
    std::ostream& stream;
    bool started = false;
    bool sent = false;
    CvtpHeaderWriter* headerWriter;
    /// Milliseconds; 0 while nobody wants to know.
    std::int64_t startTime = 0;
    std::uint64_t bytesWritten = 0;
    /// The body for the communication trace; null while output is not traced.
    std::unique_ptr<std::ostringstream> trace;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
