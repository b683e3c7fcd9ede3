#pragma once

#include <istream>
#include <memory>
#include <streambuf>
#include <string>

#include "io/CvPipe.h"
#include "io/ServerCvPipe.h"
#include "tests/support_code/TemporaryPipeDirectory.h"

namespace Corvane {
namespace Testing {

/// A pipe that holds some bytes and then their end. The pipe folder must be the test's own.
class PipeSource {
 public:
    /// @param size of the buffer that the pipe is read through, in bytes; so it also says where the bytes are
    /// split.
    PipeSource(const std::string& bytes, std::size_t size) : memory(new char[size]) {
        Io::ServerCvPipe server("source", true, false);
        Io::CvPipe writer;
        writer.connect("source", false, true);
        server.accept(pipe);
        pipe.getInputStream()->rdbuf()->pubsetbuf(memory.get(), static_cast<std::streamsize>(size));
        writer.writePipe(bytes.data(), 0, static_cast<int>(bytes.size()));
    }

    std::streambuf& buffer() { return *pipe.getInputStream()->rdbuf(); }
    std::istream& stream() { return *pipe.getInputStream(); }

 private:
    std::unique_ptr<char[]> memory;
    Io::CvPipe pipe;
};

}  // namespace Testing
}  // namespace Corvane
