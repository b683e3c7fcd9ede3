#include "cvtp/internal/CvtpIStream.h"

#include "cvtp/internal/StreamUtil.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

CvtpIStream::CvtpIStream(IStreamBuffer<char>& decoder) : std::istream(&decoder) {
    exceptions(std::ios_base::badbit);
}

void CvtpIStream::breakOff(bool isAtEnd) {
    StreamUtil::setState(*this, isAtEnd ? eofbit | failbit : badbit);
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
