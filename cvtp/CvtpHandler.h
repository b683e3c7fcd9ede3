#pragma once

#include "support/Export.h"

namespace Corvane {
namespace Cvtp {

class CvtpServerRequest;
class CvtpServerResponse;

/// What an application does with the requests that its server receives. All workers of a server share one handler
/// and call it at the same time from several threads.
///
/// Whatever doNotify() and doPost() throw is logged, and the connection is closed. A body that they leave unread is
/// read over before the next request of the connection.
class CVTP_EXPORT CvtpHandler {
 public:
    virtual ~CvtpHandler();

    /// Called once by CvtpServer::run(), before the first client is accepted. False stops the server at once.
    virtual bool doReady();

    /// Called for each NOTIFY. Nothing is sent back.
    virtual void doNotify(CvtpServerRequest& request) = 0;

    /// Called for each POST. To be answered with CvtpServerResponse::send() or sendError(): nothing else replies.
    virtual void doPost(CvtpServerRequest& request, CvtpServerResponse& response) = 0;

 protected:
    CvtpHandler();
    CvtpHandler(const CvtpHandler&) = default;
    CvtpHandler& operator=(const CvtpHandler&) = default;
};

}  // namespace Cvtp
}  // namespace Corvane
