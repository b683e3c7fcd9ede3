#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpConnectionManager.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/NotifyRequest.h"
#include "cvtp/PostRequest.h"
#include "cvtp/internal/RecursiveMutex.h"
#include "io/CvPipe.h"
#include "io/Exceptions.h"
#include "tests/support_code/LogCapture.h"
#include "tests/support_code/ScriptedServer.h"
#include "tests/support_code/TemporaryPipeDirectory.h"

namespace Corvane {
namespace Testing {

using Lines = std::vector<std::string>;

/// Gives each test a pipe folder of its own.
class ClientTest : public ::testing::Test {
 protected:
    TemporaryPipeDirectory directory;
};

/// Runs `action` and gives the message of the exception it throws, which must be of exactly this class. Any other
/// exception ends the test.
template <class Exception, class Action>
std::string messageOf(Action action) {
    try {
        action();
    } catch (Exception& e) {
        EXPECT_STREQ(typeid(e).name(), typeid(Exception).name()) << e.getMessage();
        return e.getMessage();
    }
    ADD_FAILURE() << "did not throw";
    return "no exception";
}

inline bool isOfTransport(const std::string& text) {
    static const std::array<const char*, 8> BEGINNINGS{
        "DEBUG: CreateFile - ", "DEBUG: Close Handles: ",        "INFO: CvPipe_closePipe ",
        "DEBUG: WriteFile ",    "DEBUG: Waiting for named pipe", "ERROR: Could not open pipe",
        "DEBUG: bindPipe: ",    "DEBUG: Closing server pipe: "};
    return std::any_of(BEGINNINGS.begin(), BEGINNINGS.end(),
                       [&text](const char* beginning) { return text.rfind(beginning, 0) == 0; });
}

/// Numbers the connections anew, from 1, in the order in which `lines` name them; the process counts on from test
/// to test.
inline void renumberBindings(Lines& lines) {
    std::vector<std::string> known;
    for (std::string& line : lines) {
        std::smatch match;
        if (std::regex_search(line, match, std::regex("Binding-[0-9]+"))) {
            auto at = std::find(known.begin(), known.end(), match.str());
            if (at == known.end()) {
                at = known.insert(at, match.str());
            }
            line =
                match.prefix().str() + "Binding-" + std::to_string(at - known.begin() + 1) + match.suffix().str();
        }
    }
}

/// Level and message of each line of the calling thread, but for those of the transport. Connections are numbered
/// from 1, an address is "ADDRESS", a speed is "RATE".
inline Lines ownLines(const LogCapture& log) {
    const std::string thread = std::to_string(Internal::Cvtp::currentThreadId());
    Lines lines;
    for (const LogEntry& entry : log.lines()) {
        if (entry.threadId == thread && !isOfTransport(entry.text())) {
            std::string text =
                std::regex_replace(entry.text(), std::regex("\\((0x)?[0-9a-fA-F]{6,}\\)"), "(ADDRESS)");
            lines.push_back(std::regex_replace(text, std::regex("\\([0-9.e+-]+ Mbps\\)"), "(RATE Mbps)"));
        }
    }
    renumberBindings(lines);
    return lines;
}

/// The lines that were added since there were `before` of them.
inline Lines newLines(const LogCapture& log, std::size_t before) {
    Lines lines = ownLines(log);
    return Lines(lines.begin() + static_cast<std::ptrdiff_t>(before), lines.end());
}

/// How a stream prints a pointer.
inline std::string addressOf(const Io::CvPipe* pipe) {
    std::ostringstream text;
    text << static_cast<const void*>(pipe);
    return text.str();
}

/// The body of a response, read in one piece.
inline std::string bodyOf(Cvtp::CvtpMessageIn& message) {
    char* data = nullptr;
    std::size_t length = 0;
    message.getBody(data, length);
    const std::unique_ptr<char, decltype(&std::free)> owner(data, &std::free);
    EXPECT_EQ(data[length], '\0');
    return std::string(data, length);
}

/// Executes a POST with this body by length and gives the body of the answer.
inline std::string post(Cvtp::CvtpClient& client, const std::string& pipeName, const std::string& body) {
    Cvtp::PostRequest request(&client, pipeName, "/r");
    request.setBody(body.data(), body.size());
    const std::unique_ptr<Cvtp::CvtpResponse> response(request.execute());
    return bodyOf(*response);
}

/// Executes a NOTIFY with this body by length.
inline void notify(Cvtp::CvtpClient& client, const std::string& pipeName, const std::string& body) {
    Cvtp::NotifyRequest request(&client, pipeName, "/n");
    request.setBody(body.data(), body.size());
    request.execute();
}

/// A manager of the application's. What it gives out is the pipe it was made with.
class FakeManager : public Cvtp::CvtpConnectionManager {
 public:
    explicit FakeManager(Io::CvPipe* pipe = nullptr, bool* deleted = nullptr) : pipe(pipe), deleted(deleted) {}
    ~FakeManager() override {
        if (deleted != nullptr) {
            *deleted = true;
        }
    }

    Io::CvPipe* getPipe(const std::string& pipeName, const std::string& mode) override {
        calls.push_back("get " + pipeName + " " + mode);
        return pipe;
    }
    void returnPipe(Io::CvPipe* returned) override {
        calls.push_back(returned == nullptr ? "return null" : "return");
        onReturn();
    }
    void removePipe(Io::CvPipe* removed) override {
        calls.push_back(removed == nullptr ? "remove null" : "remove");
    }

    Lines calls;
    std::function<void()> onReturn = [] {};

 private:
    Io::CvPipe* pipe;
    bool* deleted;
};

}  // namespace Testing
}  // namespace Corvane
