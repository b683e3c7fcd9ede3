// Servers that race for a name, come and go, are killed, or fork.

#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/io/posix/NameClaimTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

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
