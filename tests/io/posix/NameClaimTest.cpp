#include "io/platform/posix/NameClaim.h"

#include <gmock/gmock.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "io/platform/posix/SocketCalls.h"
#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class NameClaimTest : public PipeTest {
 protected:
    void makeFile(const std::string& name) {
        std::FILE* const file = std::fopen(folder.file(name).c_str(), "w");
        ASSERT_NE(file, nullptr);
        std::fclose(file);
    }
    void makeSocket(const std::string& name) {
        const Platform::FileDescriptor socket = Platform::SocketCalls::createSocket();
        ASSERT_EQ(
            Platform::SocketCalls::bindTo(socket.get(), Platform::SocketCalls::socketAddress(folder.file(name))),
            0);
    }
    ino_t inodeOf(const std::string& name) {
        struct stat status {};
        EXPECT_EQ(::lstat(folder.file(name).c_str(), &status), 0) << name;
        return status.st_ino;
    }
    static bool canBind(const std::string& name = "pipe", bool readable = true, bool writable = true) {
        try {
            ServerCvPipe server(name, readable, writable);
            return true;
        } catch (BindException&) {
            return false;
        }
    }
    /// `name` is in the way of a server: it fails, says so and leaves it as it is.
    void expectInTheWay(const std::string& name, const std::string& expected, int code, bool writable = true) {
        const ino_t inode = inodeOf(name);
        LogCapture log;
        EXPECT_FALSE(canBind("pipe", true, writable));
        EXPECT_EQ(log.texts(), (Lines{"ERROR: Pipe file " + folder.file(name) +
                                          " is in the way and left alone: it is not " + expected + " of this user.",
                                      "ERROR: CreateNamedPipe failed: " + std::to_string(code)}));
        EXPECT_EQ(inodeOf(name), inode);
        EXPECT_THAT(folder.names(), UnorderedElementsAre(name));
    }
    static void connectAndAccept(ServerCvPipe& server, bool readsToo = true) {
        CvPipe client("pipe", readsToo, true);
        CvPipe accepted;
        server.accept(accepted);
    }
};

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

TEST_F(NameClaimTest, NamesThatDifferByTheCaseOfLettersAreOne) {
    ServerCvPipe server("MyService", true, true);
    CvPipe client("mYsERVICE", true, true);
    CvPipe accepted;
    server.accept(accepted);
    EXPECT_FALSE(canBind("myservice"));
}

TEST_F(NameClaimTest, EveryNameWorks) {
    std::string all;
    for (int c = 1; c < 256; ++c) {
        all += c == '\\' ? std::string() : std::string(1, static_cast<char>(c));
    }
    const std::string LONG(255, 'n');
    const std::vector<std::string> names = {all,
                                            "../x",
                                            "..",
                                            ".",
                                            "/",
                                            "/etc/x",
                                            "a/../../b",
                                            LONG + "1",
                                            LONG + "2",
                                            " ",
                                            " a b ",
                                            "x",
                                            std::string(100, 'n'),
                                            std::string(100, '/'),
                                            "Gr\xC3\xBC\xC3\x9F"
                                            "e \xE6\x97\xA5",
                                            "SERVICE",
                                            "service"};
    for (const std::string& name : names) {
        ServerCvPipe server(name, true, true);
        CvPipe client(name, true, true);
        CvPipe accepted;
        server.accept(accepted);
        EXPECT_EQ(folder.names().size(), 2u);
        EXPECT_THROW(CvPipe(LONG + "3", true, true), ConnectException);
    }
}

