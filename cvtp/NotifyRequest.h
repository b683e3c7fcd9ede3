#pragma once

#include <string>

#include "cvtp/OneWayRequest.h"

namespace Corvane {
namespace Cvtp {

/// A one-way request: the server does not answer it.
class CVTP_EXPORT NotifyRequest : public OneWayRequest {
 public:
    /// @param client not owned; must outlive the request. @param pipeName without prefix.
    NotifyRequest(CvtpClient* client, const std::string& pipeName, const std::string& resource);
    ~NotifyRequest() override;
};

}  // namespace Cvtp
}  // namespace Corvane
