#include "io/platform/posix/SocketCalls.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "io/platform/posix/SystemCalls.h"

namespace Corvane {
namespace Io {
namespace Platform {
namespace SocketCalls {

namespace {

/// The most blocks that go out in one call; the system takes more, but to bring them there costs time, too.
const std::size_t SENT_AT_ONCE = 32;

int setTimeout(int socket, int option, int timeoutMs) {
    timeval timeout{};
    timeout.tv_sec = timeoutMs / 1000;
    timeout.tv_usec = (timeoutMs % 1000) * 1000;
    return calls().setsockopt(socket, SOL_SOCKET, option, &timeout, sizeof(timeout));
}

ssize_t receiveWith(int socket, const Room* begin, const Room* end, int flags) {
    if (end - begin == 1) {
        return calls().recv(socket, begin->data, static_cast<std::size_t>(begin->length), flags);
    }
    iovec parts[MOST_ROOMS];
    msghdr message{};
    message.msg_iov = parts;
    for (; begin != end && message.msg_iovlen < MOST_ROOMS; ++begin) {
        parts[message.msg_iovlen++] = {begin->data, static_cast<std::size_t>(begin->length)};
    }
    return calls().recvmsg(socket, &message, flags);
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

FileDescriptor createSocket(bool blocking) {
    return FileDescriptor(calls().socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | (blocking ? 0 : SOCK_NONBLOCK), 0));
}

sockaddr_un socketAddress(const std::string& file) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    file.copy(address.sun_path, MAX_SOCKET_PATH);
    return address;
}

int bindTo(int socket, const sockaddr_un& address) {
    return calls().bind(socket, generic(address), sizeof(address));
}

int connectTo(int socket, const sockaddr_un& address) {
    return calls().connect(socket, generic(address), sizeof(address));
}

int listenForOne(int socket) {
    // The queue takes one client more than this number.
    return calls().listen(socket, 0);
}

FileDescriptor acceptClient(int socket) {
    return FileDescriptor(calls().accept4(socket, nullptr, nullptr, SOCK_CLOEXEC));
}

ssize_t receive(int socket, const Room* begin, const Room* end) {
    return receiveWith(socket, begin, end, 0);
}

ssize_t receiveNow(int socket, const Room* begin, const Room* end) {
    return receiveWith(socket, begin, end, MSG_DONTWAIT);
}

ssize_t sendNow(int socket, const Block* begin, const Block* end) {
    const int flags = MSG_NOSIGNAL | MSG_DONTWAIT;
    if (end - begin == 1) {
        return calls().send(socket, begin->data(), begin->size(), flags);
    }
    iovec parts[SENT_AT_ONCE];
    msghdr message{};
    message.msg_iov = parts;
    for (; begin != end && message.msg_iovlen < SENT_AT_ONCE; ++begin) {
        // The system only reads it, but its structure serves reading and writing.
        parts[message.msg_iovlen++] = {const_cast<char*>(begin->data()), begin->size()};
    }
    return calls().sendmsg(socket, &message, flags);
}

int waitFor(int descriptor, short events, int timeoutMs) {
    pollfd entry{descriptor, events, 0};
    const int ready = calls().poll(&entry, 1, timeoutMs);
    return ready > 0 ? entry.revents : ready;
}

int setBlocking(int socket, bool blocking) {
    // createSocket() set no other flag.
    return calls().fcntl(socket, F_SETFL, blocking ? 0 : O_NONBLOCK);
}

int setReceiveTimeout(int socket, int timeoutMs) {
    return setTimeout(socket, SO_RCVTIMEO, timeoutMs);
}

int setSendTimeout(int socket, int timeoutMs) {
    return setTimeout(socket, SO_SNDTIMEO, timeoutMs);
}

int shutDown(int socket) {
    return calls().shutdown(socket, SHUT_RDWR);
}

}  // namespace SocketCalls
}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
