#include "cvtp/CvtpMessageIn.h"

#include "cvtp/internal/CvtpMessageInImpl.h"

namespace Corvane {
namespace Cvtp {

CvtpMessageIn::~CvtpMessageIn() = default;

void CvtpMessageIn::getBody(char** data, std::size_t& length) {
    getBody(*data, length);
}

bool CvtpMessageIn::isBodyComplete() const {
    return reader != nullptr && reader->isWholeBodyRead();
}

}  // namespace Cvtp
}  // namespace Corvane
