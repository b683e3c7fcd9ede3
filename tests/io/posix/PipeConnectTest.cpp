#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "io/platform/posix/SocketCalls.h"
#include "tests/io/posix/PosixTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;

const std::string WAITING = "DEBUG: Waiting for named pipe.";

class PipeConnectTest : public PipeTest {
 protected:
    /// Runs as another user: 0 when connecting was denied in the way it should be.
    static int connectAsNobody() {
        if (::setgid(NOBODY) != 0 || ::setuid(NOBODY) != 0) {
            return 1;
        }
        try {
            CvPipe client("pipe", true, true);
            return 2;
        } catch (ConnectException& e) {
            return e.getMessage() == "Access denied." ? 0 : 3;
        }
    }
    static bool canConnect() {
        try {
            CvPipe client("pipe", true, true);
            return true;
        } catch (CvPipeException&) {
            return false;
        }
    }
    void openFolderToAll() { ASSERT_EQ(::chmod(folder.getPath().c_str(), 0755), 0); }
};

TEST_F(PipeConnectTest, AUserWithoutAccessIsDenied) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    openFolderToAll();
    const mode_t before = ::umask(077);
    ServerCvPipe server("pipe", true, true);
    ::umask(before);
    ChildProcess stranger([] { return connectAsNobody(); });
    EXPECT_EQ(stranger.wait(), 0);
    ASSERT_EQ(::chmod(folder.file("pipe").c_str(), 0666), 0);
    ChildProcess friendly([] { return connectAsNobody(); });
    EXPECT_EQ(friendly.wait(), 2);
}

TEST_F(PipeConnectTest, AFolderThatCannotBeEnteredDenies) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    ServerCvPipe server("pipe", true, true);
    ASSERT_EQ(::chmod(folder.getPath().c_str(), 0700), 0);
    ChildProcess stranger([] { return connectAsNobody(); });
    EXPECT_EQ(stranger.wait(), 0);
}

