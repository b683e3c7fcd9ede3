#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace Corvane {
namespace Testing {

/// A process that a test has started, with its standard input and output. It is killed when this is destroyed, or
/// when it has lived for longer than any test may take: reading from it then comes to an end.
///
/// One thread uses it.
class StartedProcess {
 public:
    /// What wait() gives for a process that kill() has ended.
    static constexpr int KILLED = -9;

    static constexpr std::chrono::seconds LIMIT{120};

    /// Starts the program that is first in `command`, with the others as its arguments.
    ///
    /// @param errorFile where its standard error goes; if empty, to that of the test.
    /// @throws std::runtime_error when it does not start.
    static std::unique_ptr<StartedProcess> start(const std::vector<std::string>& command,
                                                 const std::string& errorFile = std::string());

    virtual ~StartedProcess() = default;

    /// Writes to its standard input. Does nothing when it is gone.
    virtual void write(const std::string& text) = 0;

    virtual void endInput() = 0;

    /// Waits for more of its standard output and adds it to `text`.
    ///
    /// @return false when nothing comes any more.
    virtual bool readMore(std::string& text) = 0;

    virtual void kill() = 0;

    /// Waits until it has ended.
    ///
    /// @return its exit status, or KILLED, or something else below zero if it has ended in another way.
    virtual int wait() = 0;

    /// Its number in the system.
    virtual unsigned long id() const = 0;

 protected:
    StartedProcess() = default;
    StartedProcess(const StartedProcess&) = delete;
    StartedProcess& operator=(const StartedProcess&) = delete;
};

}  // namespace Testing
}  // namespace Corvane
