#include "io/platform/posix/NameClaim.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <utility>

#include "cvtp/internal/Logging.h"
#include "io/platform/posix/SocketCalls.h"
#include "io/platform/posix/SystemCalls.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using Internal::Cvtp::isError;
using Internal::Cvtp::logError;

/// Each round means that another server came or went meanwhile.
const int MAX_LOCK_ROUNDS = 1000;

int inTheWay(const std::string& file, const std::string& reason, int code) {
    if (isError()) {
        logError("Pipe file " + file + " is in the way and left alone: " + reason + ".");
    }
    return code;
}

int isNotOwn(const std::string& file, const std::string& expected, int code) {
    return inTheWay(file, "it is not " + expected + " of this user", code);
}

bool isOwn(const struct stat& status, mode_t type) {
    return (status.st_mode & S_IFMT) == type && status.st_uid == ::geteuid();
}

/// Repeats a call that a signal has ended; on a file system of another machine that can be any call.
template <class Call>
int uninterrupted(Call call) {
    int result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// Opens it without following a link and without waiting, whatever it is.
FileDescriptor openLockFile(const std::string& file) {
    const int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY;
    return FileDescriptor(uninterrupted([&] { return calls().open(file.c_str(), flags, S_IRUSR | S_IWUSR); }));
}

/// A lock file that cannot be opened is a link, a folder or that of another user's server, or there is no access to
/// the pipe folder at all.
int explainRefusal(const std::string& file, int code) {
    struct stat status {};
    const bool isThere = calls().lstat(file.c_str(), &status) == 0;
    return isThere && !isOwn(status, S_IFREG) ? isNotOwn(file, "a lock file", code) : code;
}

/// Nobody has the name of that socket locked, and yet somebody may listen at it: another program of the user's,
/// which knows nothing of locks, or a server whose lock file was swept away as an old one.
///
/// @return 0 when nobody does.
int checkUnserved(const std::string& file) {
    const FileDescriptor probe = SocketCalls::createSocket();
    if (!probe.isOpen()) {
        return errno;
    }
    const sockaddr_un address = SocketCalls::socketAddress(file);
    const int result = uninterrupted([&] { return SocketCalls::connectTo(probe.get(), address); });
    // It takes the client, has no place for it, or is one for clients of another kind.
    if (result == 0 || errno == EAGAIN || errno == EPROTOTYPE) {
        return inTheWay(file, "somebody listens at it", EADDRINUSE);
    }
    return 0;
}

}  // namespace

NameClaim::NameClaim(PipeAddress address) : address(std::move(address)), owner(::getpid()) {}

NameClaim::~NameClaim() {
    release();
}

bool NameClaim::isOwner() const {
    return ::getpid() == owner;
}

bool NameClaim::identify(const std::string& file, FileIdentity& identity) {
    struct stat status {};
    if (calls().lstat(file.c_str(), &status) != 0) {
        return false;
    }
    identity = {status.st_dev, status.st_ino};
    return true;
}

void NameClaim::removeIfSame(const std::string& file, const FileIdentity& identity) {
    FileIdentity present;
    if (identity.inode != 0 && identify(file, present) && present.device == identity.device &&
        present.inode == identity.inode) {
        calls().unlink(file.c_str());
    }
}

int NameClaim::lock() {
    for (int round = 0; round < MAX_LOCK_ROUNDS; ++round) {
        FileDescriptor descriptor = openLockFile(address.lockFile);
        struct stat status {};
        if (!descriptor.isOpen()) {
            return explainRefusal(address.lockFile, errno);
        }
        if (calls().fstat(descriptor.get(), &status) != 0) {
            return errno;
        }
        // Another name of some other file of the user's, which must not be locked, may have been put here by a
        // stranger.
        if (!isOwn(status, S_IFREG) || status.st_nlink > 1) {
            return isNotOwn(address.lockFile, "a lock file", EPERM);
        }
        if (uninterrupted([&] { return calls().flock(descriptor.get(), LOCK_EX | LOCK_NB); }) != 0) {
            return errno == EWOULDBLOCK ? EADDRINUSE : errno;
        }
        // A server that closes removes the file it has locked: a lock of a file without a name counts for nothing.
        FileIdentity present;
        if (identify(address.lockFile, present) && present.device == status.st_dev &&
            present.inode == status.st_ino) {
            lockIdentity = present;
            lockDescriptor = std::move(descriptor);
            return 0;
        }
    }
    return EADDRINUSE;
}

int NameClaim::clearLeftover(const std::string& file, mode_t type) {
    struct stat status {};
    if (calls().lstat(file.c_str(), &status) != 0) {
        return errno == ENOENT ? 0 : errno;
    }
    if (!isOwn(status, type)) {
        return isNotOwn(file, type == S_IFSOCK ? "a socket" : "a direction link", EADDRINUSE);
    }
    const int served = type == S_IFSOCK ? checkUnserved(file) : 0;
    if (served != 0) {
        return served;
    }
    return calls().unlink(file.c_str()) == 0 || errno == ENOENT ? 0 : errno;
}

int NameClaim::take() {
    const int code = lock();
    return code != 0 ? code : clearLeftover(address.socketFile, S_IFSOCK);
}

int NameClaim::clearOwnDirection() {
    struct stat status {};
    if (calls().lstat(address.directionFile.c_str(), &status) != 0) {
        return errno == ENOENT ? 0 : errno;
    }
    // A stranger's link says nothing to clients, so it may stay; see offers() of the client's side.
    return isOwn(status, S_IFLNK) ? clearLeftover(address.directionFile, S_IFLNK) : 0;
}

int NameClaim::announceDirection(bool readable, bool writable) {
    if (readable && writable) {
        return clearOwnDirection();
    }
    const int code = clearLeftover(address.directionFile, S_IFLNK);
    if (code != 0) {
        return code;
    }
    const char* const text = readable ? DIRECTION_READABLE : DIRECTION_WRITABLE;
    if (calls().symlink(text, address.directionFile.c_str()) != 0) {
        return errno;
    }
    return noteOwn(address.directionFile, S_IFLNK, directionIdentity);
}

/// Notes a file that was just made. One that cannot be looked at would not be known again, so it goes at once.
int NameClaim::noteOwn(const std::string& file, mode_t type, FileIdentity& identity) {
    if (identify(file, identity)) {
        return 0;
    }
    const int code = errno;
    clearLeftover(file, type);
    return code;
}

int NameClaim::noteSocket() {
    return noteOwn(address.socketFile, S_IFSOCK, socketIdentity);
}

void NameClaim::removeSocket() {
    removeIfSame(address.socketFile, socketIdentity);
    socketIdentity = FileIdentity();
}

void NameClaim::release() {
    if (!lockDescriptor.isOpen() || !isOwner()) {
        return;
    }
    // The lock file goes last: from then on another server may take the name. Should it not go, the lock does.
    removeIfSame(address.socketFile, socketIdentity);
    removeIfSame(address.directionFile, directionIdentity);
    removeIfSame(address.lockFile, lockIdentity);
    calls().flock(lockDescriptor.get(), LOCK_UN);
    FileDescriptor done = std::move(lockDescriptor);
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
