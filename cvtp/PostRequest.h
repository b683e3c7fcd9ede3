#pragma once

#include <string>

#include "cvtp/TwoWayRequest.h"

namespace Corvane {
namespace Cvtp {

/// A two-way request: the server answers it.
class CVTP_EXPORT PostRequest : public TwoWayRequest {
 public:
    /// @param client not owned; must outlive the request. @param pipeName without prefix.
    PostRequest(CvtpClient* client, const std::string& pipeName, const std::string& resource);
    ~PostRequest() override;
};

}  // namespace Cvtp
}  // namespace Corvane
