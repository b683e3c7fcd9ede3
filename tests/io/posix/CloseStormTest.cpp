// Pipes that are closed at random moments around a blocked call, while other threads open and close descriptors all
// the time: whoever touched a number that is no longer his would meet one of theirs.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/io/posix/PosixTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;

/// Opens pairs of sockets, sends a byte of its own through each and closes them again, without pause. Any byte that
/// is missing or another's, and any close or shutdown from outside, is noted.
class DescriptorChurn {
 public:
    explicit DescriptorChurn(int threads) {
        for (int i = 0; i < threads; ++i) {
            workers.emplace_back([this, i] {
                for (unsigned round = 0; !stopped.load(); ++round) {
                    touch(static_cast<char>(round * 2 + static_cast<unsigned>(i)));
                }
            });
        }
    }
    ~DescriptorChurn() { stop(); }
    DescriptorChurn(const DescriptorChurn&) = delete;
    DescriptorChurn& operator=(const DescriptorChurn&) = delete;

    /// How many pairs were disturbed.
    int stop() {
        stopped = true;
        for (std::thread& worker : workers) {
            worker.join();
        }
        workers.clear();
        EXPECT_GT(rounds.load(), 0);
        return disturbed.load();
    }

 private:
    void touch(char mark) {
        std::array<int, 2> ends{};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) {
            ++disturbed;
            return;
        }
        const bool sent =
            ::send(ends[0], &mark, 1, MSG_NOSIGNAL) == 1 && ::send(ends[1], &mark, 1, MSG_NOSIGNAL) == 1;
        std::this_thread::yield();
        if (!sent || !holds(ends[0], mark) || !holds(ends[1], mark)) {
            ++disturbed;
        }
        if (::close(ends[0]) != 0 || ::close(ends[1]) != 0) {
            ++disturbed;
        }
        ++rounds;
    }

    /// Exactly the one byte, and neither end nor error behind it.
    static bool holds(int descriptor, char mark) {
        char received = 0;
        if (::recv(descriptor, &received, 1, MSG_DONTWAIT) != 1 || received != mark) {
            return false;
        }
        return ::recv(descriptor, &received, 1, MSG_DONTWAIT) < 0 && errno == EAGAIN;
    }

    std::atomic<bool> stopped{false};
    std::atomic<int> disturbed{0};
    std::atomic<int> rounds{0};
    std::vector<std::thread> workers;
};

/// A thread that runs one action after the other.
class Worker {
 public:
    Worker() : thread([this] { run(); }) {}
    ~Worker() {
        start(nullptr);
        thread.join();
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void start(std::function<void()> next) {
        const std::lock_guard<std::mutex> lock(mutex);
        action = std::move(next);
        busy = true;
        changed.notify_all();
    }

    void wait() {
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [this] { return !busy; });
    }

 private:
    void run() {
        std::unique_lock<std::mutex> lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return busy; });
            if (!action) {
                return;
            }
            lock.unlock();
            action();
            lock.lock();
            busy = false;
            changed.notify_all();
        }
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::function<void()> action;
    bool busy = false;
    std::thread thread;
};

/// Random, but the same in each run.
class RandomMoment {
 public:
    void pass(int maxMicroseconds) {
        const auto length =
            std::chrono::microseconds(static_cast<int>(random() % static_cast<unsigned>(maxMicroseconds)));
        const auto end = std::chrono::steady_clock::now() + length;
        while (std::chrono::steady_clock::now() < end) {
        }
    }

    bool coin() { return random() % 2 == 0; }

 private:
    std::mt19937 random{12345};
};

/// What a call came to: its result, or the message of InterruptedException. Anything else is told by its class.
template <class Action>
std::string outcomeOf(Action action) {
    try {
        return action();
    } catch (InterruptedException& e) {
        return e.getMessage();
    } catch (CvPipeException& e) {
        return std::string(typeid(e).name()) + ": " + e.getMessage();
    } catch (IllegalStateException& e) {
        return e.getMessage();
    }
}

using CloseStormTest = PipeTest;

TEST_F(CloseStormTest, AReadIsInterruptedOrHasItsResult) {
    const int ROUNDS = 10000;
    DescriptorChurn churn(2);
    ServerCvPipe server("pipe", true, true);
    Worker worker;
    RandomMoment moment;
    int interrupted = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        CvPipe client("pipe", true, true);
        CvPipe accepted;
        server.accept(accepted);
        const bool fed = moment.coin();
        const int timeout = moment.coin() ? 0 : 60000;
        std::string outcome;
        worker.start([&] { outcome = outcomeOf([&] { return readSome(client, timeout); }); });
        moment.pass(60);
        if (fed) {
            writeText(accepted, "fed");
            moment.pass(20);
        }
        client.close();
        worker.wait();
        if (outcome == "CvPipe read aborted.") {
            ++interrupted;
        } else {
            ASSERT_TRUE(fed) << outcome;
            ASSERT_EQ(outcome, "fed");
        }
        ASSERT_EQ(outcomeOf([&] { return readSome(client, timeout); }), "CvPipe read aborted.");
    }
    EXPECT_EQ(churn.stop(), 0);
    EXPECT_GT(interrupted, ROUNDS / 4);
}

