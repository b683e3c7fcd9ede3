#pragma once

#include <memory>
#include <string>

#include "tests/support_code/StartedProcess.h"

namespace Corvane {
namespace Testing {

/// A process that a test starts and talks to, line by line. It is killed when this is destroyed, or when it has
/// lived for longer than any test may take: hear() then gives "end".
class ChildProcess {
 public:
    /// What finish() and wait() give for a process that kill() has ended.
    static constexpr int KILLED = StartedProcess::KILLED;

    ChildProcess(const std::string& program, const std::string& argument)
        : process(StartedProcess::start({program, argument})) {}

    void tell(const std::string& line) { process->write(line + "\n"); }

    /// The next line that it tells, or "end" when it tells no more.
    std::string hear() {
        std::string::size_type end = held.find('\n');
        while (end == std::string::npos) {
            if (!process->readMore(held)) {
                return "end";
            }
            end = held.find('\n');
        }
        std::string line = held.substr(0, end);
        held.erase(0, end + 1);
        // Some systems end the lines of texts with CR and LF.
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        return line;
    }

    void kill() { process->kill(); }

    /// Ends its standard input and waits until it has ended.
    ///
    /// @return its exit status, or KILLED, or something else below zero if it has ended in another way.
    int finish() {
        process->endInput();
        return wait();
    }

    /// Waits until it has ended, and gives the same.
    int wait() { return process->wait(); }

 private:
    std::unique_ptr<StartedProcess> process;
    std::string held;
};

}  // namespace Testing
}  // namespace Corvane
