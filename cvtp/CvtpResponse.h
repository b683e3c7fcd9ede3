#pragma once

#include <cstddef>
#include <istream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cvtp/CvtpMessageIn.h"
#include "cvtp/Version.h"
#include "support/Utf8String.h"

namespace Corvane {

namespace Internal {
namespace Cvtp {
class Answer;
class CvtpMessageInImpl;
}  // namespace Cvtp
}  // namespace Internal

namespace Cvtp {

class CvtpClient;

/// The answer to a two-way request, which TwoWayRequest::execute() returns with status line and headers read. It
/// reads from the pipe of its request: read and delete it before the request is destroyed.
class CVTP_EXPORT CvtpResponse : public CvtpMessageIn {
 public:
    /// Reads nothing yet.
    /// @param client gives the size of the buffer that bodies are read through; not owned. @param in not owned.
    CvtpResponse(CvtpClient* client, std::istream* in);

    /// Leaves what was not read in the pipe.
    ~CvtpResponse() override;

    CvtpResponse(const CvtpResponse&) = delete;
    CvtpResponse& operator=(const CvtpResponse&) = delete;

    /// The status code, such as 200; 0 when the status line has no number there; 500 when the pipe fails before the
    /// status line is there.
    int getStatusCode();

    /// The text behind the status code, without blanks at its ends; "Internal Server Error" when the pipe fails
    /// before the status line is there.
    ///
    /// @throws std::out_of_range the status line has fewer than two blanks.
    std::string getReasonPhrase();

    /// The version in the status line; Version::CURRENT_VERSION when the pipe fails before it is there.
    Version getCvtpVersion();

    using CvtpMessageIn::getBody;

    std::string getStartLine() override;
    std::string getHeader(const std::string& name) const override;
    std::vector<std::string> getHeaders(const std::string& name) const override;
    std::vector<std::string> getHeaderNames() const override;
    void getBody(char*& data, std::size_t& length) override;
    std::istream* getBodyStream() override;

 private:
    /// A request hands its answer out when the head has been read.
    friend class TwoWayRequest;
    friend class Internal::Cvtp::Answer;

    CvtpResponse();
    /// The reader of the message is put into `memory`, which must outlive the response.
    CvtpResponse(CvtpClient* client, std::istream* in, std::optional<Internal::Cvtp::CvtpMessageInImpl>& memory);
    void readHead();

    CvtpClient* client = nullptr;
    /// Null when the reader stands elsewhere.
    std::unique_ptr<Internal::Cvtp::CvtpMessageInImpl> ownMessage;
    Internal::Cvtp::CvtpMessageInImpl* message = nullptr;
    Xml::Utf8String encoder;
};

}  // namespace Cvtp
}  // namespace Corvane
