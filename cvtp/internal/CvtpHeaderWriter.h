#pragma once

#include <ostream>

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// Writes the head of a message: start line, headers and the empty line.
class CvtpHeaderWriter {
 public:
    virtual ~CvtpHeaderWriter() = default;

    /// Writes the head in one piece and flushes it.
    virtual void writeHeaders(std::ostream& out) = 0;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
