#include "tests/io/posix/NameClaimTest.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

TEST_F(NameClaimTest, TheFilesComeAndGoWithTheServer) {
    {
        ServerCvPipe server("Pipe", true, true);
        EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe", ".pipe.lock"));
        ServerCvPipe oneWay("one/way", true, false);
        EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe", ".pipe.lock", "one%2Fway", ".one%2Fway.lock",
                                                         ".one%2Fway.direction"));
        EXPECT_EQ(std::filesystem::read_symlink(folder.file(".one%2Fway.direction")), "readable");
    }
    EXPECT_THAT(folder.names(), IsEmpty());
    ServerCvPipe oneWay("pipe", false, true);
    EXPECT_EQ(std::filesystem::read_symlink(folder.file(".pipe.direction")), "writable");
}

TEST_F(NameClaimTest, TheSocketHasTheModeOfTheUmask) {
    const mode_t before = ::umask(027);
    ServerCvPipe server("pipe", true, true);
    ::umask(before);
    struct stat status {};
    ASSERT_EQ(::lstat(folder.file("pipe").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0750U);
    ASSERT_EQ(::lstat(folder.file(".pipe.lock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
}

TEST_F(NameClaimTest, WhatAKilledServerLeftIsCleared) {
    makeSocket("pipe");
    makeFile(".pipe.lock");
    std::filesystem::create_symlink("readable", folder.file(".pipe.direction"));
    ServerCvPipe server("pipe", true, true);
    EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe", ".pipe.lock"));
    connectAndAccept(server);
}

TEST_F(NameClaimTest, TheSocketOfAnotherServiceOfTheUserIsLeftAlone) {
    const sockaddr_un address = Platform::SocketCalls::socketAddress(folder.file("pipe"));
    for (const int type : {SOCK_STREAM, SOCK_SEQPACKET, SOCK_DGRAM}) {
        const Platform::FileDescriptor service(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
        ASSERT_EQ(Platform::SocketCalls::bindTo(service.get(), address), 0);
        if (type != SOCK_DGRAM) {
            ASSERT_EQ(::listen(service.get(), 0), 0);
        }
        // The second server finds the place of the first taken.
        expectRefusal("pipe", "somebody listens at it", 98);
        expectRefusal("pipe", "somebody listens at it", 98);
        std::filesystem::remove(folder.file("pipe"));
    }
}

TEST_F(NameClaimTest, AServerKeepsItsNameWhenItsLockFileIsSweptAway) {
    ServerCvPipe server("pipe", true, true);
    std::filesystem::remove(folder.file(".pipe.lock"));
    expectRefusal("pipe", "somebody listens at it", 98);
    // It has seen a client that has gone again.
    server.setAcceptTimeout(10000);
    CvPipe seen;
    server.accept(seen);
    EXPECT_EQ(readSome(seen), "end of data");
    connectAndAccept(server);
}

TEST_F(NameClaimTest, WhatIsNoSocketIsLeftAlone) {
    makeFile("pipe");
    expectInTheWay("pipe", "a socket", 98);
}

TEST_F(NameClaimTest, ALinkInThePlaceOfTheSocketIsNotFollowed) {
    TemporaryFolder elsewhere;
    std::filesystem::create_symlink(elsewhere.file("target"), folder.file("pipe"));
    expectInTheWay("pipe", "a socket", 98);
    EXPECT_THAT(elsewhere.names(), IsEmpty());
}

TEST_F(NameClaimTest, ALinkInThePlaceOfTheLockFileIsNotFollowed) {
    TemporaryFolder elsewhere;
    std::filesystem::create_symlink(elsewhere.file("target"), folder.file(".pipe.lock"));
    expectInTheWay(".pipe.lock", "a lock file", 40);
    EXPECT_THAT(elsewhere.names(), IsEmpty());
}

TEST_F(NameClaimTest, AnotherFilesNameInThePlaceOfTheLockFileIsLeftAlone) {
    // Somebody else has given a file of this user's a second name, so that it would be locked.
    TemporaryFolder elsewhere;
    const std::string victim = elsewhere.file("victim");
    const Platform::FileDescriptor file(::open(victim.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    ASSERT_TRUE(file.isOpen());
    std::filesystem::create_hard_link(victim, folder.file(".pipe.lock"));
    expectInTheWay(".pipe.lock", "a lock file", 1);
    EXPECT_TRUE(std::filesystem::exists(victim));
}

TEST_F(NameClaimTest, AFifoOrAFolderInThePlaceOfTheLockFileIsLeftAlone) {
    ASSERT_EQ(::mkfifo(folder.file(".pipe.lock").c_str(), 0600), 0);
    expectInTheWay(".pipe.lock", "a lock file", 1);
    std::filesystem::remove(folder.file(".pipe.lock"));
    std::filesystem::create_directory(folder.file(".pipe.lock"));
    expectInTheWay(".pipe.lock", "a lock file", 21);
}

TEST_F(NameClaimTest, AFileInThePlaceOfTheDirectionLinkIsLeftAlone) {
    makeFile(".pipe.direction");
    expectInTheWay(".pipe.direction", "a direction link", 98, false);
    // Whoever does not need the place does not mind.
    EXPECT_TRUE(canBind());
    EXPECT_THAT(folder.names(), UnorderedElementsAre(".pipe.direction"));
}

TEST_F(NameClaimTest, AStrangersFilesAreLeftAlone) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    makeSocket("pipe");
    ASSERT_EQ(::chown(folder.file("pipe").c_str(), NOBODY, NOBODY), 0);
    expectInTheWay("pipe", "a socket", 98);
    std::filesystem::remove(folder.file("pipe"));
    makeFile(".pipe.lock");
    ASSERT_EQ(::chown(folder.file(".pipe.lock").c_str(), NOBODY, NOBODY), 0);
    expectInTheWay(".pipe.lock", "a lock file", 1);
}

TEST_F(NameClaimTest, AnotherUsersServerKeepsItsNameInASharedFolder) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    ASSERT_EQ(::chmod(folder.getPath().c_str(), 01777), 0);
    ServerCvPipe server("pipe", true, true);
    LogCapture log;
    ChildProcess stranger([] { return ::setuid(NOBODY) == 0 && !canBind() && canBind("other") ? 0 : 1; });
    EXPECT_EQ(stranger.wait(), 0);
    EXPECT_TRUE(log.has("ERROR: Pipe file " + folder.file(".pipe.lock") +
                        " is in the way and left alone: it is not a lock file of this user."));
    EXPECT_TRUE(log.has("ERROR: CreateNamedPipe failed: 13"));
    connectAndAccept(server);
}

TEST_F(NameClaimTest, AStrangersDirectionLinkKeepsNobodyAway) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a file away";
    }
    const std::string link = folder.file(".pipe.direction");
    std::filesystem::create_symlink("readable", link);
    ASSERT_EQ(::lchown(link.c_str(), NOBODY, NOBODY), 0);
    {
        ServerCvPipe server("pipe", true, true);
        connectAndAccept(server);
    }
    expectInTheWay(".pipe.direction", "a direction link", 98, false);
}

TEST_F(NameClaimTest, AFileThatHasTakenThePlaceOfTheSocketStays) {
    {
        ServerCvPipe server("pipe", true, true);
        std::filesystem::remove(folder.file("pipe"));
        makeFile("pipe");
    }
    EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe"));
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
