#include "cvtp/internal/Logging.h"

#include <Poco/DateTime.h>
#include <Poco/DateTimeFormatter.h>
#include <Poco/Timestamp.h>

#include <array>
#include <atomic>
#include <ctime>
#include <map>

#include "cvtp/internal/RecursiveMutex.h"
#include "support/LocalTime.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

const std::array<const char*, 4> LEVEL_NAMES = {"ERROR", "WARN", "INFO", "DEBUG"};
const std::array<const char*, 3> DIRECTION_LABELS = {" [OFF   ]", " [INPUT ]", " [OUTPUT]"};

/// What the writers share.
struct LoggingState {
    std::atomic<std::FILE*> logFile{nullptr};
    std::atomic<std::FILE*> commFile{nullptr};

    /// One lock for each writer. setLogging takes them all, so that no writer is under way when it returns.
    std::array<RecursiveMutex, 4> levelLocks;
    RecursiveMutex inputLock;
    RecursiveMutex outputLock;

    /// Correlation ids by thread id, guarded by idLock.
    std::map<std::uint32_t, std::string> correlationIds;
    RecursiveMutex idLock;
};

/// Created on first use and never destroyed: threads may log while the process ends.
LoggingState& state() {
    static LoggingState* const instance = new LoggingState;
    return *instance;
}

/// Takes a thread's id out of the map when the thread ends: the system gives the number to a later thread, which
/// must not inherit the id.
class CorrelationIdKeeper {
 public:
    CorrelationIdKeeper() = default;
    ~CorrelationIdKeeper() {
        LoggingState& shared = state();
        const RecursiveLock lock(&shared.idLock);
        shared.correlationIds.erase(currentThreadId());
    }
    CorrelationIdKeeper(const CorrelationIdKeeper&) = delete;
    CorrelationIdKeeper& operator=(const CorrelationIdKeeper&) = delete;
};

std::string correlationId() {
    LoggingState& shared = state();
    const RecursiveLock lock(&shared.idLock);
    const auto found = shared.correlationIds.find(currentThreadId());
    return found == shared.correlationIds.end() ? std::string() : found->second;
}

std::string logLine(int level, const std::string& message) {
    const Poco::DateTime now;
    std::string line = LEVEL_NAMES[static_cast<std::size_t>(level) - 1];
    line += " - ";
    line += Poco::DateTimeFormatter::format(now, "%Y/%m/%d-%H:%M:%S");
    line += millisecondText(now.millisecond());
    line += " UTC - Thread-";
    line += std::to_string(currentThreadId());
    line += ": ";
    line += correlationId();
    line += " - ";
    line += message;
    // No blank stands between message and name; deliberate.
    line += "- Corvane.SOA.Cvtp\n";
    return line;
}

void writeLog(int level, const std::string& message) {
    if (!loggingLevels.isOn(level)) {
        return;
    }
    LoggingState& shared = state();
    const RecursiveLock lock(&shared.levelLocks[static_cast<std::size_t>(level) - 1]);
    std::FILE* const file = shared.logFile.load(std::memory_order_relaxed);
    // Asked again: the level may have changed while this thread waited for the lock.
    if (!loggingLevels.isOn(level) || file == nullptr) {
        return;
    }
    const std::string line = logLine(level, message);
    std::fwrite(line.data(), 1, line.size(), file);
    std::fflush(file);
}

std::string tracePrefix(int direction) {
    const std::size_t ID_WIDTH = 50;
    const Poco::Timestamp now;
    const std::tm local = localTime(now.epochTime());
    char time[sizeof("2000-01-01 00:00:00")];
    std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:%S", &local);
    std::string id = correlationId();
    if (id.size() < ID_WIDTH) {
        id.resize(ID_WIDTH, ' ');
    }
    return time + millisecondText(static_cast<int>(now.epochMicroseconds() / 1000 % 1000)) +
           DIRECTION_LABELS[static_cast<std::size_t>(direction)] + id + "\n";
}

void writeTrace(int direction, RecursiveMutex& mutex, const char* data, std::size_t length, bool prefix) {
    if (!loggingLevels.isTraced(direction)) {
        return;
    }
    const RecursiveLock lock(&mutex);
    std::FILE* const file = state().commFile.load(std::memory_order_relaxed);
    if (!loggingLevels.isTraced(direction) || file == nullptr) {
        return;
    }
    // One write for prefix and text: both directions may share one stream, and a record must not be torn.
    std::string record = prefix ? tracePrefix(direction) : std::string();
    record.append(data, length);
    std::fwrite(record.data(), 1, record.size(), file);
    std::fflush(file);
}

}  // namespace

LoggingLevels loggingLevels;

void setLogging(std::FILE* logFile, int logLevel, std::FILE* commFile, int commLevel) {
    LoggingState& shared = state();
    const RecursiveLock error(&shared.levelLocks[0]);
    const RecursiveLock warn(&shared.levelLocks[1]);
    const RecursiveLock info(&shared.levelLocks[2]);
    const RecursiveLock debug(&shared.levelLocks[3]);
    const RecursiveLock input(&shared.inputLock);
    const RecursiveLock output(&shared.outputLock);
    const bool knownLogLevel = logLevel >= LoggingLevels::ERROR_LEVEL && logLevel <= LoggingLevels::DEBUG_LEVEL;
    const bool knownCommLevel = commLevel >= LoggingLevels::INPUT && commLevel <= LoggingLevels::BOTH;
    shared.logFile.store(logFile, std::memory_order_relaxed);
    shared.commFile.store(commFile, std::memory_order_relaxed);
    loggingLevels.log.store(knownLogLevel ? logLevel : 0, std::memory_order_relaxed);
    loggingLevels.trace.store(knownCommLevel && commFile != nullptr ? commLevel : 0, std::memory_order_relaxed);
}

void setCorrelationId(const std::string& id) {
    LoggingState& shared = state();
    {
        const RecursiveLock lock(&shared.idLock);
        shared.correlationIds[currentThreadId()] = id;
    }
    thread_local const CorrelationIdKeeper keeper;
    static_cast<void>(keeper);
}

void logError(const std::string& message) {
    writeLog(LoggingLevels::ERROR_LEVEL, message);
}

void logWarn(const std::string& message) {
    writeLog(LoggingLevels::WARN_LEVEL, message);
}

void logInfo(const std::string& message) {
    writeLog(LoggingLevels::INFO_LEVEL, message);
}

void logDebug(const std::string& message) {
    writeLog(LoggingLevels::DEBUG_LEVEL, message);
}

void traceInput(const std::string& text, bool prefix) {
    traceInput(text.data(), text.size(), prefix);
}

void traceInput(const char* data, std::size_t length, bool prefix) {
    writeTrace(LoggingLevels::INPUT, state().inputLock, data, length, prefix);
}

void traceOutput(const std::string& text, bool prefix) {
    traceOutput(text.data(), text.size(), prefix);
}

void traceOutput(const char* data, std::size_t length, bool prefix) {
    writeTrace(LoggingLevels::OUTPUT, state().outputLock, data, length, prefix);
}

std::string millisecondText(int milliseconds) {
    // ".%3u": padded with blanks; deliberate, programs that read the log know it so.
    std::string text = std::to_string(milliseconds);
    text.insert(0, 3 - text.size(), ' ');
    return "." + text;
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
