#include "cvtp/internal/CvtpIStream.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

CvtpIStream::CvtpIStream(IStreamBuffer<char>& decoder) : std::istream(&decoder) {
    exceptions(std::ios_base::badbit);
}

void CvtpIStream::breakOff(bool isAtEnd) {
    try {
        setstate(isAtEnd ? std::ios_base::eofbit | std::ios_base::failbit : std::ios_base::badbit);
    } catch (const std::ios_base::failure&) {
        // That is what it does to a stream that throws; the state is set.
    }
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
