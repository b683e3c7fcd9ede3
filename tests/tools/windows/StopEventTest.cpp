// The event by which other programs stop a server, which works without a console.

#include <gtest/gtest.h>

#include <windows.h>

#include <string>

#include "tests/support_code/StartedProcess.h"
#include "tests/support_code/TemporaryPipeDirectory.h"

namespace {

using Corvane::Testing::StartedProcess;
using Corvane::Testing::TemporaryPipeDirectory;

class StopEvent : public testing::Test {
 protected:
    void startServer() {
        server =
            StartedProcess::start({CVTP_TOOL, "serve", TemporaryPipeDirectory::nameForOthers("stop"), "--echo"});
        readLine();
    }

    std::string readLine() {
        while (held.find('\n') == std::string::npos && server->readMore(held)) {
        }
        const std::string line = held.substr(0, held.find('\n'));
        held.erase(0, line.size() + 1);
        return line;
    }

    /// Sets the event as another program does.
    ///
    /// @return whether there is one.
    bool setEvent() const {
        const std::string name = "cvtp-stop-" + std::to_string(server->id());
        const HANDLE event = ::OpenEventA(EVENT_MODIFY_STATE, FALSE, name.c_str());
        if (event == nullptr) {
            return false;
        }
        ::SetEvent(event);
        ::CloseHandle(event);
        return true;
    }

    TemporaryPipeDirectory directory;
    std::unique_ptr<StartedProcess> server;
    std::string held;
};

}  // namespace

TEST_F(StopEvent, EndsTheServerInOrder) {
    startServer();
    ASSERT_TRUE(setEvent());
    EXPECT_EQ(readLine(), "Served 0 POST (0 answered with 404) and 0 NOTIFY, 0 bytes received.");
    EXPECT_EQ(server->wait(), 0);
}

TEST_F(StopEvent, IsOfOneProcessAlone) {
    startServer();
    const std::unique_ptr<StartedProcess> first = std::move(server);
    held.clear();
    server = StartedProcess::start({CVTP_TOOL, "serve", TemporaryPipeDirectory::nameForOthers("other"), "--echo"});
    readLine();
    ASSERT_TRUE(setEvent());
    EXPECT_EQ(server->wait(), 0);
    // The other one serves on.
    const auto client = StartedProcess::start(
        {CVTP_TOOL, "post", TemporaryPipeDirectory::nameForOthers("stop"), "/a", "-d", "text"});
    EXPECT_EQ(client->wait(), 0);
}
