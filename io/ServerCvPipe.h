#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "support/Export.h"

namespace Corvane {
namespace Io {

namespace Platform {
class PipeListener;
}

class CvPipe;

/// The listening side of a pipe. One instance of it always waits for a client: accept() hands the connected one to
/// a CvPipe and makes the next.
///
/// It belongs to the process that bound it: a child that was forked may destroy its copy and do nothing else with
/// it.
///
/// One thread accepts; close() may come from any thread and ends a blocked accept(). Timeouts are in milliseconds;
/// 0 waits forever.
class CVTP_EXPORT ServerCvPipe {
 public:
    /// Unbound, for reading and writing, with no limit to the wait for a client.
    ServerCvPipe();

    /// The same, bound; see bind().
    ServerCvPipe(const std::string& name, bool readable, bool writable);

    /// A copy names the same waiting instance; closing one closes it for both.
    ServerCvPipe(const ServerCvPipe& other);
    ServerCvPipe& operator=(const ServerCvPipe& other);

    /// Closes the pipe, which gives its name back.
    ~ServerCvPipe();

    /// Takes the name (1 to 256 bytes, without prefix and without a backslash; ASCII letters compare without regard
    /// to case) and makes the first instance, which a client can open from then on. `readable` lets clients write,
    /// `writable` lets them read; a client that asks for more is refused.
    ///
    /// @throws IllegalArgumentException neither readable nor writable.
    /// @throws IllegalStateException already bound.
    /// @throws BindException a server has that name already, or the system refused.
    void bind(const std::string& name, bool readable, bool writable);

    bool isBound();

    /// Waits for a client, also one that came before the call, and connects `pipe` to it.
    ///
    /// @param pipe a pipe that is not bound.
    /// @throws IllegalStateException this pipe is not bound or is closed, or `pipe` is bound.
    /// @throws TimeoutException no client came in time; a later one is there for the next call.
    /// @throws InterruptedException close() was called.
    /// @throws CvPipeException any other failure. Its class is always this one, on purpose; when it says
    ///         "CreateNamedPipe failed", `pipe` is connected all the same.
    void accept(CvPipe& pipe);

    /// Ends a blocked accept() and all later ones, and gives the name back. A second call does nothing. Never
    /// blocks.
    void close();

    bool isClosed();

    void setAcceptTimeout(int ms);
    int getAcceptTimeout();

 private:
    void bindPipe(const std::string& path, bool firstInstance);
    void acceptPipe(const std::string& path, const std::string& name, long reserved, bool readable, bool writable,
                    int timeoutMs, CvPipe& pipe);
    void closePipe();
    void setClosed(bool value);
    /// @return false when the pipe was closed meanwhile, and then the instance is not kept.
    bool keepInstance(std::shared_ptr<Platform::PipeListener> instance);
    std::shared_ptr<Platform::PipeListener> currentInstance() const;

    std::string name;
    bool readable = true;
    bool writable = true;
    /// Passed along with each accept, which does not use it.
    std::int32_t reserved = 0;
    std::int32_t acceptTimeout = 0;
    std::string prefix;
    std::atomic<bool> closed{false};
    /// The waiting instance (handle and event), null when there is none. Guarded by handleLock, which is held for
    /// no longer than it takes to copy the pointer.
    std::shared_ptr<Platform::PipeListener> handle;
    mutable std::mutex handleLock;
};

}  // namespace Io
}  // namespace Corvane
