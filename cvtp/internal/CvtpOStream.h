#pragma once

#include <ostream>

#include "cvtp/internal/CVTP_OBufferWriter.h"
#include "support/OStreamBuffer.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// The stream that a body is written into. What the pipe throws while it is written passes through.
/// Destroyed before send(), it leaves the body unfinished: a body cut off must not look whole.
class CvtpOStream : public std::ostream {
 public:
    /// @param bufferSize in bytes; also the size of a full chunk. @param stream the pipe's, not owned.
    /// @param headerWriter commits the head before the first byte of the body; null when that was done. Not owned.
    CvtpOStream(int bufferSize, bool chunked, std::ostream& stream, CvtpHeaderWriter* headerWriter = nullptr);

    /// Ends the body: what is still buffered, and the last chunk of a chunked body. A second call does nothing.
    void send();

    /// For a message that was sent without it: what is written from now on is refused as after send().
    void seal();

 private:
    CVTP_OBufferWriter writer;
    OStreamBuffer<char> buffer;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
