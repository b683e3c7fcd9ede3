#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <system_error>
#include <typeinfo>
#include <vector>

#include "io/CvPipe.h"
#include "io/Exceptions.h"
#include "io/ServerCvPipe.h"
#include "tests/support_code/LogCapture.h"
#include "tests/support_code/Skips.h"

// What the log has for codes, and where pipes are, differs between the systems.
#ifdef _WIN32
#include "tests/io/windows/Codes.h"
#include "tests/support_code/windows/PipeNames.h"
#else
#include "tests/io/posix/Codes.h"
#include "tests/support_code/posix/PipeNames.h"
#endif

namespace Corvane {
namespace Testing {

/// An empty folder of its own, removed at the end. Its path is short, since sockets will lie in it.
class TemporaryFolder {
 public:
    TemporaryFolder() {
        std::random_device random;
        path = std::filesystem::temp_directory_path() / ("cvtp_" + std::to_string(random()));
        std::filesystem::create_directory(path);
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string getPath() const { return path.string(); }
    std::string file(const std::string& name) const { return (path / name).string(); }

    std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (const auto& entry : std::filesystem::directory_iterator(path)) {
            result.push_back(entry.path().filename().string());
        }
        return result;
    }

 private:
    std::filesystem::path path;
};

/// Gives each test a pipe folder of its own.
class PipeTest : public ::testing::Test {
 protected:
    void SetUp() override {
        const char* const reason = reasonToSkip();
        if (reason != nullptr) {
            GTEST_SKIP() << reason;
        }
    }

    PipeTest() { PipeNames::setVariable("CVTP_PIPE_DIR", folder.getPath()); }
    // Empty is the same as not set.
    ~PipeTest() override { PipeNames::setVariable("CVTP_PIPE_DIR", ""); }

    TemporaryFolder folder;
    PipeNames names;
};

/// A text of which no two pieces are the same.
inline std::string numbered(std::size_t size) {
    std::string text;
    for (int i = 0; text.size() < size; ++i) {
        text += std::to_string(i) + ",";
    }
    text.resize(size);
    return text;
}

/// A server, a client and the server's end of their connection.
struct Connection {
    explicit Connection(const std::string& name = "pipe", bool readable = true, bool writable = true)
        : server(name, readable, writable) {
        client.connect(name, writable, readable);
        server.accept(accepted);
    }

    Io::ServerCvPipe server;
    Io::CvPipe client;
    Io::CvPipe accepted;
};

/// Runs `action` and gives the message of the exception it throws, which must be of exactly this class.
template <class Exception, class Action>
std::string messageOf(Action action) {
    try {
        action();
    } catch (Exception& e) {
        EXPECT_TRUE(typeid(e) == typeid(Exception)) << typeid(e).name();
        return e.getMessage();
    } catch (...) {
        ADD_FAILURE() << "threw something else than " << typeid(Exception).name();
        return "another exception";
    }
    ADD_FAILURE() << "did not throw";
    return "no exception";
}

inline std::string readSome(Io::CvPipe& pipe, int timeoutMs = 0, int length = 1000) {
    std::string text(static_cast<std::size_t>(length), ' ');
    const int count = pipe.readPipe(text.data(), 0, length, timeoutMs);
    return count < 0 ? std::string("end of data") : text.substr(0, static_cast<std::size_t>(count));
}

inline void writeText(Io::CvPipe& pipe, const std::string& text) {
    pipe.writePipe(text.data(), 0, static_cast<int>(text.size()));
}

/// Replaces the number that follows `label` by "N". An invalid handle is negative and stays.
inline void maskNumber(std::string& text, const std::string& label) {
    const std::string::size_type found = text.find(label);
    if (found != std::string::npos) {
        const std::string::size_type begin = found + label.size();
        const std::string::size_type end = std::min(text.find_first_not_of("0123456789", begin), text.size());
        text.replace(begin, end - begin, end > begin ? "N" : "");
    }
}

/// Level and message of each line, with "N" for the number of each valid handle. Where there was nothing to cancel,
/// some systems say so, which leaves no line here.
inline std::vector<std::string> maskedTexts(const LogCapture& log) {
    std::vector<std::string> result;
    for (std::string text : log.texts()) {
        maskNumber(text, "handle=");
        maskNumber(text, " event=");
        maskNumber(text, " event= ");
        if (text.find(" CancelIoEx failed. Error code : 1168") == std::string::npos) {
            result.push_back(text);
        }
    }
    return result;
}

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

using Lines = std::vector<std::string>;

}  // namespace Testing
}  // namespace Corvane
