#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "cvtp/internal/Logging.h"
#include "io/platform/PipePlatform.h"
#include "io/platform/posix/Deadline.h"
#include "io/platform/posix/PipeAddress.h"
#include "io/platform/posix/PipeChannel.h"
#include "io/platform/posix/SocketCalls.h"
#include "io/platform/posix/SystemCalls.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using namespace Internal::Cvtp;

/// The kernel wakes one waiting client for each place that comes free. Should that client be killed before it takes
/// the place, nobody wakes another; so every client looks for itself now and then. Milliseconds.
const int WAIT_SLICE_MS = 1000;

/// A client that waits while the server goes away keeps looking for so long for the server that takes its place:
/// long enough for a service that restarts, and short enough for a caller who would wait without limit.
const int RESTART_GRACE_MS = 2000;
const int RESTART_POLL_MS = 20;

int openFailed(int error) {
    if (isError()) {
        logError("Could not open pipe. GLE=" + std::to_string(error));
    }
    return OPEN_FAILED;
}

int openTimedOut(const std::string& path, int timeoutMs) {
    if (isDebug()) {
        // A wait without limit has the number that the log has for it on every platform.
        const std::uint32_t wait = timeoutMs > 0 ? static_cast<std::uint32_t>(timeoutMs) : 0xFFFFFFFFU;
        logDebug("Could not open pipe " + path + " after " + std::to_string(wait) + " milliseconds.");
    }
    return OPEN_TIMED_OUT;
}

bool isDenied(int error) {
    return error == EACCES || error == EPERM;
}

bool isServerGone(int error) {
    return error == ENOENT || error == ECONNREFUSED;
}

/// Whoever made the link made the socket as well. In a folder that all may write to, anybody could leave a link and
/// so keep the clients of somebody else's server away.
bool isLinkOfServer(const PipeAddress& address) {
    struct stat link {};
    struct stat socket {};
    return calls().lstat(address.directionFile.c_str(), &link) == 0 &&
           calls().lstat(address.socketFile.c_str(), &socket) == 0 && link.st_uid == socket.st_uid;
}

/// Whether the server can do what the client asks for. No link is the usual case and means that it can do both.
bool offers(const PipeAddress& address, bool readable, bool writable) {
    std::array<char, 16> text;
    const ssize_t length = calls().readlink(address.directionFile.c_str(), text.data(), text.size());
    if (length < 0 || !isLinkOfServer(address)) {
        return true;
    }
    const std::string direction(text.data(), static_cast<std::size_t>(length));
    // A client reads what the server writes.
    return !(readable && direction == DIRECTION_READABLE) && !(writable && direction == DIRECTION_WRITABLE);
}

/// Whether somebody else leads clients from the place of the socket to another one, which he may not reach himself.
/// Where fs.protected_symlinks is on, the system itself follows no such link in a folder with the sticky bit; this
/// one holds everywhere, but only for a link that lies there already.
bool isStrangersLink(const std::string& file) {
    struct stat status {};
    if (calls().lstat(file.c_str(), &status) != 0 || !S_ISLNK(status.st_mode) || status.st_uid == 0 ||
        status.st_uid == ::geteuid()) {
        return false;
    }
    if (isError()) {
        logError("Pipe file " + file + " is a link of another user and not followed.");
    }
    return true;
}

/// Waits in the kernel for a place in the server's queue, in turn with the other clients.
///
/// @return 0 or the code of the system, EAGAIN when no place came free in time.
int waitForPlace(int socket, const sockaddr_un& address, int timeoutMs) {
    const Deadline deadline(timeoutMs);
    std::optional<Deadline> grace;
    if (SocketCalls::setBlocking(socket, true) != 0) {
        return errno;
    }
    for (;;) {
        const int left = deadline.isUnlimited() ? WAIT_SLICE_MS : deadline.remaining();
        if (left == 0) {
            return EAGAIN;
        }
        if (SocketCalls::setSendTimeout(socket, std::min(left, WAIT_SLICE_MS)) != 0) {
            return errno;
        }
        if (SocketCalls::connectTo(socket, address) == 0) {
            return 0;
        }
        if (isServerGone(errno)) {
            if (!grace) {
                grace.emplace(RESTART_GRACE_MS);
            }
            if (grace->remaining() == 0) {
                // Whoever waited for an instance has waited in vain, whatever became of the server.
                return EAGAIN;
            }
            SocketCalls::waitFor(-1, 0, std::min(left, RESTART_POLL_MS));
        } else if (errno == EAGAIN) {
            grace.reset();
        } else if (errno != EINTR) {
            return errno;
        }
    }
}

/// @return 0 or the code of the system, EAGAIN when there is no place.
int connectAtOnce(int socket, const sockaddr_un& address) {
    int error = 0;
    do {
        error = SocketCalls::connectTo(socket, address) == 0 ? 0 : errno;
    } while (error == EINTR);
    return error;
}

/// @return 0 or the code of the system, EAGAIN when no place came free in time, EACCES when there is no access to
///         what was asked for. The socket is blocking after 0.
int connectSocket(int socket, const PipeAddress& address, bool readable, bool writable, int timeoutMs) {
    const sockaddr_un file = SocketCalls::socketAddress(address.socketFile);
    int error = connectAtOnce(socket, file);
    if (error == 0) {
        return SocketCalls::setBlocking(socket, true) == 0 ? 0 : errno;
    }
    if (error == EAGAIN) {
        if (isDebug()) {
            logDebug("Waiting for named pipe.");
        }
        error = waitForPlace(socket, file, timeoutMs);
        // Meanwhile a server of another direction may have taken the place of the one that was there.
        if (error == 0 && !offers(address, readable, writable)) {
            error = EACCES;
        }
    }
    return error;
}

/// Why a connection failed, whose folder was perhaps not looked at before.
int findCause(const std::string& path, int failure) {
    PipeAddress address;
    const int code = findPipe(path, PipeSearch::AFTER_FAILURE, address);
    return code == 0 ? failure : code;
}

}  // namespace

int openChannel(const std::string& path, bool readable, bool writable, int timeoutMs, ChannelHandle& channel) {
    channel.reset();
    PipeAddress address;
    const int code = findPipe(path, PipeSearch::TO_CONNECT, address);
    if (code != 0) {
        // A refused folder is no pipe that denies access, but one that cannot be reached is.
        return code == EACCES ? static_cast<int>(OPEN_DENIED) : openFailed(code);
    }
    if (!offers(address, readable, writable) || isStrangersLink(address.socketFile)) {
        return OPEN_DENIED;
    }
    FileDescriptor socket = SocketCalls::createSocket();
    if (!socket.isOpen()) {
        return openFailed(errno);
    }
    const int failure = connectSocket(socket.get(), address, readable, writable, timeoutMs);
    const int error = failure == 0 || failure == EAGAIN ? failure : findCause(path, failure);
    if (isDenied(error)) {
        return OPEN_DENIED;
    }
    if (error == EAGAIN) {
        return openTimedOut(path, timeoutMs);
    }
    if (error != 0) {
        return openFailed(error);
    }
    if (isDebug()) {
        logDebug("CreateFile - " + path + " handle=" + std::to_string(socket.get()) + " GetLastError=0");
    }
    channel = std::make_shared<PipeChannel>(std::move(socket), readable, writable);
    return SUCCESS;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
