#pragma once

#include <cstddef>
#include <istream>
#include <ostream>
#include <streambuf>
#include <string>

namespace Corvane {
namespace Bench {

/// Bytes in memory that can be read again and again without copying them.
class MemoryBuffer : public std::streambuf {
 public:
    explicit MemoryBuffer(const std::string& bytes) : bytes(bytes) { rewind(); }

    void rewind() { setg(&bytes[0], &bytes[0], &bytes[0] + bytes.size()); }

 private:
    std::string bytes;
};

/// Takes all and keeps nothing.
class NullBuffer : public std::streambuf {
 protected:
    int_type overflow(int_type character) override { return traits_type::not_eof(character); }
    std::streamsize xsputn(const char*, std::streamsize count) override { return count; }
    int sync() override { return 0; }
};

/// The name of a pipe, in a folder that is this process's own.
std::string freePipeName();

}  // namespace Bench
}  // namespace Corvane
