#pragma once

#include <functional>
#include <stdexcept>
#include <string>

namespace Corvane {
namespace Tools {

/// What the program ends with. Scripts rely on these numbers.
enum ExitCode {
    EXIT_OK = 0,
    /// The exchange worked, but the answer's status is not 2xx.
    EXIT_OTHER_STATUS = 1,
    /// The command line makes no sense, or a file that it names cannot be used.
    EXIT_USAGE = 2,
    /// The exchange did not work.
    EXIT_TRANSPORT = 3
};

/// Something is wrong with what the user gave.
class UsageError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/// Writes one line, "cvtp: " and the text, to standard error.
void complain(const std::string& text);

/// Runs a command that uses the pipe of the given name, and tells of what it throws in one line on standard error.
///
/// @return what the command returned, or the exit code that stands for the exception.
int runWithPipe(const std::string& pipeName, const std::function<int()>& command);

}  // namespace Tools
}  // namespace Corvane
