#include "tools/cvtp/platform/StopSignal.h"

#include <pthread.h>
#include <signal.h>

#include <utility>

namespace Corvane {
namespace Tools {

namespace {

sigset_t stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

void mask(int how) {
    const sigset_t signals = stopSignals();
    pthread_sigmask(how, &signals, nullptr);
}

}  // namespace

StopSignal::StopSignal() {
    mask(SIG_BLOCK);
}

StopSignal::~StopSignal() {
    if (waiter.joinable()) {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            ending = true;
            if (!answered) {
                // Wakes the thread; one that took a signal just now never unblocks this one and ends with it
                // pending.
                pthread_kill(waiter.native_handle(), SIGINT);
            }
        }
        changed.notify_all();
        waiter.join();
    }
    mask(SIG_UNBLOCK);
}

void StopSignal::whenAsked(std::function<void()> action) {
    waiter = std::thread([this, wanted = std::move(action)] { wait(wanted); });
}

void StopSignal::wait(const std::function<void()>& action) {
    const sigset_t signals = stopSignals();
    int signal = 0;
    sigwait(&signals, &signal);
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (ending) {
            return;
        }
        answered = true;
    }
    // This thread alone lets a second signal through, for a program that hangs while it stops.
    mask(SIG_UNBLOCK);
    action();
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [this] { return ending; });
}

}  // namespace Tools
}  // namespace Corvane
