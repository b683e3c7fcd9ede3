#include "io/PipeStreams.h"

#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "io/platform/PipePlatform.h"

namespace Corvane {
namespace Io {
namespace PipeStreams {

namespace {

/// The streams of one direction that no pipe has.
template <class Stream>
class Shelf {
 public:
    Shelf() { Platform::holdWhileForking(lock); }

    Stream* take(std::streambuf* buffer) {
        std::unique_ptr<Stream> stream = takeKept();
        if (stream == nullptr) {
            stream = std::make_unique<Stream>(nullptr);
        }
        stream->rdbuf(buffer);
        stream->exceptions(std::ios_base::badbit);
        return stream.release();
    }

    void keep(Stream* stream, bool wasLent) {
        std::unique_ptr<Stream> kept(stream);
        // Without a buffer it is in a bad state, which would be thrown.
        kept->exceptions(std::ios_base::goodbit);
        if (wasLent) {
            // Whatever an application has set: format, locale, tied stream.
            kept->copyfmt(std::ios(nullptr));
        }
        kept->rdbuf(nullptr);
        const std::lock_guard<std::mutex> guard(lock);
        try {
            streams.push_back(nullptr);
            streams.back() = std::move(kept);
        } catch (const std::bad_alloc&) {
            // Called while a pipe is destroyed, which must not fail. The stream stays all the same.
            static_cast<void>(kept.release());
        }
    }

 private:
    std::unique_ptr<Stream> takeKept() {
        const std::lock_guard<std::mutex> guard(lock);
        if (streams.empty()) {
            return nullptr;
        }
        std::unique_ptr<Stream> stream = std::move(streams.back());
        streams.pop_back();
        return stream;
    }

    /// Guards streams.
    std::mutex lock;
    std::vector<std::unique_ptr<Stream>> streams;
};

/// Never destroyed: pipes may be used while the process ends.
template <class Stream>
Shelf<Stream>& shelf() {
    static Shelf<Stream>* const instance = new Shelf<Stream>;
    return *instance;
}

}  // namespace

std::istream* takeInput(std::streambuf* buffer) {
    return shelf<std::istream>().take(buffer);
}

std::ostream* takeOutput(std::streambuf* buffer) {
    return shelf<std::ostream>().take(buffer);
}

void keep(std::istream* stream, bool wasLent) {
    if (stream != nullptr) {
        shelf<std::istream>().keep(stream, wasLent);
    }
}

void keep(std::ostream* stream, bool wasLent) {
    if (stream != nullptr) {
        shelf<std::ostream>().keep(stream, wasLent);
    }
}

}  // namespace PipeStreams
}  // namespace Io
}  // namespace Corvane
