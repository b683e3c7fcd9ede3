#include "io/platform/posix/PipeChannel.h"

#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <exception>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cvtp/internal/Logging.h"
#include "io/platform/posix/CurrentProcess.h"
#include "io/platform/posix/SocketCalls.h"
#include "io/platform/posix/Spinning.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using namespace Internal::Cvtp;

/// A connection that waits for so long is a quiet one, and gives its memory back. To get it again costs a few
/// microseconds, which nobody notices after such a time. Milliseconds.
const int QUIET_MS = 100;

/// The first part of a wait of `timeoutMs`, 0 for one without end.
int untilQuiet(int timeoutMs) {
    return timeoutMs == 0 ? QUIET_MS : std::min(timeoutMs, QUIET_MS);
}

/// Gives back what is whole pages of the system, whose pages may be larger than those of the caller: it would empty
/// the rest of the last one as well, where somebody else's bytes stand. A system that does not want them back lets
/// the connection keep them.
void giveBack(const IdleMemory& idle) {
    static const std::size_t page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    const std::size_t length = idle.length / page * page;
    if (length > 0) {
        calls().madvise(idle.data, length, MADV_DONTNEED);
    }
}

/// There is no event here, but the line of the log keeps its form.
const char* const NO_EVENT = "-1";

int readTimedOut() {
    if (isDebug()) {
        logDebug("Read timed out.");
    }
    return READ_TIMED_OUT;
}

int readFailed(int error) {
    if (isWarn()) {
        logWarn("ReadFile error: " + std::to_string(error));
    }
    return READ_FAILED;
}

int writeTimedOut() {
    if (isDebug()) {
        logDebug("Write timed out.");
    }
    return WRITE_TIMED_OUT;
}

int writeAborted() {
    if (isInfo()) {
        logInfo("WriteFile aborted.");
    }
    return ABORTED;
}

int wroteNothing(bool waited) {
    if (isDebug()) {
        logDebug(waited ? "writePipe: woke up without completing I/O" : "WriteFile succeeded but wrote no bytes.");
    }
    return SUCCESS;
}

int writeFailed(const char* text, int error) {
    if (isError()) {
        logError(text + std::to_string(error));
    }
    return WRITE_FAILED;
}

/// Also called by destructors, which nothing may leave: a line for which there is no memory is missing.
///
/// @param error the code of the failure, or 0.
void logClose(int descriptor, int error) noexcept {
    try {
        if (isDebug()) {
            logDebug("Close Handles: handle=" + std::to_string(descriptor) + "; event=" + NO_EVENT);
        }
        if (error != 0 && isInfo()) {
            logInfo("CvPipe_closePipe CancelIoEx failed. Error code : " + std::to_string(error));
        }
    } catch (const std::exception&) {
        return;
    }
}

/// Takes what was written off the blocks.
///
/// @return the first one that has bytes left.
Block* drop(Block* begin, const Block* end, std::size_t count) {
    while (begin != end && count >= begin->size()) {
        count -= begin->size();
        ++begin;
    }
    if (begin != end) {
        begin->remove_prefix(count);
    }
    return begin;
}

bool isBroken(int error) {
    return error == EPIPE || error == ECONNRESET;
}

}  // namespace

PipeChannel::PipeChannel(FileDescriptor socket, bool readable, bool writable)
    : socket(std::move(socket)), readable(readable), writable(writable), owner(currentProcess()) {}

bool PipeChannel::applyReceiveTimeout(int timeoutMs) {
    if (timeoutMs == receiveTimeout) {
        return true;
    }
    if (SocketCalls::setReceiveTimeout(socket.get(), timeoutMs) != 0) {
        return false;
    }
    receiveTimeout = timeoutMs;
    return true;
}

int PipeChannel::read(const Room* begin, const Room* end, int timeoutMs, IdleMemory idle) {
    if (closed.load()) {
        return ABORTED;
    }
    if (!readable) {
        return readFailed(EACCES);
    }
    if (begin->length <= 0) {
        return 0;
    }
    const Deadline deadline(timeoutMs);
    int wait = std::max(timeoutMs, 0);
    for (;;) {
        if (!applyReceiveTimeout(idle.length > 0 ? untilQuiet(wait) : wait)) {
            return readFailed(errno);
        }
        const ssize_t count = receive(begin, end);
        const int error = count < 0 ? errno : 0;
        if (count > 0) {
            return static_cast<int>(count);
        }
        // close() sets the flag before it shuts the socket down, so whoever was woken by it sees the flag.
        if (closed.load()) {
            return ABORTED;
        }
        if (error == 0 || error == ECONNRESET) {
            return 0;
        }
        if (error != EINTR && error != EAGAIN) {
            return readFailed(error);
        }
        if (error == EAGAIN && idle.length > 0) {
            giveBack(idle);
            idle.length = 0;
        }
        if (!deadline.isUnlimited()) {
            wait = deadline.remaining();
            if (wait == 0) {
                return readTimedOut();
            }
        }
    }
}

