#include "cvtp/PostRequest.h"

namespace Corvane {
namespace Cvtp {

PostRequest::PostRequest(CvtpClient* client, const std::string& pipeName, const std::string& resource)
    : TwoWayRequest(METHOD_POST, resource, client, pipeName) {}

PostRequest::~PostRequest() = default;

}  // namespace Cvtp
}  // namespace Corvane
