#include "cvtp/CvtpHandler.h"

namespace Corvane {
namespace Cvtp {

CvtpHandler::CvtpHandler() = default;
CvtpHandler::~CvtpHandler() = default;

bool CvtpHandler::doReady() {
    return true;
}

}  // namespace Cvtp
}  // namespace Corvane
