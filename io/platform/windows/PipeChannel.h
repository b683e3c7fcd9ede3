#pragma once

#include <atomic>
#include <cstddef>
#include <vector>

#include "io/platform/PipePlatform.h"
#include "io/platform/windows/OverlappedOperation.h"
#include "io/platform/windows/PipeEnd.h"

namespace Corvane {
namespace Io {
namespace Platform {

/// A connected end of a pipe. One thread reads and one writes at a time; close() may come from any.
///
/// The handles are closed by the destructor alone, and every call holds the channel by a pointer of its own: a
/// handle that is still in use can never become that of something else. The channel lies on the heap with the
/// records of its operations and with what it reads into, so a read that has timed out may stay pending in it.
class PipeChannel {
 public:
    /// @param end connected; without events, after a failure to create them, all that works is close().
    explicit PipeChannel(PipeEnd end);
    /// Ends a read that is pending and waits until the system has let go of it.
    ~PipeChannel();
    PipeChannel(const PipeChannel&) = delete;
    PipeChannel& operator=(const PipeChannel&) = delete;

    /// See readChannel().
    int read(const Room* rooms, const Room* roomsEnd, int timeoutMs);

    /// See writeChannel().
    int write(const char* buffer, int length);

    /// See closeChannel().
    void close();

 private:
    int beginRead(const Room* rooms, const Room* roomsEnd);
    int awaitRead(int timeoutMs);
    int giveOut(const Room* rooms, const Room* roomsEnd);
    int beginFailed(DWORD error);
    int awaitWrite(DWORD& count);

    const PipeEnd end;
    std::atomic<bool> closed{false};
    OverlappedOperation reading;
    OverlappedOperation writing;
    /// What reads go to, and never the caller's buffer: a read may have to outlive its call. Not resized while one
    /// is pending.
    std::vector<char> readBuffer;
    /// What of the buffer has been read and not been given out. There may be more than a caller takes if it asks
    /// for less than the one did whose read it took up.
    std::size_t keptBegin = 0;
    std::size_t keptEnd = 0;
};

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
