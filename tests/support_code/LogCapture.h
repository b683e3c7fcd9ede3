#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "cvtp/internal/Logging.h"

namespace Corvane {
namespace Testing {

/// One line of the log, taken apart.
struct LogEntry {
    std::string level;
    /// As written: "2024/02/29-23:59:58.  5".
    std::string time;
    std::string threadId;
    std::string correlationId;
    std::string message;

    /// Level and message, for comparing without time and thread: "ERROR: Pipe not bound."
    std::string text() const { return level + ": " + message; }
};

/// True when `text` has at `at` what `shape` says, in which a 9 stands for any digit.
inline bool hasShape(const std::string& text, std::string::size_type at, const std::string& shape) {
    if (at > text.size() || text.size() - at < shape.size()) {
        return false;
    }
    for (std::string::size_type i = 0; i < shape.size(); ++i) {
        const char c = text[at + i];
        if (shape[i] == '9' ? c < '0' || c > '9' : c != shape[i]) {
            return false;
        }
    }
    return true;
}

/// A number of at most three digits, padded with blanks: zeros in their place are wrong.
inline bool hasMilliseconds(const std::string& text, std::string::size_type at) {
    if (hasShape(text, at, "999")) {
        return text[at] != '0';
    }
    if (hasShape(text, at, " 99")) {
        return text[at + 1] != '0';
    }
    return hasShape(text, at, "  9");
}

/// A file of its own in the temporary folder, removed at the end. It is written through one stream and read through
/// another, so that it can be read while other threads go on writing.
class ScratchFile {
 public:
    ScratchFile() {
        std::random_device random;
        const std::string name = "cvtp_test_" + std::to_string(random()) + "_" + std::to_string(random());
        path = std::filesystem::temp_directory_path() / name;
        stream = std::fopen(path.string().c_str(), "wb");
    }
    ~ScratchFile() {
        if (stream != nullptr) {
            std::fclose(stream);
        }
        std::error_code ignored;
        std::filesystem::remove(path, ignored);
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    std::FILE* file() const { return stream; }

    /// What the file held when the call began. To read until its end would never end while other threads write
    /// faster than this one reads.
    std::string content() const {
        std::string text(static_cast<std::string::size_type>(std::filesystem::file_size(path)), '\0');
        std::ifstream in(path, std::ios_base::binary);
        in.read(&text[0], static_cast<std::streamsize>(text.size()));
        text.resize(static_cast<std::string::size_type>(in.gcount()));
        return text;
    }

 private:
    std::filesystem::path path;
    std::FILE* stream = nullptr;
};

/// Catches log and communication trace of the process from its construction until its destruction, which switches
/// both off. One at a time. Its accessors may be used while other threads log.
class LogCapture {
 public:
    /// @param logLevel 0 off, 1 ERROR, 2 WARN, 3 INFO, 4 DEBUG. @param commLevel 0 off, 1 input, 2 output, 3 both.
    explicit LogCapture(int logLevel = 4, int commLevel = 0) {
        EXPECT_NE(logFile.file(), nullptr);
        EXPECT_NE(commFile.file(), nullptr);
        Internal::Cvtp::setLogging(logFile.file(), logLevel, commFile.file(), commLevel);
    }
    ~LogCapture() { Internal::Cvtp::setLogging(nullptr, 0, nullptr, 0); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// The log as it was written.
    std::string log() const { return logFile.content(); }

    /// The log in pieces. Each piece is checked against the whole format of a line; the test fails when one does
    /// not match it. A message may contain line ends.
    std::vector<LogEntry> lines() const {
        const std::string text = logInWholeLines();
        std::vector<LogEntry> entries;
        std::string::size_type begin = 0;
        const std::string lineEnd = LINE_END;
        for (auto end = text.find(lineEnd); end != std::string::npos; end = text.find(lineEnd, begin)) {
            entries.push_back(parse(text.substr(begin, end - begin)));
            begin = end + lineEnd.size();
        }
        EXPECT_EQ(text.substr(begin), "") << "the log ends in the middle of a line";
        return entries;
    }

    /// Level and message of each line, in the form "ERROR: Pipe not bound."
    std::vector<std::string> texts() const {
        std::vector<std::string> result;
        for (const LogEntry& entry : lines()) {
            result.push_back(entry.text());
        }
        return result;
    }

    /// How many lines have exactly this level and message, given in the form "ERROR: Pipe not bound."
    int count(const std::string& text) const {
        int found = 0;
        for (const LogEntry& entry : lines()) {
            found += entry.text() == text ? 1 : 0;
        }
        return found;
    }

    bool has(const std::string& text) const { return count(text) > 0; }

    /// Waits until another thread has logged the line. There is nothing that tells of a line being written, so
    /// this looks again and again.
    bool waitFor(const std::string& text, std::chrono::milliseconds limit = std::chrono::seconds(20)) const {
        const auto end = std::chrono::steady_clock::now() + limit;
        while (!completeLinesHave(text)) {
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return true;
    }

    /// The communication trace as it was written.
    std::string trace() const { return commFile.content(); }

    /// The communication trace with "TIME" in place of the time in each record prefix. A prefix that is not of the
    /// right form keeps its time, and so cannot be equal to what a test expects.
    std::string maskedTrace() const {
        const std::string text = trace();
        std::string masked;
        std::string::size_type begin = 0;
        for (std::string::size_type at = text.find(" ["); at != std::string::npos; at = text.find(" [", at + 1)) {
            const bool label = hasShape(text, at, " [INPUT ]") || hasShape(text, at, " [OUTPUT]");
            if (label && at >= begin + TRACE_TIME.size() + 3 && hasMilliseconds(text, at - 3) &&
                hasShape(text, at - 3 - TRACE_TIME.size(), TRACE_TIME)) {
                masked += text.substr(begin, at - 3 - TRACE_TIME.size() - begin) + "TIME";
                begin = at;
            }
        }
        return masked + text.substr(begin);
    }

    /// The record prefix as maskedTrace() shows it. @param direction "INPUT " or "OUTPUT".
    static std::string prefix(const std::string& direction, std::string correlationId = std::string()) {
        if (correlationId.size() < 50) {
            correlationId.resize(50, ' ');
        }
        return "TIME [" + direction + "]" + correlationId + "\n";
    }

 private:
    static constexpr const char* LINE_END = "- Corvane.SOA.Cvtp\n";

    /// A line that another thread is just writing may be seen in part, so this looks again, but not without end.
    std::string logInWholeLines() const {
        const std::string lineEnd = LINE_END;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        std::string text = log();
        while (!text.empty() &&
               (text.size() < lineEnd.size() ||
                text.compare(text.size() - lineEnd.size(), lineEnd.size(), lineEnd) != 0) &&
               std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
            text = log();
        }
        return text;
    }

    static LogEntry parse(const std::string& line) {
        static const std::string AFTER_TIME = " UTC - Thread-";
        LogEntry entry;
        entry.level = line.substr(0, line.find(" - "));
        const std::string::size_type time = entry.level.size() + 3;
        const std::string::size_type afterTime = time + LOG_TIME.size() + 3;
        const std::string::size_type thread = afterTime + AFTER_TIME.size();
        const std::string::size_type afterThread = line.find_first_not_of("0123456789", thread);
        const bool known =
            entry.level == "ERROR" || entry.level == "WARN" || entry.level == "INFO" || entry.level == "DEBUG";
        // The correlation id stands between ": " and " - ", and is empty when there is none.
        const std::string::size_type id = afterThread == std::string::npos ? line.size() : afterThread + 2;
        const std::string::size_type afterId = line.find(" - ", id);
        if (!known || !hasShape(line, time, LOG_TIME) || !hasMilliseconds(line, afterTime - 3) ||
            !hasShape(line, afterTime, AFTER_TIME + "9") || !hasShape(line, id - 2, ": ") ||
            afterId == std::string::npos) {
            ADD_FAILURE() << "not the form of a log line: " << line;
            return LogEntry{"malformed", "", "", "", line};
        }
        entry.time = line.substr(time, afterTime - time);
        entry.threadId = line.substr(thread, afterThread - thread);
        entry.correlationId = line.substr(id, afterId - id);
        entry.message = line.substr(afterId + 3);
        return entry;
    }

    /// The last line may be half written when it is read here.
    bool completeLinesHave(const std::string& text) const {
        const std::string level = text.substr(0, text.find(": "));
        const std::string message = text.substr(level.size() + 2);
        const std::string all = "\n" + log();
        const std::string end = " - " + message + "- Corvane.SOA.Cvtp\n";
        for (std::string::size_type at = all.find(end); at != std::string::npos; at = all.find(end, at + 1)) {
            const std::string::size_type start = all.rfind("\n" + level + " - ", at);
            if (start != std::string::npos && all.find("- Corvane.SOA.Cvtp\n", start) >= at) {
                return true;
            }
        }
        return false;
    }

    inline static const std::string LOG_TIME = "9999/99/99-99:99:99.";
    inline static const std::string TRACE_TIME = "9999-99-99 99:99:99.";

    ScratchFile logFile;
    ScratchFile commFile;
};

}  // namespace Testing
}  // namespace Corvane
