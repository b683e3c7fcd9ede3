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

int setTimeout(int socket, int option, int timeoutMs) {
    timeval timeout{};
    timeout.tv_sec = timeoutMs / 1000;
    timeout.tv_usec = (timeoutMs % 1000) * 1000;
    return calls().setsockopt(socket, SOL_SOCKET, option, &timeout, sizeof(timeout));
}

const sockaddr* generic(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

FileDescriptor createSocket() {
    return FileDescriptor(calls().socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
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

ssize_t receive(int socket, char* buffer, std::size_t length) {
    return calls().recv(socket, buffer, length, 0);
}

ssize_t receiveNow(int socket, char* buffer, std::size_t length) {
    return calls().recv(socket, buffer, length, MSG_DONTWAIT);
}

ssize_t sendNow(int socket, const char* buffer, std::size_t length) {
    return calls().send(socket, buffer, length, MSG_NOSIGNAL | MSG_DONTWAIT);
}

ssize_t sendNow(int socket, const Block& first, const Block& second) {
    iovec parts[2];
    msghdr message{};
    message.msg_iov = parts;
    for (const Block& block : {first, second}) {
        if (block.length > 0) {
            // The system only reads it, but its structure serves reading and writing.
            parts[message.msg_iovlen].iov_base = const_cast<char*>(block.data);
            parts[message.msg_iovlen++].iov_len = block.length;
        }
    }
    return calls().sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
}

int setSendBuffer(int socket, int size) {
    return calls().setsockopt(socket, SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
}

int waitFor(int descriptor, short events, int timeoutMs) {
    pollfd entry{descriptor, events, 0};
    const int ready = calls().poll(&entry, 1, timeoutMs);
    return ready > 0 ? entry.revents : ready;
}

int setBlocking(int socket) {
    // createSocket() set no other flag.
    return calls().fcntl(socket, F_SETFL, 0);
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
