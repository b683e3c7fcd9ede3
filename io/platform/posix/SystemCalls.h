#pragma once

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>

namespace Corvane {
namespace Io {
namespace Platform {

/// What the system knows of a file. A name of its own, since the call has the same.
using FileStatus = struct stat;
/// What it knows of a group of users.
using GroupEntry = struct group;

/// The calls that the transport makes on the system. A test puts others in their place: it forces failures that the
/// system shows only rarely, and sees the arguments of each call. A call that fails leaves its reason in errno,
/// here as in the system.
struct SystemCalls {
    // Sockets.
    int (*socket)(int domain, int type, int protocol) = &::socket;
    int (*bind)(int socket, const sockaddr* address, socklen_t length) = &::bind;
    int (*listen)(int socket, int backlog) = &::listen;
    int (*accept4)(int socket, sockaddr* address, socklen_t* length, int flags) = &::accept4;
    int (*connect)(int socket, const sockaddr* address, socklen_t length) = &::connect;
    ssize_t (*recv)(int socket, void* buffer, std::size_t length, int flags) = &::recv;
    ssize_t (*recvmsg)(int socket, msghdr* message, int flags) = &::recvmsg;
    ssize_t (*send)(int socket, const void* buffer, std::size_t length, int flags) = &::send;
    ssize_t (*sendmsg)(int socket, const msghdr* message, int flags) = &::sendmsg;
    int (*poll)(pollfd* entries, nfds_t count, int timeoutMs) = &::poll;
    int (*setsockopt)(int socket, int level, int option, const void* value, socklen_t length) = &::setsockopt;
    int (*shutdown)(int socket, int how) = &::shutdown;

    // Memory.
    int (*madvise)(void* address, std::size_t length, int advice) = &::madvise;

    // Descriptors of every kind.
    int (*fcntl)(int descriptor, int command, ...) = &::fcntl;
    int (*fstat)(int descriptor, FileStatus* status) = &::fstat;
    int (*fchmod)(int descriptor, mode_t mode) = &::fchmod;
    int (*fchownat)(int descriptor, const char* file, uid_t user, gid_t group, int flags) = &::fchownat;
    int (*flock)(int descriptor, int operation) = &::flock;
    int (*close)(int descriptor) = &::close;

    // Files by their names.
    int (*open)(const char* file, int flags, ...) = &::open;
    int (*stat)(const char* file, FileStatus* status) = &::stat;
    int (*lstat)(const char* file, FileStatus* status) = &::lstat;
    ssize_t (*readlink)(const char* file, char* buffer, std::size_t size) = &::readlink;
    int (*symlink)(const char* text, const char* file) = &::symlink;
    int (*unlink)(const char* file) = &::unlink;
    int (*mkdir)(const char* directory, mode_t mode) = &::mkdir;
    int (*chmod)(const char* file, mode_t mode) = &::chmod;

    // Groups of users. This one returns the reason of a failure, and 0 with a null result when there is no such
    // group.
    int (*getgrnam_r)(const char* name, GroupEntry* entry, char* buffer, std::size_t size,
                      GroupEntry** result) = &::getgrnam_r;

    // The clock that timeouts run on. It never fails.
    std::chrono::steady_clock::time_point (*now)() = &std::chrono::steady_clock::now;
};

/// The table that is in use, at first that of the system itself.
const SystemCalls& calls();

/// Puts `table` (not owned) in the place of the one that is in use; null puts the system's own back. To be called
/// while no thread is inside a call of a pipe.
void substituteCalls(const SystemCalls* table);

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
