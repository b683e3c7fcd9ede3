#include "cvtp/CvtpConnectionManager.h"

namespace Corvane {
namespace Cvtp {

CvtpConnectionManager::CvtpConnectionManager() = default;
CvtpConnectionManager::~CvtpConnectionManager() = default;

}  // namespace Cvtp
}  // namespace Corvane
