#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

#include "cvtp/CvtpMessageOut.h"

namespace Corvane {

namespace Xml {
class Utf8String;
}

namespace Internal {
namespace Cvtp {
class CvtpMessageOutImpl;
class CvtpOStream;
class RequestWorker;
}  // namespace Cvtp
}  // namespace Internal

namespace Cvtp {

class CvtpServer;

/// The reply to a POST. The handler sets status and headers, gives the body in one of two ways (setBody() for
/// bytes, getBodyStream() for a stream that is sent in chunks), and calls send(); or it calls sendError().
/// Destroying it sends nothing. Belongs to one worker thread, for as long as the call of the handler.
///
/// What sending may throw: Corvane::Io::BrokenPipeException (the client has closed the pipe),
/// Corvane::Io::TimeoutException (the client took no bytes for 10 seconds), Corvane::Io::InterruptedException (the
/// server is stopping), Corvane::Io::CvPipeException (another failure of the pipe). A handler lets them pass: the
/// worker logs them and closes the connection.
class CVTP_EXPORT CvtpServerResponse : public CvtpMessageOut {
 public:
    /// Status 500, with the header "Server".
    /// @param server gives its name and the buffer size; not owned. @param out not owned.
    /// @param scratch the connection's memory for encoding; not owned.
    CvtpServerResponse(CvtpServer* server, std::ostream* out, Xml::Utf8String* scratch);
    ~CvtpServerResponse() override;

    CvtpServerResponse(const CvtpServerResponse&) = delete;
    CvtpServerResponse& operator=(const CvtpServerResponse&) = delete;

    /// Sets the code, and the reason phrase that CvtpMessage::STATUS_REASONS has for it, or "None".
    void setStatusCode(int code);
    void setStatusCode(int code, const std::string& reason);
    void setReasonPhrase(const std::string& reason);

    /// The stream that the body is written into; the same one with each call. The first call adds the header
    /// "Transfer-Encoding: chunked". The head goes out with the first byte that is written; set status and headers
    /// before. Owned by the response.
    std::ostream* getBodyStream();

    /// Sends what was not sent yet; blocks until the pipe has taken it.
    ///
    /// @throws Corvane::Io::IllegalStateException no body was given, both ways were used, or a header line is too
    ///         long; nothing is sent then.
    void send();

    /// Sends the code with `message` as its reason phrase and an empty body. What setBody() was given before is
    /// dropped.
    ///
    /// @throws Corvane::Io::IllegalStateException getBodyStream() was called before.
    void sendError(int code, const std::string& message);

    std::string getStartLine() override;
    void addHeader(const std::string& name, const std::string& value) override;
    void setHeader(const std::string& name, const std::string& value) override;
    void removeHeader(const std::string& name) override;
    void setBody(const char* data, std::size_t length) override;
    bool isCommitted() const override;

 private:
    /// A worker must know whether a reply broke off half way.
    friend class Internal::Cvtp::RequestWorker;

    /// The writer of the message is put into `memory`, which must outlive the response.
    CvtpServerResponse(CvtpServer* server, std::ostream* out, Xml::Utf8String* scratch,
                       std::optional<Internal::Cvtp::CvtpMessageOutImpl>& memory);

    bool isSentInPart() const;
    std::string_view reason() const;
    void writeHeadAndBody();

    std::int32_t statusCode;
    /// Of a code whose reason phrase the table has; then reasonPhrase counts for nothing.
    bool hasUsualReason = true;
    std::string reasonPhrase;
    CvtpServer* server;
    std::ostream* outputStream;
    std::unique_ptr<Internal::Cvtp::CvtpOStream> bodyStream;
    /// Null when the writer stands elsewhere.
    std::unique_ptr<Internal::Cvtp::CvtpMessageOutImpl> ownWriter;
    Internal::Cvtp::CvtpMessageOutImpl* writer;
    /// Taken from the server at construction: a handler that outlasts its server may still write.
    std::int32_t bufferSize;
    bool sent = false;
    /// The bytes given to setBody() were on their way, whatever became of them.
    bool bodyBegun = false;
};

}  // namespace Cvtp
}  // namespace Corvane
