#include "cvtp/NotifyRequest.h"

namespace Corvane {
namespace Cvtp {

NotifyRequest::NotifyRequest(CvtpClient* client, const std::string& pipeName, const std::string& resource)
    : OneWayRequest(METHOD_NOTIFY, resource, client, pipeName) {}

NotifyRequest::~NotifyRequest() = default;

}  // namespace Cvtp
}  // namespace Corvane
