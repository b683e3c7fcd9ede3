#include "cvtp/internal/CvtpOStream.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

CvtpOStream::CvtpOStream(int bufferSize, bool chunked, std::ostream& stream, CvtpHeaderWriter* headerWriter)
    : std::ostream(nullptr), writer(bufferSize, chunked, stream, headerWriter), buffer(writer) {
    // Also clears the state of a stream that had no buffer.
    rdbuf(&buffer);
    exceptions(std::ios_base::badbit);
}

void CvtpOStream::send() {
    writer.close();
}

void CvtpOStream::seal() {
    writer.seal();
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
