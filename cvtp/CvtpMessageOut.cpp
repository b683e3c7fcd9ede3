#include "cvtp/CvtpMessageOut.h"

namespace Corvane {
namespace Cvtp {

CvtpMessageOut::~CvtpMessageOut() = default;

}  // namespace Cvtp
}  // namespace Corvane
