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

/// A pipe that is read, and what is written to it. The pipe folder must be the test's own.
class PipeSource {
 public:
    /// @param size of the buffer that the pipe is read through, in bytes; so it also says where the bytes are
    /// split.
    explicit PipeSource(std::size_t size) : memory(new char[size]) {
        Io::ServerCvPipe server("source", true, false);
        writer.connect("source", false, true);
        server.accept(pipe);
        pipe.getInputStream()->rdbuf()->pubsetbuf(memory.get(), static_cast<std::streamsize>(size));
    }
    /// It holds some bytes and then their end.
    PipeSource(const std::string& bytes, std::size_t size) : PipeSource(size) {
        write(bytes);
        end();
    }

    void write(const std::string& bytes) { writer.writePipe(bytes.data(), 0, static_cast<int>(bytes.size())); }
    void end() { writer.close(); }
    /// Closes the end that is read.
    void close() { pipe.close(); }
    /// Milliseconds; 0 waits forever.
    void setTimeout(int timeout) { pipe.setReadTimeout(timeout); }

    std::streambuf& buffer() { return *pipe.getInputStream()->rdbuf(); }
    std::istream& stream() { return *pipe.getInputStream(); }

 private:
    std::unique_ptr<char[]> memory;
    Io::CvPipe writer;
    Io::CvPipe pipe;
};

}  // namespace Testing
}  // namespace Corvane
