#pragma once

#include <sys/types.h>
#include <sys/un.h>

#include <cstddef>
#include <string>

#include "io/platform/PipePlatform.h"
#include "io/platform/posix/FileDescriptor.h"

/// What the transport does with sockets, in terms of the calls of the system. Each reports as the system does: a
/// negative result, and the reason in errno.
namespace Corvane {
namespace Io {
namespace Platform {
namespace SocketCalls {

/// A Unix domain stream socket, closed on exec.
FileDescriptor createSocket(bool blocking = false);

/// The address of a socket file. `file` must fit; see MAX_SOCKET_PATH.
sockaddr_un socketAddress(const std::string& file);

int bindTo(int socket, const sockaddr_un& address);
int connectTo(int socket, const sockaddr_un& address);

/// Listens with room for exactly one client that was not accepted yet.
int listenForOne(int socket);

/// A blocking socket, closed on exec; none when the call failed. Waits for a client if `socket` is blocking.
FileDescriptor acceptClient(int socket);

/// Fills the rooms, at most MOST_ROOMS, one after another.
ssize_t receive(int socket, const Room* begin, const Room* end);

/// What is there; EAGAIN when that is nothing.
ssize_t receiveNow(int socket, const Room* begin, const Room* end);

/// Sends what fits at once, at least one block, and raises no signal when the other end is gone. Not all of many
/// blocks are sent, even if they would fit.
ssize_t sendNow(int socket, const Block* begin, const Block* end);

/// poll() for a single descriptor; -1 as timeout waits forever. The result is what has happened, 0 after the
/// timeout.
int waitFor(int descriptor, short events, int timeoutMs);

int setBlocking(int socket, bool blocking);
/// 0 as timeout means none.
int setReceiveTimeout(int socket, int timeoutMs);
/// Applies to connectTo() on a blocking socket, too.
int setSendTimeout(int socket, int timeoutMs);

/// Ends both directions, which wakes whoever waits on the socket; the descriptor stays open.
int shutDown(int socket);

/// The longest path that a socket can have, in bytes.
constexpr std::size_t MAX_SOCKET_PATH = sizeof(sockaddr_un::sun_path) - 1;

}  // namespace SocketCalls
}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
