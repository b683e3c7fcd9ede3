#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <istream>
#include <ostream>
#include <sstream>
#include <streambuf>
#include <string>

namespace Corvane {
namespace Testing {

/// A stream of a given number of bytes without a short period, which both ends of a connection can make up by
/// themselves: neither has to hold a large body.
class ByteSource : public std::streambuf {
 public:
    explicit ByteSource(std::uint64_t size) : left(size) {}

 protected:
    int_type underflow() override {
        if (left == 0) {
            return traits_type::eof();
        }
        std::size_t count = 0;
        while (count < block.size() && left > 0) {
            state = state * 6364136223846793005u + 1442695040888963407u;
            block[count++] = static_cast<char>(state >> 56);
            --left;
        }
        setg(block.data(), block.data(), block.data() + count);
        return traits_type::to_int_type(block[0]);
    }

 private:
    std::uint64_t left;
    std::uint64_t state = 1;
    std::array<char, 16384> block;
};

/// Counts bytes and makes a number of them in which each byte and its place count.
class Digest {
 public:
    void add(const char* bytes, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            hash = (hash ^ static_cast<unsigned char>(bytes[i])) * 1099511628211u;
        }
        size += count;
    }

    void addAll(std::istream& stream) {
        std::array<char, 16384> block;
        while (stream.read(block.data(), block.size()) || stream.gcount() > 0) {
            add(block.data(), static_cast<std::size_t>(stream.gcount()));
        }
    }

    /// "SIZE HASH".
    std::string text() const {
        std::ostringstream out;
        out << size << " " << std::hex << hash;
        return out.str();
    }

 private:
    std::uint64_t size = 0;
    std::uint64_t hash = 14695981039346656037u;
};

/// The digest of a ByteSource.
inline std::string digestOf(std::uint64_t size) {
    ByteSource source(size);
    std::istream stream(&source);
    Digest digest;
    digest.addAll(stream);
    return digest.text();
}

/// One line, at once, for whoever has started this process.
inline void tell(const std::string& line) {
    // One write, so that lines of several threads do not mix.
    const std::string text = line + "\n";
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

}  // namespace Testing
}  // namespace Corvane
