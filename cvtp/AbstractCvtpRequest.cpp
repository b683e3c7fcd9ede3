#include "cvtp/AbstractCvtpRequest.h"

namespace Corvane {
namespace Cvtp {

AbstractCvtpRequest::AbstractCvtpRequest() = default;
AbstractCvtpRequest::~AbstractCvtpRequest() = default;

}  // namespace Cvtp
}  // namespace Corvane
