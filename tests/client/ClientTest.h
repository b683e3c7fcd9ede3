#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <string>
#include <typeinfo>
#include <vector>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpConnectionManager.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/NotifyRequest.h"
#include "cvtp/PostRequest.h"
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

/// Level and message of each line that is complete; another thread may be in the middle of one. For logs without
/// correlation ids. If `thread` is given, only the lines of that one.
Lines completeLines(const LogCapture& log, const std::string& thread = std::string());

/// How often this level and message are among completeLines().
std::ptrdiff_t countOf(const LogCapture& log, const std::string& text);

/// Level and message of each line of the calling thread, but for those of the transport. Connections are numbered
/// from 1 in the order in which the log names them, an address is "ADDRESS", a speed is "RATE".
Lines ownLines(const LogCapture& log);

/// The lines of ownLines() that were added since there were `before` of them.
Lines newLines(const LogCapture& log, std::size_t before);

/// How a stream prints a pointer.
std::string addressOf(const Io::CvPipe* pipe);

/// The body of a response, read in one piece.
std::string bodyOf(Cvtp::CvtpMessageIn& message);

/// Executes a POST with this body by length and gives the body of the answer.
std::string post(Cvtp::CvtpClient& client, const std::string& pipeName, const std::string& body);

/// Executes a NOTIFY with this body by length.
void notify(Cvtp::CvtpClient& client, const std::string& pipeName, const std::string& body);

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
