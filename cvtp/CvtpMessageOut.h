#pragma once

#include <cstddef>
#include <string>

#include "cvtp/CvtpMessage.h"

namespace Corvane {
namespace Cvtp {

/// A message to be sent: a client's request or a server's response.
///
/// It is open at first (headers and body may be set), committed once its head has been written, and sent once its
/// body has been written. What is set after the commit never reaches the other end. Used by one thread at a time.
class CVTP_EXPORT CvtpMessageOut : public CvtpMessage {
 public:
    ~CvtpMessageOut() override;

    /// The start line that this message is sent with, without its line end.
    std::string getStartLine() override = 0;

    /// Appends to a header. Names compare without regard to case. A comma separates values, so "a, b" is two;
    /// blanks around a value are dropped. CR, LF and NUL become blanks. A header line (name, ": ", values, CR LF)
    /// may have 2048 bytes, which is checked when the head is written.
    virtual void addHeader(const std::string& name, const std::string& value) = 0;

    /// The same, but replaces what the header had.
    virtual void setHeader(const std::string& name, const std::string& value) = 0;

    /// Takes a header out; one that is not there is no error.
    virtual void removeHeader(const std::string& name) = 0;

    /// Gives the whole body, of `length` bytes, and adds the header "Content-Length". The bytes are copied. To be
    /// called once: a second call replaces the body but appends its length to the header, on purpose.
    virtual void setBody(const char* data, std::size_t length) = 0;

    /// True once the head has been written.
    virtual bool isCommitted() const = 0;

 protected:
    CvtpMessageOut() = default;
};

}  // namespace Cvtp
}  // namespace Corvane
