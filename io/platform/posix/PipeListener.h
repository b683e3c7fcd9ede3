#pragma once

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "io/platform/PipePlatform.h"
#include "io/platform/posix/FileDescriptor.h"
#include "io/platform/posix/NameClaim.h"

namespace Corvane {
namespace Io {
namespace Platform {

class PipeSecurity;

/// A listening socket and the name it goes by. Its queue takes one client: that is the instance that waits. An
/// accepted client leaves the queue, which is then free for the next, so one socket serves as every instance.
///
/// One thread accepts; close() may come from any. As with PipeChannel, the destructor alone closes the descriptors.
class PipeListener {
 public:
    explicit PipeListener(const PipeAddress& address);
    ~PipeListener();
    PipeListener(const PipeListener&) = delete;
    PipeListener& operator=(const PipeListener&) = delete;

    /// Takes the name and listens. Once, before anything else.
    ///
    /// @return 0 or the code of the system; a listener that failed is good for nothing but destruction.
    int open(bool readable, bool writable);

    /// See awaitClient().
    int accept(int timeoutMs, ChannelHandle& channel);

    /// See closeListener().
    void close();

    int getDescriptor() const { return socket.get(); }

 private:
    int bindSocket();
    int bindWith(PipeSecurity& security);
    int bindWithDefaultAccess();
    int bindFile();
    int prepareToWait(int timeoutMs);
    int tryAccept(ChannelHandle& channel);
    int acceptWaiting(int timeoutMs, ChannelHandle& channel);
    int acceptFailed(int error);
    void pause();
    bool isClosed();
    void dismissClients();

    FileDescriptor socket;
    /// Below the socket, and so destroyed before it: the files go while the descriptors are open.
    NameClaim claim;
    bool readable = false;
    bool writable = false;
    std::atomic<bool> blocking{true};
    /// Guarded by mutex, and so is the claim once the listener is open.
    bool closed = false;
    std::mutex mutex;
    std::condition_variable closing;
};

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
