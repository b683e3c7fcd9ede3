#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

#include "io/platform/PipePlatform.h"
#include "io/platform/windows/OverlappedOperation.h"
#include "io/platform/windows/PipeEnd.h"

namespace Corvane {
namespace Io {
namespace Platform {

/// An instance of a pipe that no client has yet, and the wait for one, which may be pending.
class PipeInstance {
 public:
    PipeInstance() = default;
    /// Ends the wait if it is pending, waits until the system has let go of it, and closes what is open.
    ~PipeInstance() { connecting.settle(end.pipe.get()); }
    PipeInstance(const PipeInstance&) = delete;
    PipeInstance& operator=(const PipeInstance&) = delete;

    PipeEnd end;
    OverlappedOperation connecting;
};

/// A listening pipe: the instance that waits for the next client. An accepted client takes the instance with it,
/// and another one comes in its place.
///
/// One thread accepts; close() may come from any. Whoever works with an instance holds it by a pointer of its own,
/// so that the last one out closes the handle; a listener that was closed holds none, and so gives its name back
/// although copies of the server's pipe may still refer to it.
class PipeListener {
 public:
    explicit PipeListener(std::shared_ptr<PipeInstance> instance);
    PipeListener(const PipeListener&) = delete;
    PipeListener& operator=(const PipeListener&) = delete;

    /// Puts a fresh instance in the place of the one that a client has taken, or that has failed. Drops it when the
    /// listener was closed.
    void replace(std::shared_ptr<PipeInstance> fresh);

    /// See awaitClient().
    int accept(int timeoutMs, ChannelHandle& channel);

    /// See closeListener().
    void close();

    bool isClosed();

 private:
    std::shared_ptr<PipeInstance> getInstance();
    int connect(PipeInstance& instance, int timeoutMs);
    int awaitConnect(PipeInstance& instance, int timeoutMs);
    int acceptFailed(DWORD error);
    bool handOver(const std::shared_ptr<PipeInstance>& instance, ChannelHandle& channel);
    void pause();

    /// Guarded by mutex, as is closed. Null while a client has taken it and the next one has not come.
    std::shared_ptr<PipeInstance> current;
    bool closed = false;
    std::mutex mutex;
    std::condition_variable closing;
};

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
