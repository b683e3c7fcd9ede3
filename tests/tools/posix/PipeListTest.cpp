#include "tools/cvtp/platform/PipeList.h"

#include <gmock/gmock.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "io/platform/posix/SocketCalls.h"
#include "tests/io/posix/PosixTest.h"

namespace Corvane {
namespace Tools {

bool operator==(const ListedPipe& left, const ListedPipe& right) {
    return left.name == right.name && left.server == right.server && left.user == right.user;
}

std::ostream& operator<<(std::ostream& out, const ListedPipe& pipe) {
    return out << pipe.name << " of " << pipe.user << ", server " << static_cast<int>(pipe.server);
}

}  // namespace Tools

namespace Testing {
namespace {

using namespace Io;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Tools::ListedPipe;
using Tools::listPipes;

std::string ownName() {
    const struct passwd* const entry = ::getpwuid(::geteuid());
    return entry == nullptr ? std::to_string(::geteuid()) : entry->pw_name;
}

ListedPipe live(const std::string& name, const std::string& user = ownName()) {
    return {name, ListedPipe::Server::LIVES, user};
}
ListedPipe dead(const std::string& name, const std::string& user = ownName()) {
    return {name, ListedPipe::Server::NONE, user};
}

using PipeListTest = PipeTest;

/// A server that is there until it is killed.
class KilledServer {
 public:
    explicit KilledServer(const std::string& name)
        : process([&] {
              ServerCvPipe server(name, true, false);
              bound.open();
              for (;;) {
                  ::pause();
              }
              return 0;
          }) {
        bound.pass();
    }
    void kill() { process.kill(); }

 private:
    Gate bound;
    ChildProcess process;
};

TEST_F(PipeListTest, ShowsPipesByTheirNamesInOrder) {
    EXPECT_THAT(listPipes(false), IsEmpty());
    ServerCvPipe second("zwei", true, true);
    ServerCvPipe first("One", true, true);
    EXPECT_THAT(listPipes(false), ElementsAre(live("one"), live("zwei")));
    first.close();
    EXPECT_THAT(listPipes(true), ElementsAre(live("zwei")));
}

TEST_F(PipeListTest, NamesAreShownAsTheyWereGiven) {
    const std::string UTF8 =
        "gr\xC3\xBC\xC3\x9F"
        "e";
    ServerCvPipe slashes("../a/b", true, true);
    ServerCvPipe blanks(" a b%2f", true, true);
    ServerCvPipe letters(UTF8, true, true);
    EXPECT_THAT(listPipes(false), ElementsAre(live(" a b%2f"), live("../a/b"), live(UTF8)));
}

TEST_F(PipeListTest, ALongNameIsShownAsItsDigest) {
    ServerCvPipe server(std::string(256, 'n'), true, true);
    const std::vector<ListedPipe> pipes = listPipes(false);
    ASSERT_EQ(pipes.size(), 1u);
    EXPECT_EQ(pipes[0].name.substr(0, 8), "%sha256-");
    EXPECT_EQ(pipes[0], live(pipes[0].name));
}

TEST_F(PipeListTest, TellsAKilledServerFromALivingOne) {
    ServerCvPipe living("living", true, true);
    KilledServer killed("killed");
    EXPECT_THAT(listPipes(false), ElementsAre(live("killed"), live("living")));
    killed.kill();
    EXPECT_THAT(listPipes(false), ElementsAre(dead("killed"), live("living")));
}

TEST_F(PipeListTest, DisturbsNoServer) {
    ServerCvPipe server("pipe", true, true);
    server.setAcceptTimeout(50);
    listPipes(true);
    CvPipe accepted;
    EXPECT_THROW(server.accept(accepted), TimeoutException);
}

TEST_F(PipeListTest, ASocketThatNoServerHasLockedIsUnknown) {
    const Platform::FileDescriptor socket = Platform::SocketCalls::createSocket();
    ASSERT_EQ(
        Platform::SocketCalls::bindTo(socket.get(), Platform::SocketCalls::socketAddress(folder.file("other"))), 0);
    std::filesystem::create_directory(folder.file("folder"));
    std::filesystem::create_symlink("other", folder.file("link"));
    EXPECT_THAT(listPipes(false), ElementsAre(ListedPipe{"other", ListedPipe::Server::UNKNOWN, ownName()}));
}

TEST_F(PipeListTest, EveryUserSeesEveryUsersPipes) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const unsigned USER = 1900000001;
    ASSERT_EQ(::chmod(folder.getPath().c_str(), 01777), 0);
    ServerCvPipe own("own", true, true);
    Gate bound;
    ChildProcess other([&] {
        if (::setgid(USER) == 0 && ::setuid(USER) == 0) {
            ServerCvPipe server("other", true, true);
            bound.open();
            for (;;) {
                ::pause();
            }
        }
        bound.open();
        return 1;
    });
    bound.pass();
    // A user without a name is shown by his number.
    const std::vector<ListedPipe> expected = {live("other", std::to_string(USER)), live("own")};
    EXPECT_EQ(listPipes(false), expected);
    ChildProcess stranger(
        [&] { return ::setgid(NOBODY) == 0 && ::setuid(NOBODY) == 0 && listPipes(false) == expected ? 0 : 1; });
    EXPECT_EQ(stranger.wait(), 0);
    other.kill();
    EXPECT_THAT(listPipes(false), ElementsAre(dead("other", std::to_string(USER)), live("own")));
}

TEST_F(PipeListTest, AFolderThatIsNotThereHasNoPipesUnlessItWasAskedFor) {
    ::setenv("CVTP_PIPE_DIR", folder.file("none").c_str(), 1);
    try {
        listPipes(false);
        ADD_FAILURE() << "it was asked for";
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(),
                  "the pipe folder '" + folder.file("none") + "' cannot be used: No such file or directory");
    }
    if (std::filesystem::exists("/run/cvtp")) {
        return;
    }
    ::setenv("CVTP_PIPE_DIR", "", 1);
    ::setenv("XDG_RUNTIME_DIR", folder.getPath().c_str(), 1);
    EXPECT_THAT(listPipes(false), IsEmpty());
    EXPECT_THAT(folder.names(), IsEmpty());
    std::filesystem::create_directory(folder.file("cvtp"));
    ASSERT_EQ(::chmod(folder.file("cvtp").c_str(), 0777), 0);
    EXPECT_THROW(listPipes(false), std::runtime_error);
    ::unsetenv("XDG_RUNTIME_DIR");
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
