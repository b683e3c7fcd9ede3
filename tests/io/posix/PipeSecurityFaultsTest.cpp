// What becomes of a pipe whose access cannot be set: it has the default one, and the log says why.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "io/platform/posix/SocketCalls.h"
#include "tests/io/posix/AccessTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

const std::string CREATED = "DEBUG: bindPipe: handle=N event=-1";
const std::string NO_SIZE = "ERROR: LookupAccountName to get buffer size failed. GetLastError returned:: ";
const std::string NO_GROUP = "ERROR: LookupAccountName to get group SID - Error: ";

class PipeSecurityFaultsTest : public AccessTest {
 protected:
    Lines makeServer() {
        LogCapture log;
        server = std::make_unique<ServerCvPipe>("pipe", true, true);
        return maskedTexts(log);
    }
    void TearDown() override {
        server.reset();
        FaultTest::TearDown();
    }
    /// So that the group of the file must be changed: the folder hands another one down. Only root can do that.
    void makeGroupDiffer() {
        ASSERT_EQ(::chown(folder.getPath().c_str(), 0, numberOf("bin")), 0);
        ASSERT_EQ(::chmod(folder.getPath().c_str(), 02755), 0);
    }

    std::unique_ptr<ServerCvPipe> server;
    const std::string group = otherGroup();
};

struct AccessCase {
    const char* call;
    std::vector<Answer> answers;
    std::string line;
};

std::ostream& operator<<(std::ostream& out, const AccessCase& item) {
    return out << item.call << " " << item.line;
}

class AccessFaultTest : public PipeSecurityFaultsTest, public ::testing::WithParamInterface<AccessCase> {};

TEST_P(AccessFaultTest, TheDefaultAccessIsGivenAndTheNextPipeTriesAgain) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can make the group of the file differ";
    }
    makeGroupDiffer();
    set("true", group.c_str());
    {
        FakeSystem system;
        system.on(GetParam().call, GetParam().answers);
        EXPECT_EQ(makeServer(), (Lines{CREATE_ACCESS, GetParam().line, CREATED}));
    }
    EXPECT_EQ(modeOf("pipe"), DEFAULT_MODE);
    EXPECT_EQ(groupOf("pipe"), numberOf("bin"));
    CvPipe client("pipe", true, true);
    CvPipe accepted;
    server->accept(accepted);
    EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe", ".pipe.lock"));
    client.close();
    accepted.close();
    server.reset();
    // With the settings of that moment.
    set("true", nullptr);
    EXPECT_EQ(makeServer(), (Lines{CREATE_ACCESS, CREATED}));
    EXPECT_EQ(modeOf("pipe"), 0660U);
    EXPECT_EQ(groupOf("pipe"), ::getegid());
}

TEST_P(AccessFaultTest, AnAccessThatServedBeforeIsKept) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can make the group of the file differ";
    }
    makeGroupDiffer();
    set("true", group.c_str());
    makeServer();
    server.reset();
    set(nullptr, nullptr);
    {
        FakeSystem system;
        system.on(GetParam().call, GetParam().answers);
        EXPECT_EQ(makeServer(), (Lines{GetParam().line, CREATED}));
    }
    EXPECT_EQ(modeOf("pipe"), DEFAULT_MODE);
    server.reset();
    EXPECT_EQ(makeServer(), Lines{CREATED});
    EXPECT_EQ(modeOf("pipe"), 0660U);
    EXPECT_EQ(groupOf("pipe"), numberOf(group));
}

INSTANTIATE_TEST_SUITE_P(
    AllErrors, AccessFaultTest,
    ::testing::Values(
        AccessCase{"fchmod", {failure(EPERM)}, "ERROR: SetEntriesInAcl Error: 1"},
        AccessCase{"fchmod", {failure(EROFS)}, "ERROR: SetEntriesInAcl Error: 30"},
        AccessCase{"fchownat", {failure(EPERM)}, "ERROR: SetSecurityDescriptorGroup Error: 1"},
        AccessCase{"fchownat", {failure(EINVAL)}, "ERROR: SetSecurityDescriptorGroup Error: 22"},
        AccessCase{"chmod", {failure(ENOENT)}, "ERROR: SetSecurityDescriptorDacl Error: 2"},
        AccessCase{"chmod", {failure(EPERM)}, "ERROR: SetSecurityDescriptorDacl Error: 1"},
        // The first open() is that of the lock file, and so is the first fstat().
        AccessCase{"open", {passing(), failure(EMFILE)}, "ERROR: Initialize a security descriptor. Error: 24"},
        AccessCase{"fstat", {passing(), failure(EIO)}, "ERROR: Initialize a security descriptor. Error: 5"}));