TEST_F(PipeConnectTest, WhatIsNoStreamSocketCannotBeConnected) {
    std::FILE* const file = std::fopen(folder.file("pipe").c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    LogCapture log;
    EXPECT_THROW(CvPipe("pipe", true, true), ConnectException);
    EXPECT_EQ(log.texts(), Lines{"ERROR: Could not open pipe. GLE=111"});
}

TEST_F(PipeConnectTest, SignalsNeitherShortenNorLengthenTheWaitForAPlace) {
    ServerCvPipe server("pipe", true, true);
    CvPipe first("pipe", true, true);
    SignalStorm storm(::pthread_self());
    for (const int timeout : {250, 1300}) {
        CvPipe second;
        second.setConnectTimeout(timeout);
        StopWatch watch;
        EXPECT_THROW(second.connect("pipe", true, true), TimeoutException);
        EXPECT_GE(watch.elapsed(), timeout);
        EXPECT_LT(watch.elapsed(), timeout + 8000);
    }
}

TEST_F(PipeConnectTest, AWaitLongerThanOneSliceIsServed) {
    ServerCvPipe server("pipe", true, true);
    CvPipe first("pipe", true, true);
    LogCapture log;
    auto second = std::async(std::launch::async, [] { CvPipe("pipe", true, true); });
    EXPECT_TRUE(log.waitFor(WAITING));
    EXPECT_EQ(second.wait_for(std::chrono::milliseconds(1200)), std::future_status::timeout);
    EXPECT_EQ(log.texts(), Lines{WAITING});
    CvPipe accepted;
    server.accept(accepted);
    second.get();
}

TEST_F(PipeConnectTest, AClientThatWaitedIsServedByTheRestartedServer) {
    auto server = std::make_unique<ServerCvPipe>("pipe", true, true);
    CvPipe first("pipe", true, true);
    LogCapture log;
    CvPipe second;
    auto connected = std::async(std::launch::async, [&] { second.connect("pipe", true, true); });
    ASSERT_TRUE(log.waitFor(WAITING));
    server.reset();
    EXPECT_EQ(connected.wait_for(std::chrono::milliseconds(150)), std::future_status::timeout);
    ServerCvPipe restarted("pipe", true, true);
    CvPipe accepted;
    restarted.accept(accepted);
    connected.get();
    writeText(second, "patience");
    EXPECT_EQ(readSome(accepted), "patience");
}

TEST_F(PipeConnectTest, AClientThatWaitedSurvivesTheKillOfTheServer) {
    Gate bound;
    ChildProcess child([&] {
        ServerCvPipe server("pipe", true, true);
        bound.open();
        for (;;) {
            ::pause();
        }
        return 0;
    });
    bound.pass();
    CvPipe first("pipe", true, true);
    LogCapture log;
    CvPipe second;
    auto connected = std::async(std::launch::async, [&] { second.connect("pipe", true, true); });
    ASSERT_TRUE(log.waitFor(WAITING));
    child.kill();
    ServerCvPipe restarted("pipe", true, true);
    CvPipe accepted;
    restarted.accept(accepted);
    connected.get();
    EXPECT_EQ(readSome(first), "end of data");
}

TEST_F(PipeConnectTest, AClientDoesNotWaitWithoutEndForAServerThatIsGone) {
    auto server = std::make_unique<ServerCvPipe>("pipe", true, true);
    CvPipe first("pipe", true, true);
    LogCapture log;
    auto message = std::async(std::launch::async,
                              [] { return messageOf<TimeoutException>([] { CvPipe("pipe", true, true); }); });
    ASSERT_TRUE(log.waitFor(WAITING));
    server.reset();
    EXPECT_EQ(message.get(), "Timed out connecting to pipe");
    EXPECT_TRUE(log.has("DEBUG: Could not open pipe \\\\.\\pipe\\pipe after 4294967295 milliseconds."));
}

TEST_F(PipeConnectTest, AClientThatWaitedIsDeniedByARestartedServerOfAnotherDirection) {
    auto server = std::make_unique<ServerCvPipe>("pipe", true, true);
    CvPipe first("pipe", true, true);
    for (const bool serverReads : {true, false}) {
        LogCapture log;
        auto message = std::async(std::launch::async, [=] {
            return messageOf<ConnectException>([=] { CvPipe("pipe", serverReads, !serverReads); });
        });
        ASSERT_TRUE(log.waitFor(WAITING));
        server.reset();
        server = std::make_unique<ServerCvPipe>("pipe", serverReads, !serverReads);
        EXPECT_EQ(message.get(), "Access denied.");
        // For the next round, which needs a server of both directions that has no place.
        server.reset();
        server = std::make_unique<ServerCvPipe>("pipe", true, true);
        first.close();
        first.connect();
    }
}

TEST_F(PipeConnectTest, AStrangersLinkToASocketIsNotFollowed) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a link away";
    }
    openFolderToAll();
    const mode_t before = ::umask(0);
    ServerCvPipe server("target", true, true);
    ::umask(before);
    const std::string link = folder.file("pipe");
    std::filesystem::create_symlink("target", link);
    // It is the own one of the first, and root's for the other.
    for (const unsigned user : {0U, NOBODY}) {
        ChildProcess client([user] { return ::setuid(user) == 0 && canConnect() ? 0 : 1; });
        EXPECT_EQ(client.wait(), 0) << user;
        CvPipe accepted;
        server.accept(accepted);
    }
    ASSERT_EQ(::lchown(link.c_str(), NOBODY, NOBODY), 0);
    server.setAcceptTimeout(20);
    LogCapture log(1);
    EXPECT_EQ(messageOf<ConnectException>([] { CvPipe("pipe", true, true); }), "Access denied.");
    EXPECT_EQ(log.texts(), Lines{"ERROR: Pipe file " + link + " is a link of another user and not followed."});
    CvPipe accepted;
    EXPECT_THROW(server.accept(accepted), TimeoutException);
    ChildProcess owner([] { return ::setuid(NOBODY) == 0 && canConnect() ? 0 : 1; });
    EXPECT_EQ(owner.wait(), 0);
}

TEST_F(PipeConnectTest, OtherProgramsCanConnectToTheSocket) {
    ServerCvPipe server("Pipe", true, true);
    const Platform::FileDescriptor other(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(
        Platform::SocketCalls::connectTo(other.get(), Platform::SocketCalls::socketAddress(folder.file("pipe"))),
        0);
    ASSERT_EQ(::send(other.get(), "hello", 5, 0), 5);
    CvPipe accepted;
    server.accept(accepted);
    EXPECT_EQ(readSome(accepted), "hello");
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
