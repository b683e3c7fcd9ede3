#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "tests/support_code/LogCapture.h"
#include "tests/support_code/RawClient.h"
#include "tests/support_code/RunningServer.h"
#include "tests/support_code/Skips.h"
#include "tests/support_code/TemporaryPipeDirectory.h"

namespace Corvane {
namespace Testing {

using Lines = std::vector<std::string>;

/// Gives each test a pipe folder of its own.
class ServerTest : public ::testing::Test {
 protected:
    void SetUp() override {
        const char* const reason = reasonToSkip();
        if (reason != nullptr) {
            GTEST_SKIP() << reason;
        }
    }

    TemporaryPipeDirectory directory;
};

/// Whether a line is the server's own, and not the pipes' or the messages'. What these log at WARN or ERROR stays.
inline bool isServerLine(const std::string& text) {
    static const std::array<const char*, 17> OTHERS = {
        "DEBUG: bindPipe: ", "DEBUG: Calling ConnectNamedPipe.", "DEBUG: ServerCvPipe_", "DEBUG: GetOverlapped",
        "DEBUG: Close Handles: ", "INFO: Accept aborted.", "DEBUG: Closing server ", "DEBUG: Read timed out.",
        "DEBUG: CreateFile - ", "DEBUG: Waiting for nam", "DEBUG: Accept:  ", "DEBUG: Reply:   ", "DEBUG: Read ",
        "DEBUG: Wrote ", "DEBUG: WriteFile broken pipe", "INFO: WriteFile aborted.",
        // The end of data, where it is there before the read.
        "WARN: ReadFile error: 109"};
    return std::none_of(OTHERS.begin(), OTHERS.end(),
                        [&text](const char* begin) { return text.rfind(begin, 0) == 0; });
}

/// The server's own lines.
inline Lines serverLines(const LogCapture& log) {
    Lines result;
    for (const std::string& text : log.texts()) {
        if (isServerLine(text)) {
            result.push_back(text);
        }
    }
    return result;
}

/// The server's own lines that were written by the thread that wrote `mark` first.
inline Lines linesOfThread(const LogCapture& log, const std::string& mark) {
    const std::vector<LogEntry> entries = log.lines();
    const auto found = std::find_if(entries.begin(), entries.end(),
                                    [&mark](const LogEntry& entry) { return entry.text() == mark; });
    Lines result;
    if (found == entries.end()) {
        ADD_FAILURE() << "nobody logged " << mark;
        return result;
    }
    for (const LogEntry& entry : entries) {
        if (entry.threadId == found->threadId && isServerLine(entry.text())) {
            result.push_back(entry.text());
        }
    }
    return result;
}

/// What the first worker of a server logs at its end, whatever ended it.
inline std::string closingLine(const std::string& fullName = "CvtpServer/Worker-1") {
    return "DEBUG: Closing CvPipe (" + fullName + "). ";
}

/// The lines that the first worker logs from its thread.
inline Lines workerLines(const LogCapture& log, const std::string& fullName = "CvtpServer/Worker-1") {
    EXPECT_TRUE(log.waitFor(closingLine(fullName)));
    return linesOfThread(log, closingLine(fullName));
}

inline std::string summaryLine(const std::string& pipeName, int posts, int notifies, int workers, int idle,
                               int waits, int peak) {
    return "DEBUG: \nCvtpServer " + pipeName + " Summary:\n" +
           "    Total POST requests:       " + std::to_string(posts) + "\n" +
           "    Total NOTIFY requests:     " + std::to_string(notifies) + "\n" +
           "    Total workers used:        " + std::to_string(workers) + "\n" +
           "    Total idle timeouts:       " + std::to_string(idle) + "\n" +
           "    Total waits for thread:    " + std::to_string(waits) + "\n" +
           "    Peak number of threads:    " + std::to_string(peak) + "\n";
}

/// Something that threads wait for until it is opened, which happens at the latest when it is destroyed.
class Gate {
 public:
    ~Gate() { open(); }
    void wait() {
        // A copy: this may be destroyed as soon as it is open.
        const std::shared_future<void> copy = future;
        copy.wait();
    }
    void open() {
        if (!opened.exchange(true)) {
            promise.set_value();
        }
    }

 private:
    std::promise<void> promise;
    std::shared_future<void> future = promise.get_future().share();
    std::atomic<bool> opened{false};
};

/// Milliseconds since it was made.
class StopWatch {
 public:
    long long elapsed() const {
        const auto time = std::chrono::steady_clock::now() - start;
        return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
    }

 private:
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

}  // namespace Testing
}  // namespace Corvane
