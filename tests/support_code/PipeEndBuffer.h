#pragma once

#include <streambuf>
#include <string>
#include <vector>

#include "io/Exceptions.h"

namespace Corvane {
namespace Testing {

/// Stands for the output of a pipe: notes each write and flush, and throws when it is told to.
class PipeEndBuffer : public std::streambuf {
 public:
    /// "write " and the bytes, or "flush".
    std::vector<std::string> calls;
    bool throwOnWrite = false;
    bool throwOnFlush = false;

    std::string bytes() const {
        std::string all;
        for (const std::string& call : calls) {
            all += call == "flush" ? "" : call.substr(6);
        }
        return all;
    }

 protected:
    int_type overflow(int_type c) override {
        const char one = traits_type::to_char_type(c);
        return xsputn(&one, 1) == 1 ? c : traits_type::eof();
    }

    std::streamsize xsputn(const char* s, std::streamsize n) override {
        if (throwOnWrite) {
            throw Io::BrokenPipeException("Pipe was closed at other end.");
        }
        calls.push_back("write " + std::string(s, static_cast<std::size_t>(n)));
        return n;
    }

    int sync() override {
        if (throwOnFlush) {
            throw Io::BrokenPipeException("Pipe was closed at other end.");
        }
        calls.push_back("flush");
        return 0;
    }
};

}  // namespace Testing
}  // namespace Corvane
