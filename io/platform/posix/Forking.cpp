#include <pthread.h>

#include <vector>

#include "io/platform/PipePlatform.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

struct HeldLocks {
    /// Guards all.
    std::mutex lock;
    std::vector<std::mutex*> all;
};

/// Never destroyed: a process may fork while it ends.
HeldLocks& heldLocks() {
    static HeldLocks* const instance = new HeldLocks;
    return *instance;
}

void holdAll() {
    heldLocks().lock.lock();
    for (std::mutex* const lock : heldLocks().all) {
        lock->lock();
    }
}

/// In the parent and in the child, whose one thread is a copy of the one that has locked them.
void releaseAll() {
    for (std::mutex* const lock : heldLocks().all) {
        lock->unlock();
    }
    heldLocks().lock.unlock();
}

}  // namespace

void holdWhileForking(std::mutex& lock) {
    static const int registered = ::pthread_atfork(&holdAll, &releaseAll, &releaseAll);
    static_cast<void>(registered);
    const std::lock_guard<std::mutex> guard(heldLocks().lock);
    heldLocks().all.push_back(&lock);
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
