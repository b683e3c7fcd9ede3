// A close that comes when accept() has already looked whether the pipe is closed, but does not wait yet. Not a
// single call of the system lies between the two, so there is nothing else to stop at than a call for memory.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "tests/io/PipeTest.h"
#include "tests/support_code/WatchedMemory.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;

using CloseBeforeWaitTest = PipeTest;

TEST_F(CloseBeforeWaitTest, IsNoFailureInTheLog) {
    // Too long to be kept inside the string, so that accept() needs memory for the path, between its look at
    // whether the pipe is closed and the wait.
    ServerCvPipe server("pipe with a name that is not short", true, true);
    server.setAcceptTimeout(1);
    CvPipe accepted;
    LogCapture log(3);
    bool isDone = false;
    WatchedMemory::watch(1, SIZE_MAX, [&] {
        server.close();
        isDone = true;
    });
    const std::string message = messageOf<InterruptedException>([&] { server.accept(accepted); });
    WatchedMemory::forget();
    EXPECT_TRUE(isDone);
    EXPECT_EQ(message, "accept aborted");
    EXPECT_EQ(log.texts(), Lines{"INFO: Accept aborted."});
    EXPECT_FALSE(accepted.isBound());
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
