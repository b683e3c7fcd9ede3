#include "harness/MessagePeer.h"

#include <cstring>
#include <stdexcept>

namespace Corvane {
namespace Bench {

static_assert(STREAM_SIZE % STREAM_PIECE == 0, "a stream is a row of whole pieces");

std::string encodeTotals(const Totals& totals) {
    std::string body(sizeof(totals), '\0');
    std::memcpy(&body[0], &totals, sizeof(totals));
    return body;
}

Totals decodeTotals(const char* data, std::size_t length) {
    Totals totals;
    if (length != sizeof(totals)) {
        throw std::runtime_error("the answer has no totals");
    }
    std::memcpy(&totals, data, sizeof(totals));
    return totals;
}

std::uint64_t MessageClient::upload(std::uint64_t total) {
    for (std::uint64_t sent = 0; sent < total; sent += STREAM_PIECE) {
        sendOneWay(streamPiece());
    }
    const std::uint64_t bytes = askTotals().bytes;
    const std::uint64_t received = bytes - bytesBefore;
    bytesBefore = bytes;
    return received;
}

void MessageClient::send(const std::string& message) {
    sendOneWay(message);
}

std::uint64_t MessageClient::finish() {
    return askTotals().messages;
}

}  // namespace Bench
}  // namespace Corvane
