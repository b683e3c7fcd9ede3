#include "io/platform/posix/PipeSecurity.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/io/posix/AccessTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::IsSubsetOf;

class PipeSecurityTest : public AccessTest {
 protected:
    /// The log of making a server, but for the line that says it was made.
    Lines makeServer() {
        LogCapture log;
        server = std::make_unique<ServerCvPipe>("pipe", true, true);
        Lines lines = maskedTexts(log);
        EXPECT_EQ(lines.back(), "DEBUG: bindPipe: handle=N event=-1");
        lines.pop_back();
        return lines;
    }
    void expectAccess(unsigned mode, gid_t group) {
        EXPECT_EQ(modeOf("pipe"), mode);
        EXPECT_EQ(groupOf("pipe"), group);
        // Only the server itself looks at this one.
        EXPECT_EQ(modeOf(".pipe.lock"), 0600U);
        // And it is a pipe.
        CvPipe client("pipe", true, true);
        CvPipe accepted;
        server->accept(accepted);
        writeText(client, "text");
        EXPECT_EQ(readSome(accepted), "text");
    }
    void TearDown() override {
        server.reset();
        FaultTest::TearDown();
    }

    std::unique_ptr<ServerCvPipe> server;
    const std::string group = otherGroup();
};

TEST_F(PipeSecurityTest, WithoutTheVariablesTheUmaskDecidesAndNothingIsLogged) {
    EXPECT_EQ(makeServer(), Lines{});
    expectAccess(DEFAULT_MODE, ::getegid());
    ::umask(0);
    server.reset();
    EXPECT_EQ(makeServer(), Lines{});
    expectAccess(0777, ::getegid());
}

TEST_F(PipeSecurityTest, OnlyTheWordTrueIsTrue) {
    for (const char* const text :
         {"1", "", "yes", "on", "t", "tru", "true ", " true", "truee", "false", "TRUE\n"}) {
        set(text, nullptr);
        EXPECT_EQ(makeServer(), Lines{}) << text;
        expectAccess(DEFAULT_MODE, ::getegid());
        server.reset();
    }
    for (const char* const text : {"true", "TRUE", "True", "tRuE"}) {
        set(text, "");
        EXPECT_EQ(makeServer(), Lines{CREATE_ACCESS}) << text;
        expectAccess(0660, ::getegid());
        server.reset();
        Platform::forgetPipeAccess();
    }
}

TEST_F(PipeSecurityTest, TheProcessesGroupGetsAccessWhateverGroupTheFolderHandsDown) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give the folder to any group";
    }
    ASSERT_EQ(::chown(folder.getPath().c_str(), 0, numberOf(group)), 0);
    ASSERT_EQ(::chmod(folder.getPath().c_str(), 02755), 0);
    makeServer();
    ASSERT_EQ(groupOf("pipe"), numberOf(group)) << "the folder hands its group down";
    server.reset();
    set("true", nullptr);
    EXPECT_EQ(makeServer(), Lines{CREATE_ACCESS});
    expectAccess(0660, ::getegid());
}

struct AccessCase {
    const char* permission;
    std::string group;
    unsigned mode;
    gid_t groupOfFile;
    Lines lines;
};

TEST_F(PipeSecurityTest, EachPairOfTheVariablesGivesTheAccessThatIsAskedFor) {
    const unsigned umaskMode = DEFAULT_MODE;
    const gid_t own = ::getegid();
    const gid_t named = numberOf(group);
    const std::string missing = "no-such-group";
    const Lines found = {CREATE_ACCESS};
    const Lines notFound = {CREATE_ACCESS,
                            "ERROR: LookupAccountName to get buffer size failed. GetLastError returned:: 2"};
    // A group without the permission is set all the same, and has no access.
    for (const AccessCase& one : std::vector<AccessCase>{{nullptr, "", umaskMode, own, {}},
                                                         {"false", "", umaskMode, own, {}},
                                                         {"1", "", umaskMode, own, {}},
                                                         {"TRUE", "", 0660, own, found},
                                                         {nullptr, group, 0600, named, found},
                                                         {"false", group, 0600, named, found},
                                                         {"1", group, 0600, named, found},
                                                         {"TRUE", group, 0660, named, found},
                                                         {nullptr, missing, 0600, own, notFound},
                                                         {"false", missing, 0600, own, notFound},
                                                         {"1", missing, 0600, own, notFound},
                                                         {"TRUE", missing, 0600, own, notFound}}) {
        SCOPED_TRACE(std::string(one.permission == nullptr ? "null" : one.permission) + " '" + one.group + "'");
        set(one.permission, one.group.c_str());
        EXPECT_EQ(makeServer(), one.lines);
        expectAccess(one.mode, one.groupOfFile);
        server.reset();
        Platform::forgetPipeAccess();
    }
}

TEST_F(PipeSecurityTest, TheAccessOfTheUserAloneForWantOfTheGroupIsKept) {
    set("true", "no-such-group");
    makeServer();
    server.reset();
    // That is an access like any other.
    set(nullptr, nullptr);
    EXPECT_EQ(makeServer(), Lines{});
    expectAccess(0600, ::getegid());
}

