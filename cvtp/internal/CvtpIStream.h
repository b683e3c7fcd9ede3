#pragma once

#include <istream>

#include "cvtp/internal/IStreamBuffer.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// The stream that a body is read from. What the pipe throws while it is read passes through.
class CvtpIStream : public std::istream {
 public:
    /// @param decoder not owned.
    explicit CvtpIStream(IStreamBuffer<char>& decoder);

    /// Leaves the stream as a read would that found the end of the body, or else as an exception of the pipe would.
    void breakOff(bool isAtEnd);
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
