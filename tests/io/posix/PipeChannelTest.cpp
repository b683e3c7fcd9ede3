#include <gmock/gmock.h>

#include <fcntl.h>
#include <pthread.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>

#include "io/platform/PipePlatform.h"
#include "tests/io/posix/PosixTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;

using PipeChannelTest = PipeTest;

/// What a loaded machine may need on top of any wait, in milliseconds.
const int PATIENCE = 8000;

TEST_F(PipeChannelTest, SignalsNeitherShortenNorLengthenAReadTimeout) {
    Connection connection;
    SignalStorm storm(::pthread_self());
    for (const int timeout : {300, 1, 150}) {
        StopWatch watch;
        EXPECT_THROW(readSome(connection.client, timeout), TimeoutException);
        EXPECT_GE(watch.elapsed(), timeout);
        EXPECT_LT(watch.elapsed(), timeout + PATIENCE);
    }
    EXPECT_GT(storm.getSent(), 3);
}

TEST_F(PipeChannelTest, SignalsDoNotEndAReadWithoutTimeout) {
    Connection connection;
    SignalStorm storm(::pthread_self());
    std::thread writer([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        writeText(connection.accepted, "x");
    });
    EXPECT_EQ(readSome(connection.client), "x");
    writer.join();
}

TEST_F(PipeChannelTest, TheTimeoutOfAReadIsItsOwnAfterSignalsToo) {
    Connection connection;
    {
        SignalStorm storm(::pthread_self());
        EXPECT_THROW(readSome(connection.client, 50), TimeoutException);
    }
    StopWatch watch;
    EXPECT_THROW(readSome(connection.client, 200), TimeoutException);
    EXPECT_GE(watch.elapsed(), 200);
    auto text = std::async(std::launch::async, [&] { return readSome(connection.client, 0); });
    EXPECT_EQ(text.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    writeText(connection.accepted, "y");
    EXPECT_EQ(text.get(), "y");
}

TEST_F(PipeChannelTest, AWriteWaitsTenSecondsWhateverSignalsCome) {
    Connection connection;
    connection.client.setReadTimeout(1);
    connection.client.setConnectTimeout(1);
    const std::string text(4000000, 'x');
    LogCapture log;
    {
        SignalStorm storm(::pthread_self());
        StopWatch watch;
        EXPECT_EQ(messageOf<TimeoutException>([&] { writeText(connection.client, text); }), "Pipe write timed out");
        EXPECT_GE(watch.elapsed(), 10000);
        EXPECT_LT(watch.elapsed(), 10000 + PATIENCE);
    }
    EXPECT_EQ(log.texts(), Lines{"DEBUG: Write timed out."});
    // Nothing of it is sent any more, however much room there is.
    std::size_t received = 0;
    try {
        for (;;) {
            received += readSome(connection.accepted, 100, 50000).size();
        }
    } catch (TimeoutException&) {
    }
    EXPECT_LT(received, text.size());
    writeText(connection.client, "next");
    EXPECT_EQ(readSome(connection.accepted), "next");
}

std::atomic<int> pipeSignals{0};

TEST_F(PipeChannelTest, ABrokenPipeRaisesNoSignal) {
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) { ++pipeSignals; };
    ASSERT_EQ(::sigaction(SIGPIPE, &action, &before), 0);
    // Some library may have blocked the signal, and then it would wait unseen.
    sigset_t unblocked;
    sigset_t maskBefore;
    ::sigemptyset(&unblocked);
    ::sigaddset(&unblocked, SIGPIPE);
    ASSERT_EQ(::pthread_sigmask(SIG_UNBLOCK, &unblocked, &maskBefore), 0);
    Connection connection;
    connection.accepted.close();
    EXPECT_THROW(writeText(connection.client, "x"), BrokenPipeException);
    EXPECT_EQ(pipeSignals.load(), 0);
    ::pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
    ::sigaction(SIGPIPE, &before, nullptr);
}

TEST_F(PipeChannelTest, EveryDescriptorIsClosedOnExec) {
    const std::set<int> before = openDescriptors();
    Connection connection;
    int added = 0;
    for (const int descriptor : openDescriptors()) {
        if (before.count(descriptor) == 0) {
            EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << descriptor;
            ++added;
        }
    }
    // The listening socket, its lock and both ends.
    EXPECT_EQ(added, 4);
}

TEST_F(PipeChannelTest, NoDescriptorIsLeftBehind) {
    const std::set<int> before = openDescriptors();
    for (int round = 0; round < 20; ++round) {
        Connection connection;
        ServerCvPipe copy(connection.server);
        CvPipe queued("pipe", true, true);
        CvPipe waiting;
        waiting.setConnectTimeout(1);
        EXPECT_THROW(waiting.connect("pipe", true, true), TimeoutException);
        EXPECT_THROW(ServerCvPipe("pipe", true, true), BindException);
        EXPECT_THROW(CvPipe("nobody", true, true), ConnectException);
        connection.client.close();
        connection.client.setConnectTimeout(1);
        EXPECT_THROW(connection.client.connect(), TimeoutException);
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(PipeChannelTest, ConnectingAnOpenPipeAnewClosesTheOldEnd) {
    Connection connection;
    connection.client.connect();
    EXPECT_EQ(readSome(connection.accepted), "end of data");
}

TEST_F(PipeChannelTest, OfAReadOfNothingTheResultIsNothing) {
    Connection connection;
    char c = ' ';
    writeText(connection.accepted, "x");
    EXPECT_EQ(connection.client.readPipe(&c, 0, 0, 1000), -1);
    EXPECT_EQ(connection.client.readPipe(&c, 0, -1, 1000), -1);
    EXPECT_EQ(readSome(connection.client), "x");
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
