#include "harness/Peer.h"

#include <algorithm>
#include <cstring>

namespace Corvane {
namespace Bench {

std::uint64_t Client::upload(std::uint64_t) {
    throw NotOffered("it has no streams");
}

void Client::send(const std::string&) {
    throw NotOffered("it has no one-way messages");
}

std::uint64_t Client::finish() {
    throw NotOffered("it has no one-way messages");
}

void answer(const char* data, std::size_t length, std::string& result) {
    result.assign(data, std::min(length, SMALL_SIZE));
    if (length > SMALL_SIZE) {
        const std::uint64_t number = length;
        std::memcpy(&result[SMALL_SIZE - sizeof(number)], &number, sizeof(number));
    }
}

std::string answer(const std::string& data) {
    std::string result;
    answer(data.data(), data.size(), result);
    return result;
}

const std::string& streamPiece() {
    static const std::string piece = [] {
        std::string bytes(STREAM_PIECE, '\0');
        for (std::size_t at = 0; at < bytes.size(); ++at) {
            bytes[at] = static_cast<char>(at * 31 + at / 256);
        }
        return bytes;
    }();
    return piece;
}

std::string encodeNumber(std::uint64_t number) {
    std::string bytes(sizeof(number), '\0');
    std::memcpy(&bytes[0], &number, sizeof(number));
    return bytes;
}

std::uint64_t decodeNumber(const char* data, std::size_t length) {
    std::uint64_t number = 0;
    if (length != sizeof(number)) {
        throw std::runtime_error("the answer is no number");
    }
    std::memcpy(&number, data, sizeof(number));
    return number;
}

}  // namespace Bench
}  // namespace Corvane
