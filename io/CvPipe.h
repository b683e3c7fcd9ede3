#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "io/PipeBufferBase.h"
#include "support/Export.h"

namespace Corvane {
namespace Io {

namespace Platform {
class PipeChannel;
struct Room;
}  // namespace Platform

class CvPipe;
class ServerCvPipe;

namespace PipeStreams {
std::istream* inputOf(CvPipe& pipe);
std::ostream* outputOf(CvPipe& pipe);
void setIdleMemory(CvPipe& pipe, char* memory, std::size_t length);
}  // namespace PipeStreams

/// One end of a connected pipe. A client opens it by name; a server gets it from ServerCvPipe::accept().
///
/// States: unbound, bound (name and direction are fixed, once), open, closed. A closed pipe stays bound and may be
/// opened again with connect().
///
/// A pipe is used by one thread at a time, but for close(), which any thread may call to end a blocked read or
/// write. It belongs to the process that opened it: a child that was forked may destroy its copy and do nothing
/// else with it. All timeouts are in milliseconds; 0 (and below) waits forever.
class CVTP_EXPORT CvPipe {
 public:
    /// Unbound; waits 10 seconds for a server when it connects, and without limit when it reads.
    CvPipe();

    /// Bound and connected; see connect(). Unlike the default constructor, on purpose, it sets both timeouts to 0:
    /// it waits for a free instance of the server without limit.
    CvPipe(const std::string& name, bool readable, bool writable);

    /// Closes the pipe. No other thread may be inside a call of it. Streams that were handed out are not destroyed
    /// with it, on purpose, and must not be used any more.
    ~CvPipe();

    CvPipe(const CvPipe&) = delete;
    CvPipe& operator=(const CvPipe&) = delete;

    /// Sets name (1 to 256 bytes, without prefix and without a backslash; ASCII letters compare without regard to
    /// case) and direction. Opens nothing.
    ///
    /// @throws IllegalArgumentException neither readable nor writable.
    /// @throws IllegalStateException already bound.
    void bind(const std::string& name, bool readable, bool writable);

    bool isBound();

    /// Opens the pipe; while the server has no free instance, waits for one for as long as the connect timeout
    /// says, anew with each attempt.
    ///
    /// @throws IllegalStateException not bound.
    /// @throws ConnectException no such pipe, or access is denied.
    /// @throws TimeoutException no instance came free in time.
    /// @throws CvPipeException another failure of the system.
    void connect();

    /// bind(), then connect().
    void connect(const std::string& name, bool readable, bool writable);

    /// Closes the pipe. A read or write that is blocked in another thread ends with InterruptedException, at once,
    /// and so does every later one, until the pipe is connected again. A connect() under way goes on. Safe on a
    /// pipe that was never opened, and safe to call twice. Never blocks.
    void close();

    /// The stream that reads from the pipe; the same one with each call. It has badbit in its exception mask, so
    /// what readPipe() throws passes through. Owned by the library, valid as long as the pipe.
    ///
    /// @throws IllegalStateException not bound, or bound without read access.
    std::istream* getInputStream();

    /// The stream that writes to the pipe; otherwise as getInputStream().
    ///
    /// @throws IllegalStateException not bound, or bound without write access.
    std::ostream* getOutputStream();

    void setReadTimeout(int ms);
    int getReadTimeout();
    void setConnectTimeout(int ms);
    int getConnectTimeout();

    /// Reads at most `length` bytes into `buffer + offset`; blocks until one is there, at most `timeoutMs`. A read
    /// that timed out may be repeated; no byte is lost by it.
    ///
    /// @return the number of bytes, at least 1, or -1 at the end of data.
    /// @throws TimeoutException nothing came in time.
    /// @throws InterruptedException the pipe was closed.
    /// @throws CvPipeException another failure of the system.
    int readPipe(char* buffer, int offset, int length, int timeoutMs);

    /// Writes all `length` bytes from `buffer + offset`; blocks until they are taken, at most 10 seconds, whatever
    /// the timeouts of the pipe are.
    ///
    /// @throws BrokenPipeException the other end has closed the pipe.
    /// @throws TimeoutException the other end did not take them in time; how many it took is not known.
    /// @throws InterruptedException the pipe was closed.
    /// @throws CvPipeException another failure of the system.
    void writePipe(const char* buffer, int offset, int length);

 private:
    friend class ServerCvPipe;
    friend class PipeBufferBase<char>;
    friend std::istream* PipeStreams::inputOf(CvPipe& pipe);
    friend std::ostream* PipeStreams::outputOf(CvPipe& pipe);
    friend void PipeStreams::setIdleMemory(CvPipe& pipe, char* memory, std::size_t length);

    /// A read or write under way.
    class Call;

    void connectPipe(const std::string& path, const std::string& name, bool readable, bool writable, int timeoutMs);
    void forgetFormerConnection();
    void closePipe();
    /// Takes over the connected instance of a server.
    void takeOver(const std::string& path, bool readable, bool writable,
                  std::shared_ptr<Platform::PipeChannel> channel);
    /// Makes `channel` the open end.
    void setChannel(std::shared_ptr<Platform::PipeChannel> channel);
    void letGo() noexcept;
    /// Writes all blocks as if `piece` bytes at a time were given to writePipe(). Uses up the list.
    void writeBlocks(std::vector<std::string_view>& blocks, std::size_t piece);
    /// readPipe() with the pipe's timeout, into several places, one after another: at least one and at most
    /// Platform::MOST_ROOMS.
    int readBlocks(const Platform::Room* begin, const Platform::Room* end);
    /// Takes the last `length` bytes that were read back, to be read again before all others: as if they had not
    /// come yet. When `memory` is used up it is freed.
    void unread(std::unique_ptr<char[]> memory, std::size_t length);
    /// Bytes of those only.
    ///
    /// @return how many; 0 when none is left.
    int readAgain(const Platform::Room* begin, const Platform::Room* end);
    void forgetUnread();
    static int countOrThrow(int result);
    int writeAborted() const;
    static void throwUnlessWritten(int result);

    bool readable = false;
    bool writable = false;
    std::istream* inputStream = nullptr;
    std::ostream* outputStream = nullptr;
    /// Whether an application had one of them.
    bool streamsLent = false;
    /// See PipeStreams::setIdleMemory().
    char* idleMemory = nullptr;
    std::size_t idleLength = 0;
    PipeBufferBase<char> inputBuffer;
    PipeBufferBase<char> outputBuffer;
    std::int32_t connectTimeout;
    std::int32_t readTimeout;
    /// See unread(): what stands there from begin to end is to be read again; what stands before was, already.
    std::unique_ptr<char[]> unreadMemory;
    std::size_t unreadBegin = 0;
    std::size_t unreadEnd = 0;
    std::string name;
    std::string path;
    /// The open end (handle and event), null while not open. Changed with handleLock, and after close() only while
    /// no call is under way: a call looks at it without the lock.
    std::shared_ptr<Platform::PipeChannel> handle;
    /// Held no longer than it takes to copy or swap the pointer.
    std::mutex handleLock;
    /// The number of calls under way, times ONE_CALL, and CLOSED after close(). One word, so that a call and a
    /// close() that meet agree on which came first: a call that comes later ends as a blocked one does, and the
    /// last call under way lets the open end go.
    std::atomic<std::uint32_t> calls{0};

    static constexpr std::uint32_t CLOSED = 1;
    static constexpr std::uint32_t ONE_CALL = 2;
};

}  // namespace Io
}  // namespace Corvane
