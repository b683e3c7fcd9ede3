#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "harness/Peer.h"

namespace Corvane {
namespace Bench {

/// What a server has received since it began.
struct Totals {
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
};

/// As the body of an answer, 16 bytes.
std::string encodeTotals(const Totals& totals);
/// @throws std::runtime_error it is no such body.
Totals decodeTotals(const char* data, std::size_t length);

/// Counts what a server receives; any thread may call it.
class Tally {
 public:
    void add(std::size_t bytes) {
        messages.fetch_add(1, std::memory_order_relaxed);
        this->bytes.fetch_add(bytes, std::memory_order_relaxed);
    }
    Totals totals() const { return {messages, bytes}; }

 private:
    std::atomic<std::uint64_t> messages{0};
    std::atomic<std::uint64_t> bytes{0};
};

/// A client of what has one-way messages but no streams, so that a stream is a row of messages.
class MessageClient : public Client {
 public:
    std::uint64_t upload(std::uint64_t total) override;
    void send(const std::string& message) override;
    std::uint64_t finish() override;

 protected:
    virtual void sendOneWay(const std::string& message) = 0;
    /// Of the server, with all that was sent before.
    virtual Totals askTotals() = 0;

 private:
    std::uint64_t bytesBefore = 0;
};

}  // namespace Bench
}  // namespace Corvane
