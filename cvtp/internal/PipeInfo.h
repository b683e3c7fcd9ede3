#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "io/CvPipe.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// One connection of the pool: the pipe, the memory of its two stream buffers, and its names in the pool and in the
/// log. Destroyed, it closes the pipe.
class PipeInfo {
 public:
    PipeInfo(const std::string& poolKey, const std::string& bindingName);
    virtual ~PipeInfo();
    PipeInfo(const PipeInfo&) = delete;
    PipeInfo& operator=(const PipeInfo&) = delete;

    /// Gives the pipe's streams their buffers, allocated once for all requests of the connection.
    void installBuffers(bool readable, bool writable);

    std::unique_ptr<Io::CvPipe> pipe;
    /// When the pipe was given back last, in milliseconds since the epoch; 0 for a fresh one.
    std::int64_t lastUsed = 0;
    /// The pipe's name, a point, and the access letters.
    std::string poolKey;
    /// "Binding-" and a number.
    std::string bindingName;

 private:
    struct Free {
        void operator()(char* memory) const { std::free(memory); }
    };
    using Buffer = std::unique_ptr<char, Free>;

    static Buffer allocateBuffer();

    Buffer inBuffer;
    Buffer outBuffer;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
