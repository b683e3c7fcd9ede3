#pragma once

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <functional>
#include <set>
#include <string>
#include <thread>

#include "tests/io/PipeTest.h"

namespace Corvane {
namespace Testing {

/// The descriptors of the process.
inline std::set<int> openDescriptors() {
    std::set<int> result;
    for (int i = 0; i < 1024; ++i) {
        if (::fcntl(i, F_GETFD) >= 0) {
            result.insert(i);
        }
    }
    return result;
}

/// Sends signals to a thread, one after the other, until it is destroyed. The handler does nothing, and system
/// calls that are interrupted are not restarted.
class SignalStorm {
 public:
    explicit SignalStorm(pthread_t target) {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        ::sigaction(SIGUSR1, &action, &before);
        sender = std::thread([this, target] {
            while (!stopped.load()) {
                ::pthread_kill(target, SIGUSR1);
                ++sent;
                std::this_thread::sleep_for(std::chrono::microseconds(500));
            }
        });
    }
    ~SignalStorm() {
        stopped = true;
        sender.join();
        ::sigaction(SIGUSR1, &before, nullptr);
    }
    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;

    int getSent() const { return sent.load(); }

 private:
    struct sigaction before {};
    std::atomic<bool> stopped{false};
    std::atomic<int> sent{0};
    std::thread sender;
};

/// A forked process that runs an action and ends without any cleaning up. The action returns the exit code.
class ChildProcess {
 public:
    explicit ChildProcess(const std::function<int()>& action) : id(::fork()) {
        if (id == 0) {
            ::_exit(action());
        }
    }
    ~ChildProcess() {
        if (id > 0) {
            kill();
        }
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void kill() {
        ::kill(id, SIGKILL);
        wait();
    }

    /// Waits for its end and gives the exit code; -1 when it was killed.
    int wait() {
        int status = 0;
        while (::waitpid(id, &status, 0) < 0 && errno == EINTR) {
        }
        id = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

 private:
    pid_t id;
};

/// One process tells another that it has got somewhere. Made before the fork.
class Gate {
 public:
    Gate() { EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0); }
    ~Gate() {
        ::close(ends[0]);
        ::close(ends[1]);
    }
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;

    void open(int times = 1) {
        const std::string bytes(static_cast<std::size_t>(times), 'x');
        EXPECT_EQ(::write(ends[1], bytes.data(), bytes.size()), times);
    }
    void pass() {
        char c = ' ';
        while (::read(ends[0], &c, 1) < 0 && errno == EINTR) {
        }
    }

 private:
    std::array<int, 2> ends{};
};

constexpr unsigned NOBODY = 65534;

}  // namespace Testing
}  // namespace Corvane