TEST_F(CloseStormTest, AWriteIsInterrupted) {
    const int ROUNDS = 2000;
    // More than the pipe ever holds.
    const std::string text(4000000, 'x');
    DescriptorChurn churn(2);
    ServerCvPipe server("pipe", true, true);
    Worker worker;
    RandomMoment moment;
    for (int round = 0; round < ROUNDS; ++round) {
        CvPipe client("pipe", true, true);
        CvPipe accepted;
        server.accept(accepted);
        std::string outcome;
        worker.start([&] {
            outcome = outcomeOf([&] {
                writeText(client, text);
                return "written";
            });
        });
        moment.pass(200);
        client.close();
        worker.wait();
        ASSERT_EQ(outcome, "Pipe write aborted.");
    }
    EXPECT_EQ(churn.stop(), 0);
}

TEST_F(CloseStormTest, AnAcceptIsInterruptedOrHasItsClient) {
    const int ROUNDS = 2000;
    DescriptorChurn churn(2);
    Worker accepting;
    Worker connecting;
    RandomMoment moment;
    int interrupted = 0;
    for (int round = 0; round < ROUNDS; ++round) {
        ServerCvPipe server("pipe", true, true);
        server.setAcceptTimeout(moment.coin() ? 0 : 60000);
        const bool visited = moment.coin();
        CvPipe accepted;
        CvPipe client;
        client.setConnectTimeout(60000);
        std::string outcome;
        accepting.start([&] {
            outcome = outcomeOf([&] {
                server.accept(accepted);
                return "accepted";
            });
        });
        std::string visit;
        if (visited) {
            connecting.start([&] {
                visit = outcomeOf([&] {
                    client.connect("pipe", true, true);
                    // A client that was not accepted must not be left waiting.
                    return readSome(client);
                });
            });
        }
        moment.pass(80);
        server.close();
        accepting.wait();
        if (outcome == "accepted") {
            ASSERT_TRUE(visited);
            writeText(accepted, "welcome");
        } else {
            // The last when close() came before accept() was called at all.
            ASSERT_TRUE(outcome == "accept aborted" || outcome == "Pipe is closed.") << outcome;
            ++interrupted;
        }
        if (visited) {
            connecting.wait();
            ASSERT_EQ(visit == "welcome", outcome == "accepted") << visit;
        }
    }
    EXPECT_EQ(churn.stop(), 0);
    EXPECT_GT(interrupted, ROUNDS / 4);
    EXPECT_THAT(folder.names(), ::testing::IsEmpty());
}

/// The number of descriptors that the process has open.
std::ptrdiff_t openDescriptors() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// What one connection after the other comes to: each brings its mark and is then closed from outside, in a call of
/// either kind or between two calls.
std::string useUntilClosed(CvPipe& pipe, char mark) {
    pipe.connect();
    std::string outcome = readSome(pipe, 0, 1);
    if (outcome != std::string(1, mark)) {
        return "not its mark but: " + outcome;
    }
    while (outcome != "CvPipe read aborted." && outcome != "Pipe write aborted.") {
        outcome = outcomeOf([&] {
            writeText(pipe, "some");
            return readSome(pipe, 1);
        });
        if (outcome.find("timeout") == std::string::npos && outcome.find("aborted") == std::string::npos) {
            return outcome;
        }
    }
    return outcomeOf([&] { return readSome(pipe); });
}

TEST_F(CloseStormTest, OnePipeIsClosedAndConnectedAgainAllTheTime) {
    const int ROUNDS = 5000;
    ServerCvPipe server("pipe", true, true);
    CvPipe client;
    client.bind("pipe", true, true);
    Worker worker;
    RandomMoment moment;
    const std::ptrdiff_t before = openDescriptors();
    for (int round = 0; round < ROUNDS; ++round) {
        const char mark = static_cast<char>(round);
        std::string outcome;
        worker.start([&] { outcome = outcomeOf([&] { return useUntilClosed(client, mark); }); });
        CvPipe accepted;
        server.accept(accepted);
        writeText(accepted, std::string(1, mark));
        // The mark has been read when something comes back.
        ASSERT_EQ(readSome(accepted, 0, 4), "some");
        moment.pass(60);
        client.close();
        worker.wait();
        ASSERT_EQ(outcome, "CvPipe read aborted.") << "round " << round;
        accepted.close();
        ASSERT_EQ(openDescriptors(), before) << "its last call has ended";
    }
}

TEST_F(CloseStormTest, SeveralThreadsMayCloseAtOnce) {
    const int ROUNDS = 500;
    DescriptorChurn churn(1);
    ServerCvPipe server("pipe", true, true);
    Worker reading;
    Worker closing;
    RandomMoment moment;
    for (int round = 0; round < ROUNDS; ++round) {
        CvPipe client("pipe", true, true);
        CvPipe accepted;
        server.accept(accepted);
        std::string outcome;
        reading.start([&] { outcome = outcomeOf([&] { return readSome(client); }); });
        moment.pass(50);
        closing.start([&] { client.close(); });
        client.close();
        closing.wait();
        reading.wait();
        ASSERT_EQ(outcome, "CvPipe read aborted.");
    }
    EXPECT_EQ(churn.stop(), 0);
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