TEST_F(PipeSecurityTest, TheFirstAccessServesTheWholeProcess) {
    set("true", group.c_str());
    EXPECT_EQ(makeServer(), Lines{CREATE_ACCESS});
    for (const char* const permission : std::vector<const char*>{nullptr, "false", "true"}) {
        set(permission, nullptr);
        server.reset();
        EXPECT_EQ(makeServer(), Lines{});
        expectAccess(0660, numberOf(group));
    }
}

TEST_F(PipeSecurityTest, TheDefaultIsNotKept) {
    makeServer();
    server.reset();
    set("true", nullptr);
    EXPECT_EQ(makeServer(), Lines{CREATE_ACCESS});
    expectAccess(0660, ::getegid());
}

TEST_F(PipeSecurityTest, AnUmaskTakesNothingAwayFromTheUserOrTheGroup) {
    ::umask(0777);
    ASSERT_EQ(::chmod(folder.getPath().c_str(), 0700), 0);
    set("true", nullptr);
    server = std::make_unique<ServerCvPipe>("pipe", true, true);
    ::umask(UMASK);
    EXPECT_EQ(modeOf("pipe"), 0660U);
    server.reset();
    Platform::forgetPipeAccess();
    set(nullptr, group.c_str());
    ::umask(0777);
    server = std::make_unique<ServerCvPipe>("pipe", true, true);
    ::umask(UMASK);
    EXPECT_EQ(modeOf("pipe"), 0600U);
}

TEST_F(PipeSecurityTest, APipeOfOneDirectionGetsTheSameAccess) {
    set("true", group.c_str());
    server = std::make_unique<ServerCvPipe>("pipe", true, false);
    EXPECT_EQ(modeOf("pipe"), 0660U);
    EXPECT_EQ(groupOf("pipe"), numberOf(group));
}

TEST_F(PipeSecurityTest, ThreadsThatStartServersTogetherBuildTheAccessOnce) {
    const int THREADS = 8;
    set("true", group.c_str());
    LogCapture log;
    std::atomic<int> ready{0};
    std::vector<std::unique_ptr<ServerCvPipe>> servers(THREADS);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < servers.size(); ++i) {
        threads.emplace_back([&, i] {
            ++ready;
            while (ready.load() < THREADS) {
                std::this_thread::yield();
            }
            servers[i] = std::make_unique<ServerCvPipe>("pipe" + std::to_string(i), true, true);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(log.count(CREATE_ACCESS), 1);
    for (int i = 0; i < THREADS; ++i) {
        EXPECT_EQ(modeOf("pipe" + std::to_string(i)), 0660U);
        EXPECT_EQ(groupOf("pipe" + std::to_string(i)), numberOf(group));
    }
}

/// Mode and group that the socket file had at some moment.
using Seen = std::set<std::pair<unsigned, gid_t>>;

/// Adds what the file has now, if it is there.
void look(const std::string& file, Seen& seen) {
    struct stat status {};
    if (::lstat(file.c_str(), &status) == 0) {
        seen.emplace(status.st_mode & 07777U, status.st_gid);
    }
}

class AccessOnTheWayTest : public PipeSecurityTest, public ::testing::WithParamInterface<bool> {
 protected:
    AccessOnTheWayTest() {
        set(GetParam() ? "true" : nullptr, group.c_str());
        ::umask(0);
    }
    /// Nothing that is wider than what was asked for: another group must not have the access of this one.
    Seen allowed() const {
        Seen result = {{0600U, ::getegid()}, {0600U, numberOf(group)}};
        if (GetParam()) {
            result.emplace(0660U, numberOf(group));
        }
        return result;
    }
};

TEST_P(AccessOnTheWayTest, NoCallOfTheSystemMakesItWiderThanAsked) {
    Seen seen;
    std::size_t number = 0;
    for (bool isBeyondTheEnd = false; !isBeyondTheEnd; ++number) {
        FakeSystem system;
        system.onCallNumber(number, [&] { look(folder.file("pipe"), seen); });
        makeServer();
        look(folder.file("pipe"), seen);
        isBeyondTheEnd = !system.isActionDone();
        server.reset();
        Platform::forgetPipeAccess();
    }
    EXPECT_GT(number, 15U);
    EXPECT_THAT(seen, IsSubsetOf(allowed()));
    EXPECT_THAT(seen, ::testing::SizeIs(::testing::Ge(GetParam() ? 2U : 1U)));
}

TEST_P(AccessOnTheWayTest, AWatcherNeverSeesItWiderThanAskedWhileAThousandServersStart) {
    const int SERVERS = 1000;
    const std::string file = folder.file("pipe");
    std::atomic<bool> stopped{false};
    std::atomic<bool> hasSeen{false};
    Seen seen;
    std::thread watcher([&] {
        while (!stopped.load()) {
            look(file, seen);
            hasSeen = !seen.empty();
        }
    });
    // On a busy machine the watcher may begin late.
    for (int i = 0; i < SERVERS || !hasSeen.load(); ++i) {
        ServerCvPipe("pipe", true, true);
        if (i % 2 == 0) {
            Platform::forgetPipeAccess();
        }
    }
    stopped = true;
    watcher.join();
    EXPECT_THAT(seen, IsSubsetOf(allowed()));
    EXPECT_FALSE(seen.empty());
}

INSTANTIATE_TEST_SUITE_P(WithAndWithoutTheGroup, AccessOnTheWayTest, ::testing::Bool());

}  // namespace
}  // namespace Testing
}  // namespace Corvane
