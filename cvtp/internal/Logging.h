#pragma once

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <string>

/// The log and the communication trace of the whole process.
///
/// The gates (isError and so on) are one atomic load, so a caller asks before it composes a message. A writer tests
/// its gate itself, then takes a lock of its own while it writes, so that lines of several threads never mix.
namespace Corvane {
namespace Internal {
namespace Cvtp {

/// Stores the two streams (not owned, either may be null) and the two levels. Without `commFile` there is no trace,
/// whatever `commLevel` is. When this returns, no thread writes to the streams of before any more.
///
/// @param logLevel 0 off, 1 ERROR, 2 WARN, 3 INFO, 4 DEBUG; any other value is off.
/// @param commLevel 0 off, 1 input, 2 output, 3 both; any other value is off.
void setLogging(std::FILE* logFile, int logLevel, std::FILE* commFile, int commLevel);

/// The correlation id of the calling thread, which each later log line and trace prefix of that thread carries.
void setCorrelationId(const std::string& id);

/// What the gates look at, which each message asks several times.
struct LoggingLevels {
    static constexpr int ERROR_LEVEL = 1;
    static constexpr int WARN_LEVEL = 2;
    static constexpr int INFO_LEVEL = 3;
    static constexpr int DEBUG_LEVEL = 4;

    static constexpr int INPUT = 1;
    static constexpr int OUTPUT = 2;
    static constexpr int BOTH = 3;

    bool isOn(int level) const { return log.load(std::memory_order_relaxed) >= level; }
    bool isTraced(int direction) const {
        const int level = trace.load(std::memory_order_relaxed);
        return level == direction || level == BOTH;
    }

    std::atomic<int> log{0};
    std::atomic<int> trace{0};
};

extern LoggingLevels loggingLevels;

inline bool isError() {
    return loggingLevels.isOn(LoggingLevels::ERROR_LEVEL);
}

inline bool isWarn() {
    return loggingLevels.isOn(LoggingLevels::WARN_LEVEL);
}

inline bool isInfo() {
    return loggingLevels.isOn(LoggingLevels::INFO_LEVEL);
}

inline bool isDebug() {
    return loggingLevels.isOn(LoggingLevels::DEBUG_LEVEL);
}

inline bool isInputTraced() {
    return loggingLevels.isTraced(LoggingLevels::INPUT);
}

inline bool isOutputTraced() {
    return loggingLevels.isTraced(LoggingLevels::OUTPUT);
}

void logError(const std::string& message);
void logWarn(const std::string& message);
void logInfo(const std::string& message);
void logDebug(const std::string& message);

/// Write bytes that came from a pipe (input) or go to one (output), as they are and without a terminator, each time
/// after a line with time, direction and correlation id when `prefix` asks for it.
void traceInput(const std::string& text, bool prefix);
void traceInput(const char* data, std::size_t length, bool prefix);
void traceOutput(const std::string& text, bool prefix);
void traceOutput(const char* data, std::size_t length, bool prefix);

/// How log and trace show the milliseconds of a time, 0 to 999: a point and three characters, of which the first
/// are blanks, not zeros, on purpose.
std::string millisecondText(int milliseconds);

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
