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

/// A request that is not answered.
class CVTP_EXPORT OneWayRequest : public AbstractCvtpRequest {
 public:
    ~OneWayRequest() override;
    OneWayRequest(const OneWayRequest&) = delete;
    OneWayRequest& operator=(const OneWayRequest&) = delete;

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

    /// Sends the request; blocks until it has been handed to the pipe, not until the server has read it. A pooled
    /// pipe that the server has closed meanwhile is replaced, and the request sent on a new one.
    ///
    /// @throws Corvane::Io::IllegalStateException no body was given, or both ways were used; a header line is too
    ///         long; or the request was sent before.
    /// @throws Corvane::Io::BrokenPipeException the connection was lost while a body stream was being sent, which
    ///         cannot be sent again.
    /// @throws Corvane::Io::CvPipeException the pipe could not be connected or written to, or the body stream
    ///         failed before its end.
    void execute();

 protected:
    OneWayRequest(const std::string& method, const std::string& resource, CvtpClient* client,
                  const std::string& pipeName);

 private:
    std::unique_ptr<Internal::Cvtp::AbstractCvtpRequestImpl> impl;
};

}  // namespace Cvtp
}  // namespace Corvane
