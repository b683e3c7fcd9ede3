#include "io/platform/posix/CurrentProcess.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/io/posix/PosixTest.h"

namespace Corvane {
namespace Testing {
namespace {

using Io::Platform::currentProcess;

TEST(CurrentProcess, IsThatOfTheSystem) {
    EXPECT_EQ(currentProcess(), ::getpid());
    EXPECT_EQ(currentProcess(), ::getpid());
}

TEST(CurrentProcess, OfAForkedChildIsItsOwn) {
    ASSERT_EQ(currentProcess(), ::getpid());
    ChildProcess child([] { return currentProcess() == ::getpid() ? 0 : 1; });
    EXPECT_EQ(child.wait(), 0);
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
