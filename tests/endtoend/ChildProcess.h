#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace Corvane {
namespace Testing {

/// A process that a test starts and talks to, line by line. It is killed when this is destroyed, or when it has
/// lived for longer than any test may take: reading from it then comes to an end.
class ChildProcess {
 public:
    ChildProcess(const std::string& program, const std::string& argument);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void tell(const std::string& line);

    /// The next line that it tells, or "end" when it tells no more.
    std::string hear();

    void kill();

    /// Ends its standard input and waits until it has ended.
    ///
    /// @return its exit status, or the number of the signal that ended it, negative.
    int finish();

    /// Waits until it has ended, and gives the same.
    int wait();

 private:
    void endInput();
    void watch();
    void signal(int number);

    static constexpr std::chrono::seconds LIMIT{120};

    int input = -1;
    int output = -1;
    std::string held;

    /// Guards process, which is 0 once the process was waited for.
    std::mutex lock;
    std::condition_variable over;
    pid_t process = 0;
    std::thread watchdog;
};

}  // namespace Testing
}  // namespace Corvane