TEST_F(PipeSecurityFaultsTest, AUserWhoIsNotInTheGroupCannotGiveTheFileToIt) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    set("true", group.c_str());
    ASSERT_EQ(::chmod(folder.getPath().c_str(), 01777), 0);
    LogCapture log;
    ChildProcess user([&] {
        if (::setgid(NOBODY) != 0 || ::setuid(NOBODY) != 0) {
            return 1;
        }
        ServerCvPipe pipe("pipe", true, true);
        return modeOf("pipe") == DEFAULT_MODE && groupOf("pipe") == NOBODY ? 0 : 2;
    });
    EXPECT_EQ(user.wait(), 0);
    // And that is no secret.
    EXPECT_TRUE(log.has("ERROR: SetSecurityDescriptorGroup Error: 1"));
}

TEST_F(PipeSecurityFaultsTest, AnAccessIsGivenInThisOrder) {
    set("true", group.c_str());
    FakeSystem system;
    makeServer();
    const std::string own = folder.getPath().substr(folder.getPath().rfind('/') + 1);
    Lines expected = {"stat(" + own + ")",
                      "open(.pipe.lock)",
                      "fstat()",
                      "flock(6)",
                      "lstat(.pipe.lock)",
                      "lstat(pipe)",
                      "lstat(.pipe.direction)",
                      "getgrnam_r(" + group + ", 1024)",
                      "socket()",
                      "fchmod(600)",
                      "bind()",
                      "lstat(pipe)",
                      "open(pipe)",
                      "fstat()"};
    if (::geteuid() == 0) {
        expected.push_back("fchownat(" + std::to_string(numberOf(group)) + ")");
    }
    // Clients can connect from the last call on.
    expected.insert(expected.end(), {"chmod(660)", "close()", "listen(0)"});
    EXPECT_EQ(system.getMade(), expected);
    server.reset();
    system.forgetMade();
    makeServer();
    EXPECT_THAT(system.madeOf("getgrnam_r"), ElementsAre());
}

TEST_F(PipeSecurityFaultsTest, AGroupWithManyMembersIsFound) {
    set("true", group.c_str());
    FakeSystem system;
    system.on("getgrnam_r", {returning(ERANGE), returning(EINTR), returning(ERANGE), returning(EINTR), passing()});
    EXPECT_EQ(makeServer(), (Lines{CREATE_ACCESS, CREATED}));
    EXPECT_EQ(system.madeOf("getgrnam_r"),
              (Lines{"getgrnam_r(" + group + ", 1024)", "getgrnam_r(" + group + ", 4096)",
                     "getgrnam_r(" + group + ", 4096)", "getgrnam_r(" + group + ", 16384)",
                     "getgrnam_r(" + group + ", 16384)"}));
    EXPECT_EQ(modeOf("pipe"), 0660U);
    EXPECT_EQ(groupOf("pipe"), numberOf(group));
}

TEST_F(PipeSecurityFaultsTest, AGroupThatNoMemoryIsEnoughForIsNone) {
    set("true", group.c_str());
    FakeSystem system;
    const std::vector<Answer> eightTimes(8, returning(ERANGE));
    system.on("getgrnam_r", eightTimes);
    EXPECT_EQ(makeServer(), (Lines{CREATE_ACCESS, NO_GROUP + "34", CREATED}));
    EXPECT_EQ(modeOf("pipe"), 0600U);
}