TEST_F(NameClaimTest, AWrongNameIsRefusedAndLogged) {
    const std::string REASON = "' refused: it must have 1 to 256 bytes and neither a backslash nor a NUL.";
    LogCapture log;
    Lines expected;
    const std::vector<std::pair<std::string, std::string>> namesAndHowTheyAreShown = {
        {std::string("a\0\nb", 4), "a  b"},
        {"a\\b", "a\\b"},
        {"\\", "\\"},
        {std::string(257, 'x'), std::string(256, 'x')}};
    for (const auto& [name, shown] : namesAndHowTheyAreShown) {
        EXPECT_FALSE(canBind(name));
        EXPECT_EQ(messageOf<ConnectException>([&, &name = name] { CvPipe(name, true, true); }),
                  "Could not connect to pipe.");
        expected.insert(expected.end(),
                        {"ERROR: Pipe name '" + shown + REASON, "ERROR: CreateNamedPipe failed: 22",
                         "ERROR: Pipe name '" + shown + REASON, "ERROR: Could not open pipe. GLE=22"});
    }
    // A client without a name is not even bound.
    EXPECT_FALSE(canBind(""));
    expected.insert(expected.end(), {"ERROR: Pipe name '" + REASON, "ERROR: CreateNamedPipe failed: 22"});
    EXPECT_EQ(log.texts(), expected);
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(NameClaimTest, AFolderWithoutRoomForASocketIsRefused) {
    const std::string deep = folder.file(std::string(100, 'd'));
    std::filesystem::create_directory(deep);
    ::setenv("CVTP_PIPE_DIR", deep.c_str(), 1);
    LogCapture log;
    EXPECT_FALSE(canBind());
    EXPECT_EQ(log.texts(), (Lines{"ERROR: Pipe folder " + deep + "/ refused: its path is too long for a socket.",
                                  "ERROR: CreateNamedPipe failed: 36"}));
}

TEST_F(NameClaimTest, WhatAKilledServerLeftIsCleared) {
    makeSocket("pipe");
    makeFile(".pipe.lock");
    std::filesystem::create_symlink("readable", folder.file(".pipe.direction"));
    ServerCvPipe server("pipe", true, true);
    EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe", ".pipe.lock"));
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

TEST_F(NameClaimTest, AServerWhoseFilesWereSweptAwayDoesNotHarmTheNext) {
    auto swept = std::make_unique<ServerCvPipe>("pipe", true, true);
    std::filesystem::remove(folder.file("pipe"));
    std::filesystem::remove(folder.file(".pipe.lock"));
    ServerCvPipe next("pipe", true, true);
    swept.reset();
    connectAndAccept(next);
    EXPECT_FALSE(canBind());
}

TEST_F(NameClaimTest, AKilledServersNameIsFreeAtOnce) {
    for (int round = 0; round < 5; ++round) {
        Gate bound;
        ChildProcess child([&] {
            ServerCvPipe server("pipe", true, false);
            bound.open();
            for (;;) {
                ::pause();
            }
            return 0;
        });
        bound.pass();
        EXPECT_FALSE(canBind());
        child.kill();
        EXPECT_THROW(CvPipe("pipe", false, true), ConnectException);
        EXPECT_EQ(folder.names().size(), 3u);
        ServerCvPipe server("pipe", true, true);
        connectAndAccept(server);
    }
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(NameClaimTest, AForkedChildTakesNothingFromItsParent) {
    Connection connection;
    ChildProcess child([&] {
        connection.server.close();
        connection.client.close();
        connection.accepted.close();
        return 0;
    });
    EXPECT_EQ(child.wait(), 0);
    writeText(connection.client, "alive");
    EXPECT_EQ(readSome(connection.accepted), "alive");
    EXPECT_FALSE(canBind());
    connectAndAccept(connection.server);
}

TEST_F(NameClaimTest, TheLockOfAFileThatItsServerHasJustRemovedCountsForNothing) {
    ServerCvPipe closing("pipe", true, true);
    FakeSystem system;
    system.on("flock", {passing([&] { closing.close(); })});
    ServerCvPipe server("pipe", true, true);
    EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe", ".pipe.lock"));
    EXPECT_FALSE(canBind());
    connectAndAccept(server);
}

TEST_F(NameClaimTest, TheLockOfAFileThatAnotherServerHasReplacedCountsForNothing) {
    ServerCvPipe closing("pipe", true, true);
    std::unique_ptr<ServerCvPipe> next;
    FakeSystem system;
    system.on("flock", {passing([&] {
                  closing.close();
                  next = std::make_unique<ServerCvPipe>("pipe", true, true);
              })});
    EXPECT_FALSE(canBind());
    ASSERT_NE(next, nullptr);
    connectAndAccept(*next);
}

TEST_F(NameClaimTest, OfServersThatRaceForANameExactlyOneWins) {
    const int THREADS = 6;
    const int ROUNDS = 300;
    for (int round = 0; round < ROUNDS; ++round) {
        std::atomic<int> ready{0};
        std::atomic<int> winners{0};
        std::vector<std::unique_ptr<ServerCvPipe>> servers(THREADS);
        std::vector<std::thread> threads;
        if (round % 2 == 0) {
            makeSocket("pipe");
        }
        for (int i = 0; i < THREADS; ++i) {
            threads.emplace_back([&, i] {
                servers[static_cast<std::size_t>(i)] = std::make_unique<ServerCvPipe>();
                ++ready;
                while (ready.load() < THREADS) {
                    std::this_thread::yield();
                }
                try {
                    servers[static_cast<std::size_t>(i)]->bind("pipe", true, true);
                    ++winners;
                } catch (BindException&) {
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(winners.load(), 1) << "round " << round;
        CvPipe("pipe", true, true);
    }
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(NameClaimTest, ServersThatComeAndGoNeverHoldANameTogether) {
    const int THREADS = 4;
    std::atomic<int> holders{0};
    std::atomic<int> binds{0};
    std::atomic<bool> together{false};
    std::vector<std::thread> threads;
    for (int i = 0; i < THREADS; ++i) {
        threads.emplace_back([&] {
            for (int attempt = 0; attempt < 1500; ++attempt) {
                try {
                    ServerCvPipe server("pipe", true, attempt % 2 == 0);
                    together = together || ++holders > 1;
                    ++binds;
                    connectAndAccept(server, attempt % 2 == 0);
                    --holders;
                } catch (BindException&) {
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(together);
    EXPECT_GT(binds.load(), 0);
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(NameClaimTest, OfProcessesThatRaceForANameExactlyOneWins) {
    const int PROCESSES = 6;
    for (int round = 0; round < 20; ++round) {
        Gate start;
        Gate done;
        Gate leave;
        std::vector<std::unique_ptr<ChildProcess>> children;
        for (int i = 0; i < PROCESSES; ++i) {
            children.push_back(std::make_unique<ChildProcess>([&] {
                ServerCvPipe server;
                start.pass();
                int won = 1;
                try {
                    server.bind("pipe", true, true);
                } catch (BindException&) {
                    won = 0;
                }
                done.open();
                leave.pass();
                return won;
            }));
        }
        start.open(PROCESSES);
        for (int i = 0; i < PROCESSES; ++i) {
            done.pass();
        }
        leave.open(PROCESSES);
        int winners = 0;
        for (const auto& child : children) {
            winners += child->wait();
        }
        // Each ended as if it had been killed, so each round but the first meets leftovers.
        ASSERT_EQ(winners, 1);
    }
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
