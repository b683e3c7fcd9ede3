#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace Corvane {
namespace Bench {

/// What a measurement does; the names are those of the command line.
enum class Workload {
    W1,  ///< one client, 100 bytes each way
    W2,  ///< four clients, 100 bytes each way
    W3,  ///< 1 MiB up, 100 bytes back
    W4,  ///< a stream of 64 MiB up
    W5,  ///< one-way messages of 100 bytes
    W6,  ///< connect, one request, close
    W7   ///< the memory of idle connections
};

constexpr std::size_t SMALL_SIZE = 100;
constexpr std::size_t LARGE_SIZE = std::size_t{1} << 20;
constexpr std::uint64_t STREAM_SIZE = std::uint64_t{64} << 20;
constexpr std::size_t STREAM_PIECE = std::size_t{64} << 10;
constexpr int IDLE_CONNECTIONS = 1000;

/// True where large buffers pay; elsewhere they only take memory.
constexpr bool isBulk(Workload workload) {
    return workload == Workload::W3 || workload == Workload::W4;
}

struct Settings {
    /// A path that is free, in a folder of this measurement's own. Each peer makes its address of it.
    std::string address;
    Workload workload = Workload::W1;
};

/// Thrown where a peer has no such thing as the workload asks for.
class NotOffered : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// One connection of a peer's client, made by makeClient() and closed by its destructor. Used by one thread.
class Client {
 public:
    virtual ~Client() = default;

    /// Sends `up` and returns what answer() made of it at the other end. The result is valid until the next call.
    virtual const std::string& request(const std::string& up) = 0;

    /// Sends `total` bytes without having them all in memory, in pieces of STREAM_PIECE bytes from
    /// streamPiece(), and returns how many the server has counted.
    virtual std::uint64_t upload(std::uint64_t total);

    /// Sends a message that is not answered.
    virtual void send(const std::string& message);

    /// Returns when the server has received all that was sent, with the number of one-way messages that it has
    /// received since it began.
    virtual std::uint64_t finish();
};

// What each peer defines.

/// A client that is connected, or connects with its first request.
std::unique_ptr<Client> makeClient(const Settings& settings);

/// Serves until the process is ended. Calls `ready` when clients may connect.
void serve(const Settings& settings, const std::function<void()>& ready);

// What all peers share.

/// What a server answers to a request: its first 100 bytes, and for a longer one its length in the last 8 of them.
void answer(const char* data, std::size_t length, std::string& result);
/// The same for a peer that wants the answer as a value.
std::string answer(const std::string& data);

/// What uploads are made of, STREAM_PIECE bytes.
const std::string& streamPiece();

/// A number as the body of an answer, 8 bytes.
std::string encodeNumber(std::uint64_t number);
/// @throws std::runtime_error it is no such body.
std::uint64_t decodeNumber(const char* data, std::size_t length);

}  // namespace Bench
}  // namespace Corvane
