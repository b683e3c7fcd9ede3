#include <gtest/gtest.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>

#include "cvtp/internal/RecursiveMutex.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {
namespace {

TEST(CurrentThreadId, OfAForkedChildIsItsOwn) {
    ASSERT_NE(currentThreadId(), 0U);
    const pid_t child = fork();
    ASSERT_NE(child, -1);
    if (child == 0) {
        // The first thread of a process has the number of the process.
        _exit(currentThreadId() == static_cast<std::uint32_t>(getpid()) ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
