#include "cvtp/internal/FaultGuard.h"

#include <pthread.h>
#include <setjmp.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <mutex>
#include <new>

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

const std::array<int, 4> FAULT_SIGNALS = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};

/// Guarded work under way in a thread: where to go on after it was abandoned.
struct Frame {
    FaultGuard::Filter filter;
    sigjmp_buf resume;
};

/// Read by the signal handler of the same thread only. Kept where no first access has to allocate memory, since
/// that access may be the handler's.
__attribute__((tls_model("initial-exec"))) thread_local Frame* volatile currentFrame = nullptr;

/// Makes a frame the current one for the length of a block, however it is left.
class CurrentFrame {
 public:
    explicit CurrentFrame(Frame& frame) { currentFrame = &frame; }
    ~CurrentFrame() { currentFrame = nullptr; }
    CurrentFrame(const CurrentFrame&) = delete;
    CurrentFrame& operator=(const CurrentFrame&) = delete;
};

std::mutex filterLock;
/// Guarded by filterLock, as is signalTaken.
FaultGuard::Filter processFilter;
/// Whether faults come to the guard, at once or passed on by somebody, in the order of FAULT_SIGNALS.
std::array<bool, FAULT_SIGNALS.size()> signalTaken = {};
/// Where faults went before, in the same order. Written before a handler is installed that reads it.
std::array<struct sigaction, FAULT_SIGNALS.size()> previousActions;

/// A fault of the thread itself, or a signal that was sent to this very thread from within the process, as raise()
/// does; not one that was sent to the process, which could hit any thread.
bool isOwnFault(const siginfo_t& info) {
    return info.si_code > 0 || (info.si_code == SI_TKILL && info.si_pid == getpid());
}

/// Lets the signal have the effect that it had without a guard.
void passOn(int signal, siginfo_t* info, void* context) {
    const auto place = std::find(FAULT_SIGNALS.begin(), FAULT_SIGNALS.end(), signal);
    const struct sigaction& before = previousActions[static_cast<std::size_t>(place - FAULT_SIGNALS.begin())];
    if ((before.sa_flags & SA_SIGINFO) != 0) {
        before.sa_sigaction(signal, info, context);
    } else if (before.sa_handler == SIG_IGN && info->si_code <= 0) {
        // Sent, and ignored as before. A fault cannot be ignored and ends the process below.
        return;
    } else if (before.sa_handler == SIG_DFL || before.sa_handler == SIG_IGN) {
        // Returning repeats the fault, which then meets the action of before; a signal that was sent is sent again.
        sigaction(signal, &before, nullptr);
        if (info->si_code <= 0) {
            pthread_kill(pthread_self(), signal);
        }
    } else {
        before.sa_handler(signal);
    }
}

void answerFault(int signal, siginfo_t* info, void* context) {
    Frame* const frame = currentFrame;
    if (frame == nullptr || !isOwnFault(*info)) {
        passOn(signal, info, context);
        return;
    }
    // A fault of the filter itself must not come back to it.
    currentFrame = nullptr;
    const int answer = frame->filter.invoke(frame->filter.function, static_cast<unsigned int>(signal), info);
    if (answer > FaultGuard::PASS_ON) {
        siglongjmp(frame->resume, 1);
    }
    currentFrame = frame;
    if (answer == FaultGuard::PASS_ON) {
        passOn(signal, info, context);
    }
}

void onFault(int signal, siginfo_t* info, void* context) {
    // The code that the signal interrupted may go on, and must find its error number.
    const int errorNumber = errno;
    answerFault(signal, info, context);
    errno = errorNumber;
}

void takeSignals() {
    struct sigaction action = {};
    action.sa_sigaction = onFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < FAULT_SIGNALS.size(); ++i) {
        if (signalTaken[i]) {
            continue;
        }
        sigaction(FAULT_SIGNALS[i], nullptr, &previousActions[i]);
        sigaction(FAULT_SIGNALS[i], &action, nullptr);
        signalTaken[i] = true;
    }
}

void giveSignalsBack() {
    for (std::size_t i = 0; i < FAULT_SIGNALS.size(); ++i) {
        struct sigaction current = {};
        sigaction(FAULT_SIGNALS[i], nullptr, &current);
        // Somebody who has taken the signal since may still pass faults on to the guard; then it stays. Taking the
        // signal once more would make the two pass a fault to each other for ever.
        if ((current.sa_flags & SA_SIGINFO) != 0 && current.sa_sigaction == onFault) {
            sigaction(FAULT_SIGNALS[i], &previousActions[i], nullptr);
            signalTaken[i] = false;
        }
    }
}

/// A stack for the signal handler, so that a handler of requests that used up its own can be abandoned too. Without
/// memory for it there is none: the work is guarded against all other faults.
class AlternateStack {
 public:
    AlternateStack() {
        sigaltstack(nullptr, &before);
        if ((before.ss_flags & SS_DISABLE) == 0) {
            return;
        }
        memory.reset(new (std::nothrow) char[SIZE]);
        if (memory == nullptr) {
            return;
        }
        stack_t stack = {};
        stack.ss_sp = memory.get();
        stack.ss_size = SIZE;
        sigaltstack(&stack, nullptr);
    }
    ~AlternateStack() {
        if (memory != nullptr) {
            sigaltstack(&before, nullptr);
        }
    }
    AlternateStack(const AlternateStack&) = delete;
    AlternateStack& operator=(const AlternateStack&) = delete;

 private:
    static constexpr std::size_t SIZE = 64 * 1024;

    std::unique_ptr<char[]> memory;
    stack_t before = {};
};

}  // namespace

void FaultGuard::setFilter(const Filter& filter) {
    const std::lock_guard<std::mutex> lock(filterLock);
    processFilter = filter;
    if (filter) {
        takeSignals();
    } else {
        giveSignalsBack();
    }
}

FaultGuard::Filter FaultGuard::getFilter() {
    const std::lock_guard<std::mutex> lock(filterLock);
    return processFilter;
}

bool FaultGuard::run(const Filter& filter, const std::function<void()>& work) {
    const AlternateStack stack;
    Frame frame;
    frame.filter = filter;
    if (sigsetjmp(frame.resume, 1) != 0) {
        return false;
    }
    const CurrentFrame current(frame);
    work();
    return true;
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
