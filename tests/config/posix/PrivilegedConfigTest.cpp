// What a program that runs with more rights than its caller, as one with the set-user-ID bit does, takes from the
// environment, which is the caller's: not the path of the configuration file.

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>

#include "tests/config/ConfigTest.h"

namespace Corvane {
namespace Testing {

namespace {

const uid_t NOBODY = 65534;

class PrivilegedConfigTest : public ConfigTest {
 protected:
    /// What a process prints and logs that gets its configuration, whose real user is `user` and whose rights are
    /// those of root.
    std::string outputFor(uid_t user) const {
        const std::string output = pathOf("output");
        const pid_t child = ::fork();
        if (child == 0) {
            // The leak checker cannot look into a process with such rights.
            ::setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
            if (std::freopen(output.c_str(), "w", stdout) == nullptr || ::setresuid(user, 0, 0) != 0) {
                ::_exit(1);
            }
            ::execl(CVTP_TEST_CONFIG_PROBE, CVTP_TEST_CONFIG_PROBE, folder.c_str(), "3", "get", nullptr);
            ::_exit(2);
        }
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        std::ostringstream said;
        said << std::ifstream(output).rdbuf();
        return said.str();
    }
};

}  // namespace

TEST_F(PrivilegedConfigTest, APrivilegedProgramDoesNotReadTheFileThatItsCallerNames) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const std::string found = "Found cvtp configuration file: ";
    const FileVariable variable(write("other.xml", "<any/>"));
    write("CvtpConfig.xml", "<any/>");
    EXPECT_NE(outputFor(0).find(found + pathOf("other.xml") + "-"), std::string::npos) << outputFor(0);
    EXPECT_NE(outputFor(NOBODY).find(found + "CvtpConfig.xml-"), std::string::npos) << outputFor(NOBODY);
}

}  // namespace Testing
}  // namespace Corvane
