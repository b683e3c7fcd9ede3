// The limit: a Unix domain socket and a head of 16 bytes, and nothing else. One system call sends a small message
// and one receives it.

#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "harness/Peer.h"

namespace Corvane {
namespace Bench {

namespace {

enum class Kind : std::uint32_t { REQUEST, STREAM, ONE_WAY, COUNT };

struct Head {
    Kind kind = Kind::REQUEST;
    std::uint32_t unused = 0;
    std::uint64_t length = 0;
};

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

class Socket {
 public:
    explicit Socket(int descriptor) : descriptor(descriptor) {
        if (descriptor < 0) {
            fail("socket");
        }
    }
    ~Socket() {
        if (descriptor >= 0) {
            close(descriptor);
        }
    }
    Socket(Socket&& other) noexcept : descriptor(other.descriptor) { other.descriptor = -1; }
    Socket& operator=(Socket&&) = delete;

    int get() const { return descriptor; }

 private:
    int descriptor;
};

Socket openSocket() {
    return Socket(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

sockaddr_un toAddress(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        throw std::runtime_error("the path of the socket is too long");
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

/// A socket with a buffer to receive into and one to put a message together in.
class Connection {
 public:
    explicit Connection(Socket socket) : socket(std::move(socket)), received(new char[STREAM_PIECE]) {}

    /// Copies a small body behind its head, which is faster than to have the system gather the two; a large one
    /// it gathers.
    void send(const Head& head, const char* body, std::size_t length) {
        if (length > STREAM_PIECE) {
            sendGathered(head, body, length);
            return;
        }
        outgoing.assign(reinterpret_cast<const char*>(&head), sizeof(head));
        outgoing.append(body, length);
        sendAll(outgoing.data(), outgoing.size());
    }

    void sendAll(const char* data, std::size_t length) {
        while (length > 0) {
            const ssize_t sent = ::send(socket.get(), data, length, MSG_NOSIGNAL);
            if (sent < 0) {
                fail("send");
            }
            data += sent;
            length -= static_cast<std::size_t>(sent);
        }
    }

    /// False at the end of the connection.
    bool receive(Head& head) {
        while (end - begin < sizeof(head)) {
            if (!fill()) {
                return false;
            }
        }
        std::memcpy(&head, &received[begin], sizeof(head));
        begin += sizeof(head);
        return true;
    }

    /// The body lies in the buffer if it fits there, else in a block of its own.
    const char* receiveBody(std::size_t length) {
        if (length > STREAM_PIECE) {
            return receiveLarge(length);
        }
        while (end - begin < length) {
            if (!fill()) {
                throw std::runtime_error("the connection ended within a message");
            }
        }
        const char* body = &received[begin];
        begin += length;
        return body;
    }

    void skip(std::uint64_t length) {
        while (length > 0) {
            if (begin == end && !fill()) {
                throw std::runtime_error("the connection ended within a stream");
            }
            const std::uint64_t part = std::min<std::uint64_t>(length, end - begin);
            begin += static_cast<std::size_t>(part);
            length -= part;
        }
    }

 private:
    void sendGathered(const Head& head, const char* body, std::size_t length) {
        iovec parts[] = {{const_cast<Head*>(&head), sizeof(head)}, {const_cast<char*>(body), length}};
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = 2;
        const ssize_t sent = sendmsg(socket.get(), &message, MSG_NOSIGNAL);
        if (sent < static_cast<ssize_t>(sizeof(head))) {
            fail("sendmsg");
        }
        const std::size_t done = static_cast<std::size_t>(sent) - sizeof(head);
        sendAll(body + done, length - done);
    }

    bool fill() {
        if (begin > 0) {
            std::memmove(&received[0], &received[begin], end - begin);
            end -= begin;
            begin = 0;
        }
        const std::size_t count = receiveSome(&received[end], STREAM_PIECE - end);
        end += count;
        return count > 0;
    }

    std::size_t receiveSome(char* data, std::size_t length) {
        const ssize_t count = recv(socket.get(), data, length, 0);
        if (count < 0 && errno != ECONNRESET) {
            fail("recv");
        }
        return static_cast<std::size_t>(std::max<ssize_t>(count, 0));
    }

    const char* receiveLarge(std::size_t length) {
        large.resize(length);
        std::size_t have = std::min(length, end - begin);
        std::memcpy(&large[0], &received[begin], have);
        begin += have;
        while (have < length) {
            const std::size_t count = receiveSome(&large[have], length - have);
            if (count == 0) {
                throw std::runtime_error("the connection ended within a message");
            }
            have += count;
        }
        return large.data();
    }

    Socket socket;
    /// Not filled with zeros, which would cost a new connection more than all else.
    std::unique_ptr<char[]> received;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::vector<char> large;
    std::string outgoing;
};

class RawClient : public Client {
 public:
    explicit RawClient(const std::string& path) : connection(open(path)) {}

    const std::string& request(const std::string& up) override {
        connection.send({Kind::REQUEST, 0, up.size()}, up.data(), up.size());
        return receiveAnswer();
    }

    std::uint64_t upload(std::uint64_t total) override {
        connection.send({Kind::STREAM, 0, total}, nullptr, 0);
        for (std::uint64_t left = total; left > 0;) {
            const auto part = static_cast<std::size_t>(std::min<std::uint64_t>(left, STREAM_PIECE));
            connection.sendAll(streamPiece().data(), part);
            left -= part;
        }
        return receiveNumber();
    }

    void send(const std::string& message) override {
        connection.send({Kind::ONE_WAY, 0, message.size()}, message.data(), message.size());
    }

    std::uint64_t finish() override {
        connection.send({Kind::COUNT, 0, 0}, nullptr, 0);
        return receiveNumber();
    }

 private:
    static Connection open(const std::string& path) {
        Socket socket = openSocket();
        const sockaddr_un address = toAddress(path);
        if (connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            fail("connect");
        }
        return Connection(std::move(socket));
    }

    const std::string& receiveAnswer() {
        Head head;
        if (!connection.receive(head)) {
            throw std::runtime_error("the server has gone");
        }
        const auto length = static_cast<std::size_t>(head.length);
        down.assign(connection.receiveBody(length), length);
        return down;
    }

    std::uint64_t receiveNumber() {
        receiveAnswer();
        return decodeNumber(down.data(), down.size());
    }

    Connection connection;
    std::string down;
};

std::atomic<std::uint64_t> oneWayMessages{0};

void sendNumber(Connection& connection, std::uint64_t number) {
    const std::string body = encodeNumber(number);
    connection.send({Kind::REQUEST, 0, body.size()}, body.data(), body.size());
}

/// Reads and answers one message; false at the end of the connection.
bool serveMessage(Connection& connection, std::string& down) {
    Head head;
    if (!connection.receive(head)) {
        return false;
    }
    const auto length = static_cast<std::size_t>(head.length);
    switch (head.kind) {
        case Kind::REQUEST:
            answer(connection.receiveBody(length), length, down);
            connection.send({Kind::REQUEST, 0, down.size()}, down.data(), down.size());
            break;
        case Kind::STREAM:
            connection.skip(head.length);
            sendNumber(connection, head.length);
            break;
        case Kind::ONE_WAY:
            connection.receiveBody(length);
            oneWayMessages.fetch_add(1, std::memory_order_relaxed);
            break;
        case Kind::COUNT:
            sendNumber(connection, oneWayMessages);
            break;
    }
    return true;
}

void serveConnection(Connection& connection) {
    std::string down;
    while (serveMessage(connection, down)) {
    }
}

Socket accept(const Socket& listener) {
    return Socket(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
}

}  // namespace

std::unique_ptr<Client> makeClient(const Settings& settings) {
    return std::make_unique<RawClient>(settings.address);
}

void serve(const Settings& settings, const std::function<void()>& ready) {
    const Socket listener = openSocket();
    const sockaddr_un address = toAddress(settings.address);
    if (bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener.get(), SOMAXCONN) != 0) {
        fail("listen");
    }
    ready();
    while (true) {
        Connection connection(accept(listener));
        if (settings.workload == Workload::W6) {
            // No thread is the limit: clients come one after another.
            serveConnection(connection);
        } else {
            std::thread([connection = std::move(connection)]() mutable { serveConnection(connection); }).detach();
        }
    }
}

}  // namespace Bench
}  // namespace Corvane
