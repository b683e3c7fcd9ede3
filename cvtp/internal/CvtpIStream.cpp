#include "cvtp/internal/CvtpIStream.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

CvtpIStream::CvtpIStream(IStreamBuffer<char>& decoder) : std::istream(&decoder) {
    exceptions(std::ios_base::badbit);
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
