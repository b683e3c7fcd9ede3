#pragma once

#include <istream>
#include <string>

#include "cvtp/CvtpMessageOut.h"

namespace Corvane {
namespace Cvtp {

/// What all requests of a client have in common. A request is built, filled, executed once, and destroyed; it is
/// used by one thread. Its pipe goes back to the pool when it is destroyed.
///
/// The body must be given in exactly one of two ways: setBody() for bytes, sent with their length, or
/// setBodyStream() for a stream, sent in chunks while it is read.
class CVTP_EXPORT AbstractCvtpRequest : public CvtpMessageOut {
 public:
    ~AbstractCvtpRequest() override;

    /// CvtpMessage::METHOD_POST or METHOD_NOTIFY.
    virtual std::string getMethod() const = 0;

    /// Any bytes; blanks, control bytes and what looks like an escape travel as `%XX` and arrive as they were. The
    /// start line, encoded, must stay below 2047 bytes: the other end reads no longer line.
    virtual void setResource(const std::string& resource) = 0;
    virtual std::string getResource() const = 0;

    /// Gives the body as a stream, which is read to its end by execute(), must live until then, and stays the
    /// caller's. Adds the header "Transfer-Encoding: chunked".
    virtual void setBodyStream(std::istream* body) = 0;

 protected:
    AbstractCvtpRequest();
};

}  // namespace Cvtp
}  // namespace Corvane
