#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the transport needs of the operating system. Each platform folder implements all of it.
///
/// Every function returns a small code and logs what operators need to know; CvPipe and ServerCvPipe alone turn
/// codes into exceptions. A `path` is always the prefix `\\.\pipe\` and the name; only the platform folder knows
/// what that means there.
///
/// What each platform keeps:
/// - Nothing of the caller's is touched after a call has returned. A read that timed out may stay pending, but in
///   memory of the channel, and the next read takes it up; a write that timed out is settled before it returns.
/// - closeChannel() and closeListener() may come from any thread at any moment, also just before a call is issued:
///   a call that is blocked, or that comes later, returns ABORTED (or the result that was already there).
/// - A handle or descriptor goes back to the system when the last call that uses it has returned.
/// - Timeouts run on a monotonic clock; signals neither shorten nor lengthen them. 0 and below mean forever.
namespace Corvane {
namespace Io {
namespace Platform {

/// An open end of a pipe: handle or descriptor, and what the system works on while an operation is pending.
/// Shared by the pipe and by each call under way. Destroyed, it gives everything back.
class PipeChannel;
using ChannelHandle = std::shared_ptr<PipeChannel>;

/// The instance of a listening pipe that waits for the next client.
class PipeListener;
using ListenerHandle = std::shared_ptr<PipeListener>;

/// Result codes; success is 0. The numbers are part of the interface between the layers, nothing else.
enum Result : int {
    SUCCESS = 0,
    // openChannel
    OPEN_TIMED_OUT = 1,
    OPEN_FAILED = 3,
    OPEN_DENIED = 11,
    // readChannel; zero is the end of data, above zero a count of bytes
    READ_TIMED_OUT = -2,
    READ_FAILED = -3,
    ABORTED = -4,
    // writeChannel
    WRITE_FAILED = 4,
    WRITE_TIMED_OUT = 5,
    WRITE_BROKEN = 10,
    // awaitClient
    ACCEPT_TIMED_OUT = 1,
    ACCEPT_WAIT_FAILED = 2,
    ACCEPT_FAILED = 3
};

/// What a path begins with; the name of the pipe follows. The same on every platform.
constexpr const char* PIPE_PREFIX = "\\\\.\\pipe\\";

/// A write waits so long for the other end to take its bytes, whatever the pipe's timeouts are. Milliseconds.
constexpr int WRITE_TIMEOUT_MS = 10000;

/// Opens the pipe as a client. While no instance is free it waits for one, at most `timeoutMs`.
///
/// @return SUCCESS, OPEN_TIMED_OUT, OPEN_FAILED, OPEN_DENIED, or another code of the system. `channel` may be set
///         after a failure, too; closeChannel() releases it.
int openChannel(const std::string& path, bool readable, bool writable, int timeoutMs, ChannelHandle& channel);

/// Memory of the process that holds nothing while a connection waits for its other end: whole pages, nobody else's.
/// Where the system allows it they are given back to it when the wait gets long, and are there again, full of
/// zeros, when they are next used.
struct IdleMemory {
    char* data = nullptr;
    std::size_t length = 0;
};

/// Reads what is there, at least one byte and at most `length`; waits for it at most `timeoutMs`. `buffer` may be
/// part of `idle`.
///
/// @return the count; 0 at the end of data; READ_TIMED_OUT, READ_FAILED or ABORTED. A null channel is READ_FAILED.
int readChannel(const ChannelHandle& channel, char* buffer, int length, int timeoutMs, const IdleMemory& idle = {});

/// Memory that waits for bytes.
struct Room {
    char* data;
    int length;
};

/// The most places that one read fills.
constexpr int MOST_ROOMS = 16;

/// The same into several places, at least one and at most MOST_ROOMS: what has no room in the first one goes into
/// the next one, and so on.
///
/// @return as the other; the count is that of all together.
int readChannel(const ChannelHandle& channel, const Room* begin, const Room* end, int timeoutMs);

/// Writes all of it.
///
/// @return SUCCESS, WRITE_FAILED, WRITE_TIMED_OUT, WRITE_BROKEN or ABORTED. A null channel is WRITE_FAILED.
int writeChannel(const ChannelHandle& channel, const char* buffer, int length);

/// Bytes of somebody else's.
using Block = std::string_view;

/// Writes blocks, one behind the other, in as few calls of the system as it can. The other end has the time of a
/// write for each `piece` bytes; where the system does not show how far a write has come, for a few pieces.
///
/// @param blocks are used up as they are written.
/// @return as writeChannel().
int writeBlocks(const ChannelHandle& channel, std::vector<Block>& blocks, std::size_t piece);

/// Ends the operations that are pending and all later ones. A null channel is only logged.
int closeChannel(const ChannelHandle& channel);

/// Makes an instance of the pipe wait for a client. The first one needs the name to be free and keeps it from
/// others until the listener is closed; a later one replaces the instance that `listener` holds.
///
/// @return SUCCESS or the code of the system.
int createInstance(const std::string& path, bool readable, bool writable, bool firstInstance,
                   ListenerHandle& listener);

/// Waits for a client of the waiting instance, also one that came before the call.
///
/// @return SUCCESS with the connection in `channel`, ACCEPT_TIMED_OUT (the instance goes on waiting),
///         ACCEPT_WAIT_FAILED, ACCEPT_FAILED or ABORTED.
int awaitClient(const ListenerHandle& listener, int timeoutMs, ChannelHandle& channel);

/// Ends a wait that is under way, and gives the name back. A null listener is only logged.
int closeListener(const ListenerHandle& listener);

/// What an environment variable holds; nothing when it is not set. On Linux a program that runs with more rights
/// than its caller, as one with the set-user-ID bit does, does not listen to the caller's environment: nothing is
/// set there.
std::optional<std::string> environmentVariable(const char* name);

/// Milliseconds since 1970, for those who ask often and need not know exactly: between two ticks of the system,
/// which are 1 to 16 ms apart, the time stands still.
std::int64_t coarseTime();

/// From now on nobody has `lock` while the process forks, but the thread that does: the child, in which there is no
/// other thread to give it back, finds it free and what it guards whole. For a lock that is as old as the process
/// gets, and that nobody holds for long or while he forks.
void holdWhileForking(std::mutex& lock);

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
