#include "tools/cvtp/platform/windows/PipeUser.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <string>
#include <type_traits>

namespace Corvane {
namespace Tools {
namespace {

std::string ownName() {
    char name[256];
    DWORD size = sizeof name;
    EXPECT_TRUE(::GetUserNameA(name, &size));
    return name;
}

struct HandleCloser {
    void operator()(HANDLE handle) const { ::CloseHandle(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<HANDLE>, HandleCloser>;

class PipeUserTest : public ::testing::Test {
 protected:
    /// One instance of a pipe that waits for a client.
    Handle makeServer(DWORD direction) {
        Handle server(::CreateNamedPipeA(path.c_str(), direction, PIPE_TYPE_BYTE, 1, 100, 100, 0, nullptr));
        EXPECT_NE(server.get(), INVALID_HANDLE_VALUE);
        return server;
    }

    const std::string path = "\\\\.\\pipe\\pipe-user-test-" + std::to_string(::GetCurrentProcessId());
};

TEST_F(PipeUserTest, IsTheUserOfTheServersProcess) {
    const DWORD directions[] = {PIPE_ACCESS_DUPLEX, PIPE_ACCESS_INBOUND, PIPE_ACCESS_OUTBOUND};
    for (const DWORD direction : directions) {
        const Handle server = makeServer(direction);
        EXPECT_EQ(userOfPipe(path), ownName());
    }
}

TEST_F(PipeUserTest, IsUnknownWhileTheServerTakesNoClient) {
    const Handle server = makeServer(PIPE_ACCESS_DUPLEX);
    const Handle client(::CreateFileA(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    ASSERT_NE(client.get(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(userOfPipe(path), "");
}

TEST_F(PipeUserTest, IsUnknownWithoutAPipe) {
    EXPECT_EQ(userOfPipe(path), "");
}

}  // namespace
}  // namespace Tools
}  // namespace Corvane
