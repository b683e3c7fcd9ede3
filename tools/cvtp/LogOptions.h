#pragma once

#include <cstdio>
#include <functional>
#include <memory>
#include <string>

namespace CLI {
class App;
}

namespace Corvane {
namespace Tools {

/// The options of the log and of the communication trace, which all commands have.
struct LogOptions {
    std::string logFile;
    std::string logLevel;
    std::string traceFile;

    void addTo(CLI::App& command);
};

/// Switches log and trace of the library on, and off again when it is destroyed.
class LogFiles {
 public:
    /// @throws UsageError a file cannot be opened for writing.
    explicit LogFiles(const LogOptions& options);
    ~LogFiles();
    LogFiles(const LogFiles&) = delete;
    LogFiles& operator=(const LogFiles&) = delete;

 private:
    /// Standard error is not closed with its pointer, other files are.
    using File = std::unique_ptr<std::FILE, std::function<void(std::FILE*)>>;

    static File open(const std::string& name);

    File log;
    File trace;
};

}  // namespace Tools
}  // namespace Corvane
