#pragma once

#include <cstddef>
#include <istream>
#include <memory>
#include <string>

#include "cvtp/AbstractCvtpRequest.h"

namespace Corvane {

namespace Internal {
namespace Cvtp {
class AbstractCvtpRequestImpl;
}
}  // namespace Internal

namespace Cvtp {

class CvtpClient;
class CvtpResponse;

/// A request that is answered.
class CVTP_EXPORT TwoWayRequest : public AbstractCvtpRequest {
 public:
    ~TwoWayRequest() override;
    TwoWayRequest(const TwoWayRequest&) = delete;
    TwoWayRequest& operator=(const TwoWayRequest&) = delete;

    std::string getStartLine() override;
    void addHeader(const std::string& name, const std::string& value) override;
    void setHeader(const std::string& name, const std::string& value) override;
    void removeHeader(const std::string& name) override;
    void setBody(const char* data, std::size_t length) override;
    bool isCommitted() const override;
    std::string getMethod() const override;
    void setResource(const std::string& resource) override;
    std::string getResource() const override;
    void setBodyStream(std::istream* body) override;

    /// Sends the request, and blocks until the status line and headers of the answer are there; there is no timeout
    /// to that. A pooled pipe that the server has closed meanwhile is replaced, and the request sent on a new one.
    ///
    /// @return the answer, which the caller deletes. Its body still comes from this request's pipe: read the answer
    ///         and delete it before this request is destroyed.
    /// @throws Corvane::Io::IllegalStateException no body was given, or both ways were used; a header line is too
    ///         long; or the request was sent before.
    /// @throws Corvane::Io::BrokenPipeException the connection was lost while a body stream was being sent, which
    ///         cannot be sent again.
    /// @throws Corvane::Io::CvPipeException the pipe could not be connected or written to, or the body stream
    ///         failed before its end.
    /// @throws Corvane::Io::InterruptedException the server closed the pipe before the answer was there.
    CvtpResponse* execute();

 protected:
    TwoWayRequest(const std::string& method, const std::string& resource, CvtpClient* client,
                  const std::string& pipeName);

 private:
    std::unique_ptr<Internal::Cvtp::AbstractCvtpRequestImpl> impl;
};

}  // namespace Cvtp
}  // namespace Corvane
