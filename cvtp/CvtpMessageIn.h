#pragma once

#include <cstddef>
#include <istream>
#include <string>
#include <vector>

#include "cvtp/CvtpMessage.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {
class CvtpMessageInImpl;
}
}  // namespace Internal

namespace Cvtp {

/// A message that arrives: a server's request or a client's response. Used by one thread at a time.
///
/// Nothing is read before it is asked for. The first of getStartLine(), getBody() and getBodyStream() reads start
/// line and headers, blocking until they are there or the pipe's read timeout has passed; the header accessors read
/// nothing and see what that call brought.
///
/// What may be thrown while reading: Corvane::Io::TimeoutException (nothing came within the pipe's read timeout),
/// Corvane::Io::InterruptedException (the pipe was closed from another thread, the bytes ended inside the head, or
/// a line of the head is longer than 2047 bytes), Corvane::Io::CvPipeException (another failure of the pipe; with
/// code 1011 a head without a framing header).
class CVTP_EXPORT CvtpMessageIn : public CvtpMessage {
 public:
    ~CvtpMessageIn() override;

    /// The start line as it was read, without its line end; a placeholder when the head could not be read.
    std::string getStartLine() override = 0;

    /// The first value of a header, or "". Names compare without regard to case.
    virtual std::string getHeader(const std::string& name) const = 0;

    /// All values of a header, in their order; empty when there is none.
    virtual std::vector<std::string> getHeaders(const std::string& name) const = 0;

    /// The names of all headers, in the order of their upper-cased form.
    virtual std::vector<std::string> getHeaderNames() const = 0;

    /// Reads the whole body into one block, which the caller owns and gives back with free(). A NUL follows its
    /// last byte; `length` does not count it.
    ///
    /// A body with a Content-Length is whole or an exception is thrown. A chunked body that breaks off gives what
    /// came of it: ask isBodyComplete().
    ///
    /// @throws Corvane::Io::CvPipeException the bytes ended before the declared length; code 1013 when the head
    ///         could not be read; and what is said above.
    virtual void getBody(char*& data, std::size_t& length) = 0;

    /// The same for a caller that holds a pointer to its pointer.
    void getBody(char** data, std::size_t& length);

    /// The body as a stream, owned by this message, which ends where the body ends (or breaks off: ask
    /// isBodyComplete()). Exceptions of the pipe pass through it. Bytes left unread stay in the pipe.
    ///
    /// @throws Corvane::Io::CvPipeException as getBody().
    virtual std::istream* getBodyStream() = 0;

    /// True once the declared end of the body was reached: the last byte of a Content-Length, or the last chunk. So
    /// a reader that streams can tell a whole body from one cut off.
    bool isBodyComplete() const;

 protected:
    CvtpMessageIn() = default;

    /// Whose body isBodyComplete() tells about; not owned, null while there is none.
    const Internal::Cvtp::CvtpMessageInImpl* reader = nullptr;
};

}  // namespace Cvtp
}  // namespace Corvane
