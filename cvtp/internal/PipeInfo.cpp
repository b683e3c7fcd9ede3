#include "cvtp/internal/PipeInfo.h"

#include <istream>
#include <new>
#include <ostream>

#include "cvtp/internal/Logging.h"
#include "io/PipeStreams.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

const int STREAM_BUFFER_SIZE = 4096;

}  // namespace

PipeInfo::PipeInfo(const std::string& poolKey, const std::string& bindingName)
    : poolKey(poolKey), bindingName(bindingName) {}

PipeInfo::~PipeInfo() {
    if (pipe != nullptr) {
        if (isDebug()) {
            logDebug("Closing CvPipe " + bindingName);
        }
        pipe->close();
        // Before the buffers, on which its streams stand.
        pipe.reset();
    }
}

void PipeInfo::installBuffers(bool readable, bool writable) {
    if (readable) {
        inBuffer = allocateBuffer();
        Io::PipeStreams::inputOf(*pipe)->rdbuf()->pubsetbuf(inBuffer.get(), STREAM_BUFFER_SIZE);
    }
    if (writable) {
        outBuffer = allocateBuffer();
        Io::PipeStreams::outputOf(*pipe)->rdbuf()->pubsetbuf(outBuffer.get(), STREAM_BUFFER_SIZE);
    }
}

PipeInfo::Buffer PipeInfo::allocateBuffer() {
    Buffer buffer(static_cast<char*>(std::malloc(STREAM_BUFFER_SIZE)));
    if (buffer == nullptr) {
        throw std::bad_alloc();
    }
    return buffer;
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
