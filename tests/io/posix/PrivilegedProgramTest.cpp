// What a program that runs with more rights than its caller, as one with the set-user-ID bit does, takes from the
// environment, which is the caller's: nothing.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/io/posix/PosixTest.h"

namespace Corvane {
namespace Testing {
namespace {

class PrivilegedProgramTest : public PipeTest {
 protected:
    PrivilegedProgramTest() {
        ::chmod(folder.getPath().c_str(), 0755);
        ::setenv("XDG_RUNTIME_DIR", folder.getPath().c_str(), 1);
    }
    ~PrivilegedProgramTest() override {
        for (const char* const variable :
             {"XDG_RUNTIME_DIR", "CV_PIPE_SET_GROUP_PERMISSION", "CV_PIPE_OWNER_GROUP"}) {
            ::unsetenv(variable);
        }
    }
    /// What the program says that a process starts whose real user is `user` and whose rights are those of root.
    std::string runFor(unsigned user) {
        const std::string output = folder.file("output");
        ChildProcess process([&] {
            if (std::freopen(output.c_str(), "w", stdout) == nullptr || ::setresuid(user, 0, 0) != 0) {
                return 1;
            }
            ::execl(CVTP_TEST_PRIVILEGED_PROGRAM, CVTP_TEST_PRIVILEGED_PROGRAM, nullptr);
            return 2;
        });
        EXPECT_EQ(process.wait(), 0);
        std::ifstream said(output);
        return std::string(std::istreambuf_iterator<char>(said), {});
    }
    static void set(const char* permission, const char* group) {
        ::setenv("CV_PIPE_SET_GROUP_PERMISSION", permission, 1);
        ::setenv("CV_PIPE_OWNER_GROUP", group, 1);
    }
};

TEST_F(PrivilegedProgramTest, TakesNothingFromItsCallersEnvironment) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const std::string nothing = "privileged, /tmp/cvtp-0, default access";
    set("true", "");
    EXPECT_EQ(runFor(0), "ordinary, " + folder.getPath() + ", other access");
    EXPECT_EQ(runFor(NOBODY), nothing);
    ::unsetenv("CVTP_PIPE_DIR");
    set("", "daemon");
    EXPECT_EQ(runFor(0), "ordinary, " + folder.getPath() + "/cvtp, other access");
    EXPECT_EQ(runFor(NOBODY), nothing);
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
