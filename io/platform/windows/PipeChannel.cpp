#include "io/platform/windows/PipeChannel.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <numeric>
#include <string>
#include <utility>

#include "cvtp/internal/Logging.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using namespace Internal::Cvtp;

/// Not a result of a read: the system is still at it.
const int PENDING = -1000;

/// A pipe holds no more than that, so longer reads would gain nothing.
const int MAX_READ_LENGTH = 65536;

int readTimedOut() {
    if (isDebug()) {
        logDebug("Read timed out.");
    }
    return READ_TIMED_OUT;
}

void logReadError(DWORD error) {
    if (isWarn()) {
        logWarn("ReadFile error: " + std::to_string(error));
    }
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

int wroteNothing(const char* text) {
    // The rest is not written, and the caller is told that it was; deliberate.
    if (isDebug()) {
        logDebug(text);
    }
    return SUCCESS;
}

int writeFailed(const char* text, DWORD error) {
    if (isError()) {
        logError(text + std::to_string(error));
    }
    return WRITE_FAILED;
}

/// The most that one write carries of large blocks, if it is whole pieces. Bytes.
const std::size_t STRAIGHT_WRITE = 16 * 1024;

/// Also called by destructors, which nothing may leave: a line for which there is no memory is missing.
///
/// @param isCancelled what cancelAll() has said; if not, with this `error`.
void logClose(const Handle& pipe, const Handle& event, bool isCancelled, DWORD error) noexcept {
    try {
        if (isDebug()) {
            logDebug("Close Handles: handle=" + pipe.text() + "; event=" + event.text());
        }
        // Also when there was nothing to cancel; deliberate.
        if (!isCancelled && isInfo()) {
            logInfo("CvPipe_closePipe CancelIoEx failed. Error code : " + std::to_string(error));
        }
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace

PipeChannel::PipeChannel(PipeEnd end) : end(std::move(end)) {}

PipeChannel::~PipeChannel() {
    reading.settle(end.pipe.get());
}

int PipeChannel::read(const Room* rooms, const Room* roomsEnd, int timeoutMs) {
    if (closed.load()) {
        return ABORTED;
    }
    if (!end.hasEvents()) {
        logReadError(ERROR_INVALID_HANDLE);
        return READ_FAILED;
    }
    if (rooms->length <= 0) {
        return 0;
    }
    if (keptBegin < keptEnd) {
        return giveOut(rooms, roomsEnd);
    }
    const bool isTakenUp = reading.isPending();
    int result = isTakenUp ? awaitRead(timeoutMs) : PENDING;
    // The system ends what a thread has left pending when that thread ends. Such a read has taken nothing.
    if (!isTakenUp || (result == ABORTED && !closed.load())) {
        result = beginRead(rooms, roomsEnd);
        if (result == PENDING) {
            result = awaitRead(timeoutMs);
        }
    }
    return result > 0 ? giveOut(rooms, roomsEnd) : result;
}

/// @return PENDING, or what the read has come to at once; above zero, so many bytes are kept.
int PipeChannel::beginRead(const Room* rooms, const Room* roomsEnd) {
    const int wanted = std::accumulate(rooms, roomsEnd, 0, [](int sum, const Room& room) {
        return sum + std::min(room.length, MAX_READ_LENGTH - sum);
    });
    if (readBuffer.size() < static_cast<std::size_t>(wanted)) {
        readBuffer.resize(static_cast<std::size_t>(wanted));
    }
    DWORD count = 0;
    if (calls().readFile(end.pipe.get(), readBuffer.data(), static_cast<DWORD>(wanted), &count,
                         reading.prepare(end.event.get()))) {
        keptBegin = 0;
        keptEnd = count;
        return static_cast<int>(count);
    }
    const DWORD error = GetLastError();
    if (error == ERROR_IO_PENDING) {
        reading.setPending();
        // close() sets the flag before it cancels, so either it has found this read or the flag is seen here.
        if (closed.load()) {
            reading.cancel(end.pipe.get());
        }
        return PENDING;
    }
    if (closed.load()) {
        return ABORTED;
    }
    logReadError(error);
    // A pipe whose other end has gone is at its end, no matter when the read came.
    return error == ERROR_BROKEN_PIPE ? 0 : static_cast<int>(READ_FAILED);
}

/// @return what the pending read has come to; above zero, so many bytes are kept.
int PipeChannel::awaitRead(int timeoutMs) {
    const DWORD status = reading.wait(timeoutMs);
    if (status != WAIT_OBJECT_0 && closed.load()) {
        // A close that came as the wait ended: the read was ended by it, and was not late.
        reading.settle(end.pipe.get());
        return ABORTED;
    }
    if (status == WAIT_TIMEOUT) {
        // The read stays pending, and the next call takes it up.
        return readTimedOut();
    }
    if (status != WAIT_OBJECT_0) {
        // A wait that fails counts as the end of data; deliberate.
        return 0;
    }
    DWORD count = 0;
    const DWORD error = reading.finish(end.pipe.get(), count);
    switch (error) {
        case ERROR_SUCCESS:
        case ERROR_IO_PENDING:
        case ERROR_BROKEN_PIPE:
            keptBegin = 0;
            keptEnd = count;
            return static_cast<int>(count);
        case ERROR_OPERATION_ABORTED:
            return ABORTED;
        default:
            if (isError()) {
                logError("ReadFile failed: " + std::to_string(error));
            }
            return READ_FAILED;
    }
}

int PipeChannel::giveOut(const Room* rooms, const Room* roomsEnd) {
    std::size_t total = 0;
    for (const Room* room = rooms; room != roomsEnd; ++room) {
        const std::size_t count = std::min(static_cast<std::size_t>(room->length), keptEnd - keptBegin);
        if (count > 0) {
            std::memcpy(room->data, readBuffer.data() + keptBegin, count);
        }
        keptBegin += count;
        total += count;
    }
    return static_cast<int>(total);
}

int PipeChannel::write(const char* buffer, int length) {
    if (!end.hasEvents()) {
        return writeFailed("WriteFile error: ", ERROR_INVALID_HANDLE);
    }
    const DWORD total = static_cast<DWORD>(length);
    DWORD written = 0;
    while (written < total) {
        if (closed.load()) {
            return writeAborted();
        }
        DWORD count = 0;
        if (calls().writeFile(end.pipe.get(), buffer + written, total - written, &count,
                              writing.prepare(end.writeEvent.get()))) {
            if (count == 0) {
                return wroteNothing("WriteFile succeeded but wrote no bytes.");
            }
        } else {
            const DWORD error = GetLastError();
            const int result = error == ERROR_IO_PENDING ? awaitWrite(count) : beginFailed(error);
            if (result != SUCCESS || count == 0) {
                return result;
            }
        }
        written += count;
    }
    return SUCCESS;
}

int PipeChannel::beginFailed(DWORD error) {
    if (error == ERROR_OPERATION_ABORTED || closed.load()) {
        return writeAborted();
    }
    if (error == ERROR_BROKEN_PIPE || error == ERROR_NO_DATA) {
        if (isDebug()) {
            logDebug("WriteFile broken pipe");
        }
        return WRITE_BROKEN;
    }
    return writeFailed("WriteFile error: ", error);
}

/// Waits for the write that the system has begun. It works on the caller's bytes, so it has always ended when this
/// returns.
///
/// @param count the bytes that it moved.
/// @return SUCCESS, also when it has moved none, or why the write is over.
int PipeChannel::awaitWrite(DWORD& count) {
    writing.setPending();
    if (closed.load()) {
        // As for a read: a close that came just before the write has not found it.
        writing.cancel(end.pipe.get());
    }
    const DWORD status = writing.wait(WRITE_TIMEOUT_MS);
    if (status != WAIT_OBJECT_0) {
        const DWORD waitError = GetLastError();
        writing.settle(end.pipe.get());
        if (closed.load()) {
            // As for a read: the close counts, not the time.
            return ABORTED;
        }
        return status == WAIT_TIMEOUT ? writeTimedOut() : writeFailed("WriteFile failed: ", waitError);
    }
    const DWORD error = writing.finish(end.pipe.get(), count);
    switch (error) {
        case ERROR_SUCCESS:
        case ERROR_IO_PENDING:
            return count > 0 ? static_cast<int>(SUCCESS)
                             : wroteNothing("writePipe: woke up without completing I/O");
        case ERROR_OPERATION_ABORTED:
            return ABORTED;
        case ERROR_BROKEN_PIPE:
            return WRITE_BROKEN;
        default:
            return writeFailed("WriteFile failed: ", error);
    }
}

void PipeChannel::close() {
    closed.store(true);
    DWORD error = ERROR_SUCCESS;
    // Before anything is logged, which takes its time, and may fail.
    const bool isCancelled = cancelAll(end.pipe.get(), error);
    logClose(end.pipe, end.event, isCancelled, error);
}

int readChannel(const ChannelHandle& channel, char* buffer, int length, int timeoutMs, const IdleMemory&) {
    const Room room{buffer, length};
    return readChannel(channel, &room, &room + 1, timeoutMs);
}

int readChannel(const ChannelHandle& channel, const Room* begin, const Room* end, int timeoutMs) {
    if (channel) {
        return channel->read(begin, end, timeoutMs);
    }
    logReadError(ERROR_INVALID_HANDLE);
    return READ_FAILED;
}

int writeChannel(const ChannelHandle& channel, const char* buffer, int length) {
    if (length <= 0) {
        return SUCCESS;
    }
    return channel ? channel->write(buffer, length) : writeFailed("WriteFile error: ", ERROR_INVALID_HANDLE);
}

int writeBlocks(const ChannelHandle& channel, std::vector<Block>& blocks, std::size_t piece) {
    // How much of a write is done is not to be seen before it is over. So one that carries several pieces carries
    // few: the other end has the time of a single write for them all.
    const std::size_t size = std::max(piece, STRAIGHT_WRITE / piece * piece);
    // A call takes a single block, and costs more than to copy what is less than that.
    std::string joined;
    int result = SUCCESS;
    for (Block& block : blocks) {
        while (!block.empty() && result == SUCCESS) {
            const Block taken = block.substr(0, size - joined.size());
            block.remove_prefix(taken.size());
            if (taken.size() == size) {
                result = writeChannel(channel, taken.data(), static_cast<int>(size));
            } else {
                joined += taken;
            }
            if (joined.size() == size) {
                result = writeChannel(channel, joined.data(), static_cast<int>(size));
                joined.clear();
            }
        }
    }
    return result == SUCCESS ? writeChannel(channel, joined.data(), static_cast<int>(joined.size())) : result;
}

int closeChannel(const ChannelHandle& channel) {
    if (channel) {
        channel->close();
    } else {
        const Handle none;
        // Not asked: the value that means no handle is to some calls the process itself.
        logClose(none, none, false, ERROR_INVALID_HANDLE);
    }
    return SUCCESS;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