/// A receive that blocks, at first perhaps by trying again and again.
ssize_t PipeChannel::receive(const Room* begin, const Room* end) const {
    if (Spinning::isDue()) {
        // Most of the time the first try tells, and the clock is not needed.
        std::optional<Deadline::Moment> lastTry;
        do {
            const ssize_t count = SocketCalls::receiveNow(socket.get(), begin, end);
            if (count >= 0 || errno != EAGAIN) {
                Spinning::note(true);
                return count;
            }
            if (!lastTry) {
                lastTry = calls().now() + Spinning::length();
            }
        } while (!closed.load() && calls().now() < *lastTry);
        Spinning::note(false);
    }
    return SocketCalls::receive(socket.get(), begin, end);
}

int PipeChannel::writeFailed(int error, bool waited) const {
    // A write that had to wait reports how it ended with fewer words, as completed overlapped writes do.
    if (closed.load()) {
        return waited ? ABORTED : writeAborted();
    }
    if (isBroken(error)) {
        if (!waited && isDebug()) {
            logDebug("WriteFile broken pipe");
        }
        return WRITE_BROKEN;
    }
    return Platform::writeFailed(waited ? "WriteFile failed: " : "WriteFile error: ", error);
}

int PipeChannel::write(const char* buffer, int length) {
    Block block(buffer, static_cast<std::size_t>(length));
    return write(&block, &block + 1, block.size());
}

/// The send buffer of the socket stays as the system makes it: in a larger one the bytes are out of the processor's
/// cache when the other end takes them.
int PipeChannel::write(Block* begin, Block* end, std::size_t piece) {
    if (closed.load()) {
        return writeAborted();
    }
    if (!writable) {
        return writeFailed(EACCES, false);
    }
    // Most writes fit at once and never ask for the time.
    std::optional<Deadline> deadline;
    bool waited = false;
    std::size_t sinceDeadline = 0;
    begin = drop(begin, end, 0);
    while (begin != end) {
        const ssize_t count = SocketCalls::sendNow(socket.get(), begin, end);
        const int error = count < 0 ? errno : 0;
        if (count > 0) {
            begin = drop(begin, end, static_cast<std::size_t>(count));
            sinceDeadline += static_cast<std::size_t>(count);
            if (sinceDeadline >= piece) {
                sinceDeadline %= piece;
                deadline.reset();
            }
            waited = false;
        } else if (count == 0) {
            return wroteNothing(waited);
        } else if (error == EAGAIN) {
            const int result = waitForRoom(deadline);
            if (result != SUCCESS) {
                return result;
            }
            waited = true;
        } else if (error != EINTR) {
            return writeFailed(error, waited);
        }
    }
    return SUCCESS;
}

/// Waits, after a try that found no room; the first time sets the deadline. Also SUCCESS at the deadline, for a
/// last try: poll() calls a socket writable only when most of it is empty, so the last bytes may fit although it
/// did not.
int PipeChannel::waitForRoom(std::optional<Deadline>& deadline) const {
    if (!deadline) {
        deadline.emplace(WRITE_TIMEOUT_MS);
    }
    const int wait = deadline->remaining();
    if (wait == 0) {
        return writeTimedOut();
    }
    if (SocketCalls::waitFor(socket.get(), POLLOUT, wait) < 0 && errno != EINTR) {
        return writeFailed(errno, true);
    }
    return SUCCESS;
}

void PipeChannel::close() {
    closed.store(true);
    // Before anything is logged, which takes its time, and may fail.
    const bool failed = currentProcess() == owner && SocketCalls::shutDown(socket.get()) != 0;
    logClose(socket.get(), failed ? errno : 0);
}

int readChannel(const ChannelHandle& channel, char* buffer, int length, int timeoutMs, const IdleMemory& idle) {
    const Room room{buffer, length};
    return channel ? channel->read(&room, &room + 1, timeoutMs, idle) : readFailed(EBADF);
}

int readChannel(const ChannelHandle& channel, const Room* begin, const Room* end, int timeoutMs) {
    return channel ? channel->read(begin, end, timeoutMs, {}) : readFailed(EBADF);
}

int writeChannel(const ChannelHandle& channel, const char* buffer, int length) {
    if (length <= 0) {
        return SUCCESS;
    }
    return channel ? channel->write(buffer, length) : writeFailed("WriteFile error: ", EBADF);
}

int writeBlocks(const ChannelHandle& channel, std::vector<Block>& blocks, std::size_t piece) {
    return channel ? channel->write(blocks.data(), blocks.data() + blocks.size(), piece)
                   : writeFailed("WriteFile error: ", EBADF);
}

int closeChannel(const ChannelHandle& channel) {
    if (channel) {
        channel->close();
    } else {
        logClose(-1, EBADF);
    }
    return SUCCESS;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
