#include "io/platform/posix/CurrentProcess.h"

#include <pthread.h>
#include <unistd.h>

#include <atomic>

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

/// 0 while not known.
std::atomic<pid_t> known{0};

/// A child that was forked has another number than its parent.
void forget() {
    known.store(0, std::memory_order_relaxed);
}

}  // namespace

pid_t currentProcess() {
    static const bool isWatched = ::pthread_atfork(nullptr, nullptr, &forget) == 0;
    pid_t process = known.load(std::memory_order_relaxed);
    if (process == 0 || !isWatched) {
        process = ::getpid();
        known.store(process, std::memory_order_relaxed);
    }
    return process;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