TEST_F(PipeSecurityFaultsTest, AGroupThatCannotBeLookedUpIsNone) {
    for (const int error : {EIO, EMFILE, ENFILE, ENOMEM, ENOENT, ESRCH}) {
        set("true", group.c_str());
        FakeSystem system;
        system.on("getgrnam_r", {returning(error)});
        EXPECT_EQ(makeServer(), (Lines{CREATE_ACCESS, NO_SIZE + std::to_string(error), CREATED}));
        EXPECT_EQ(modeOf("pipe"), 0600U);
        server.reset();
        Platform::forgetPipeAccess();
        system.on("getgrnam_r", {returning(ERANGE), returning(error)});
        EXPECT_EQ(makeServer(), (Lines{CREATE_ACCESS, NO_GROUP + std::to_string(error), CREATED}));
        EXPECT_EQ(modeOf("pipe"), 0600U);
        server.reset();
        Platform::forgetPipeAccess();
    }
}

/// Replaces the socket in the moment in which the server opens it to give it its access.
class SwapTest : public PipeSecurityFaultsTest {
 protected:
    /// What is put there has the name `victim` as well, keeps its access, and stays where it is.
    void expectNoAccess(const std::function<void()>& swap) {
        const struct stat before = statusOf("victim");
        FakeSystem system;
        system.on("open", {passing(), passing([&] {
                               std::filesystem::remove(pipe);
                               swap();
                           })});
        LogCapture log;
        EXPECT_THROW(ServerCvPipe("pipe", true, true), BindException);
        EXPECT_EQ(log.texts(), (Lines{CREATE_ACCESS, "ERROR: Initialize a security descriptor. Error: 1",
                                      "ERROR: CreateNamedPipe failed: 98"}));
        EXPECT_EQ(modeOf("victim"), before.st_mode & 07777U);
        EXPECT_EQ(groupOf("victim"), before.st_gid);
        EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe", "victim"));
        std::filesystem::remove(pipe);
    }

    const std::string pipe = folder.file("pipe");
    const std::string victim = folder.file("victim");
};

TEST_F(SwapTest, AFileThatHasTakenThePlaceOfTheSocketGetsNoAccess) {
    set("true", group.c_str());
    std::FILE* const file = std::fopen(victim.c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    expectNoAccess([&] { std::filesystem::create_symlink(victim, pipe); });
    expectNoAccess([&] { std::filesystem::create_hard_link(victim, pipe); });
    expectedFiles = {"victim"};
}

TEST_F(SwapTest, TheSocketOfAnotherServiceThatHasTakenThePlaceOfTheSocketGetsNoAccess) {
    set("true", group.c_str());
    const Platform::FileDescriptor other = Platform::SocketCalls::createSocket();
    ASSERT_EQ(Platform::SocketCalls::bindTo(other.get(), Platform::SocketCalls::socketAddress(victim)), 0);
    // As the service wants it.
    ASSERT_EQ(::chmod(victim.c_str(), 0600), 0);
    expectNoAccess([&] { std::filesystem::create_symlink(victim, pipe); });
    expectNoAccess([&] { std::filesystem::create_hard_link(victim, pipe); });
    expectedFiles = {"victim"};
}

TEST_F(PipeSecurityFaultsTest, NothingIsLeftOfAServerThatCouldNotBeMadeAfterThat) {
    set("true", group.c_str());
    struct Step {
        const char* call;
        std::vector<Answer> answers;
    };
    for (const Step& step : {Step{"socket", {failure(EMFILE)}}, Step{"socket", {passing(), failure(EMFILE)}},
                             Step{"bind", {failure(EMFILE)}}, Step{"bind", {passing(), failure(EMFILE)}},
                             Step{"listen", {failure(EMFILE)}}}) {
        FakeSystem system;
        if (step.answers.size() > 1) {
            system.on("chmod", {failure(EPERM)});
        }
        system.on(step.call, step.answers);
        LogCapture log(1);
        EXPECT_THROW(ServerCvPipe("pipe", true, true), BindException);
        EXPECT_TRUE(log.has("ERROR: CreateNamedPipe failed: 24"));
        EXPECT_THAT(folder.names(), ElementsAre());
        Platform::forgetPipeAccess();
    }
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
