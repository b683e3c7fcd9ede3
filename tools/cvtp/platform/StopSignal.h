#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace Corvane {
namespace Tools {

/// The user's or the system's wish that the program ends: SIGINT or SIGTERM; on Windows Ctrl+C and the other
/// control signals of the console, or the event `cvtp-stop-<process id>`, which any program of the same user may
/// set.
///
/// One object of this class exists at a time. It must be made before the program starts other threads.
class StopSignal {
 public:
    /// From here on the signals are held back.
    StopSignal();

    /// Ends the wait; the action is not called any more, or has returned.
    ~StopSignal();

    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    /// Calls `action` once, on a thread of its own, when a signal comes or if one came already. A second signal
    /// ends the program as if this object did not exist. To be called once.
    void whenAsked(std::function<void()> action);

 private:
    void wait(const std::function<void()>& action);

    std::mutex mutex;
    std::condition_variable changed;
    bool answered = false;
    bool ending = false;
    std::thread waiter;
};

}  // namespace Tools
}  // namespace Corvane
