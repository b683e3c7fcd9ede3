#pragma once

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "io/platform/posix/PipeSecurity.h"
#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {

inline const std::string CREATE_ACCESS = "DEBUG: Create SecurityDescriptor.";

/// A test of who may open a pipe. Each begins without a setting, with this umask, and in a process that has not
/// given a pipe its access yet.
class AccessTest : public FaultTest {
 protected:
    static constexpr mode_t UMASK = 027;
    static constexpr unsigned DEFAULT_MODE = 0777U & ~UMASK;

    void SetUp() override {
        FaultTest::SetUp();
        if (otherGroup().empty()) {
            GTEST_SKIP() << "there is no group with a name to give a file to";
        }
    }

    AccessTest() { clear(); }
    ~AccessTest() override {
        clear();
        ::umask(umaskBefore);
    }

    /// Null leaves a variable out.
    static void set(const char* permission, const char* group) {
        setOne("CV_PIPE_SET_GROUP_PERMISSION", permission);
        setOne("CV_PIPE_OWNER_GROUP", group);
    }

    /// A group that is not the one that files get here by themselves, if there can be one: only root can give a
    /// file to any group. Empty when there is none.
    static std::string otherGroup() {
        const gid_t own = ::getegid();
        const struct group* const entry = ::geteuid() == 0 ? ::getgrnam("daemon") : ::getgrgid(own);
        return entry == nullptr ? std::string() : entry->gr_name;
    }
    static gid_t numberOf(const std::string& group) {
        const struct group* const entry = ::getgrnam(group.c_str());
        return entry == nullptr ? static_cast<gid_t>(-1) : entry->gr_gid;
    }

    struct stat statusOf(const std::string& file) const {
        struct stat status {};
        EXPECT_EQ(::lstat(folder.file(file).c_str(), &status), 0) << file;
        return status;
    }
    unsigned modeOf(const std::string& file) const { return statusOf(file).st_mode & 07777U; }
    gid_t groupOf(const std::string& file) const { return statusOf(file).st_gid; }

 private:
    static void setOne(const char* name, const char* value) {
        if (value == nullptr) {
            ::unsetenv(name);
        } else {
            ::setenv(name, value, 1);
        }
    }
    static void clear() {
        set(nullptr, nullptr);
        Io::Platform::forgetPipeAccess();
    }

    const mode_t umaskBefore = ::umask(UMASK);
};

}  // namespace Testing
}  // namespace Corvane
