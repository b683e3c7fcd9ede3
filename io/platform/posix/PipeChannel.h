#pragma once

#include <sys/types.h>

#include <atomic>
#include <optional>

#include "io/platform/PipePlatform.h"
#include "io/platform/posix/Deadline.h"
#include "io/platform/posix/FileDescriptor.h"

namespace Corvane {
namespace Io {
namespace Platform {

/// A connected socket. One thread reads or writes at a time; close() may come from any.
///
/// The descriptor is closed by the destructor alone, and every call holds the channel by a pointer of its own: a
/// number that is still in use can never become that of another file.
class PipeChannel {
 public:
    /// @param socket connected and blocking.
    PipeChannel(FileDescriptor socket, bool readable, bool writable);

    /// See readChannel().
    int read(const Room* begin, const Room* end, int timeoutMs, IdleMemory idle);

    /// See writeChannel().
    int write(const char* buffer, int length);

    /// See writeBlocks().
    int write(Block* begin, Block* end, std::size_t piece);

    /// See closeChannel().
    void close();

 private:
    ssize_t receive(const Room* begin, const Room* end) const;
    bool applyReceiveTimeout(int timeoutMs);
    int waitForRoom(std::optional<Deadline>& deadline) const;
    int writeFailed(int error, bool waited) const;

    const FileDescriptor socket;
    const bool readable;
    const bool writable;
    /// The process that made it. A child that was forked shares the socket and must not end it for its parent.
    const pid_t owner;
    std::atomic<bool> closed{false};
    /// What the socket's receive timeout is at present, in milliseconds; saves a system call for each read.
    int receiveTimeout = 0;
};

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
