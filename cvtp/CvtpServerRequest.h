#pragma once

#include <cstddef>
#include <istream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cvtp/CvtpMessageIn.h"
#include "cvtp/Version.h"

namespace Corvane {

namespace Xml {
class Utf8String;
}

namespace Internal {
namespace Cvtp {
class CvtpMessageInImpl;
class RequestWorker;
}  // namespace Cvtp
}  // namespace Internal

namespace Cvtp {

class CvtpServer;

/// A request as the server's handler sees it: its head has been read, its body is read when the handler asks for
/// it, and must arrive within the server's receive timeout (for each read). Belongs to one worker thread, for as
/// long as the call of the handler.
class CVTP_EXPORT CvtpServerRequest : public CvtpMessageIn {
 public:
    /// Reads nothing yet.
    /// @param server gives the size of the buffer that bodies are read through; not owned. @param in not owned.
    /// @param scratch the connection's memory for decoding; not owned.
    CvtpServerRequest(CvtpServer* server, std::istream* in, Xml::Utf8String* scratch);
    ~CvtpServerRequest() override;

    CvtpServerRequest(const CvtpServerRequest&) = delete;
    CvtpServerRequest& operator=(const CvtpServerRequest&) = delete;

    /// The start line up to its first blank; "NONE" when the pipe fails before it is there.
    std::string getMethod();

    /// The resource as the client gave it; "" when the pipe fails before it is there. A start line without a blank
    /// is all resource.
    std::string getResource();

    /// The version at the end of the start line; 1.0 when there is none.
    Version getCvtpVersion();

    using CvtpMessageIn::getBody;

    std::string getStartLine() override;
    std::string getHeader(const std::string& name) const override;
    std::vector<std::string> getHeaders(const std::string& name) const override;
    std::vector<std::string> getHeaderNames() const override;
    void getBody(char*& data, std::size_t& length) override;
    std::istream* getBodyStream() override;

 private:
    /// A worker waits longer for a request to begin than for the rest of it.
    friend class Internal::Cvtp::RequestWorker;

    /// The reader of the message is put into `memory`, which must outlive the request.
    CvtpServerRequest(CvtpServer* server, std::istream* in, Xml::Utf8String* scratch,
                      std::optional<Internal::Cvtp::CvtpMessageInImpl>& memory);

    void awaitStartLine();
    void readHead();
    bool hasStartLine() const;
    /// What getMethod() gives when the start line is there; valid as long as the request.
    std::string_view methodInStartLine();

    CvtpServer* server;
    /// Null when the reader stands elsewhere.
    std::unique_ptr<Internal::Cvtp::CvtpMessageInImpl> ownMessage;
    Internal::Cvtp::CvtpMessageInImpl* message;
    Xml::Utf8String* scratch;
};

}  // namespace Cvtp
}  // namespace Corvane
