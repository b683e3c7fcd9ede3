#pragma once

#include <cstddef>
#include <ios>
#include <streambuf>
#include <string>

#include "support/OWriter.h"

namespace Corvane {

/// Puts a standard output stream on an OWriter. It holds nothing back; flushing the stream flushes the writer. What
/// the writer throws passes through a stream that has badbit in its exception mask.
template <class CharT, class Traits = std::char_traits<CharT>>
class OStreamBuffer : public std::basic_streambuf<CharT, Traits> {
    static_assert(sizeof(CharT) == 1, "a writer takes bytes");

 public:
    using int_type = typename Traits::int_type;

    /// @param writer not owned.
    explicit OStreamBuffer(OWriter& writer) : writer(writer) {}

 protected:
    int_type overflow(int_type c = Traits::eof()) override {
        if (!Traits::eq_int_type(c, Traits::eof())) {
            const CharT one = Traits::to_char_type(c);
            writer.write(&one, 1);
        }
        return Traits::not_eof(c);
    }

    std::streamsize xsputn(const CharT* s, std::streamsize n) override {
        if (n > 0) {
            writer.write(s, static_cast<std::size_t>(n));
        }
        return n;
    }

    int sync() override {
        writer.flush();
        return 0;
    }

 private:
    OWriter& writer;
};

}  // namespace Corvane
