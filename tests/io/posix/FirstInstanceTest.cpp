// Servers that race for a name, and servers that are killed and come again at once, each a process of its own.

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "io/platform/posix/SocketCalls.h"
#include "tests/io/posix/PosixTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

/// Bytes from processes to the one that forked them. Made before the fork.
class Reports {
 public:
    Reports() { EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0); }
    ~Reports() {
        ::close(ends[0]);
        ::close(ends[1]);
    }
    Reports(const Reports&) = delete;
    Reports& operator=(const Reports&) = delete;

    void send(char report) { EXPECT_EQ(::write(ends[1], &report, 1), 1); }
    char take() {
        char report = '?';
        while (::read(ends[0], &report, 1) < 0 && errno == EINTR) {
        }
        return report;
    }
    std::string take(int count) {
        std::string result;
        for (int i = 0; i < count; ++i) {
            result += take();
        }
        std::sort(result.begin(), result.end());
        return result;
    }

 private:
    std::array<int, 2> ends{};
};

class FirstInstanceTest : public PipeTest {
 protected:
    /// What a killed server leaves.
    void makeLeftovers() {
        const Platform::FileDescriptor socket = Platform::SocketCalls::createSocket();
        ASSERT_EQ(
            Platform::SocketCalls::bindTo(socket.get(), Platform::SocketCalls::socketAddress(folder.file("pipe"))),
            0);
        std::FILE* const lock = std::fopen(folder.file(".pipe.lock").c_str(), "w");
        ASSERT_NE(lock, nullptr);
        std::fclose(lock);
    }
};

/// A racer of the test below: in each round it tries to get the name, tells whether it did, and gives it back.
int race(int rounds, Gate& start, Gate& leave, Reports& reports) {
    for (int round = 0; round < rounds; ++round) {
        start.pass();
        ServerCvPipe server;
        char outcome = 'w';
        try {
            server.bind("pipe", true, true);
        } catch (BindException&) {
            outcome = 'l';
        }
        reports.send(outcome);
        leave.pass();
        server.close();
        reports.send('g');
    }
    return 0;
}

TEST_F(FirstInstanceTest, OfEightProcessesThatRaceExactlyOneWinsAThousandTimes) {
    const int PROCESSES = 8;
    const int ROUNDS = 1000;
    Gate start;
    Gate leave;
    Reports reports;
    std::vector<std::unique_ptr<ChildProcess>> racers;
    for (int i = 0; i < PROCESSES; ++i) {
        racers.push_back(std::make_unique<ChildProcess>([&] { return race(ROUNDS, start, leave, reports); }));
    }
    for (int round = 0; round < ROUNDS; ++round) {
        if (round % 2 == 0) {
            makeLeftovers();
        }
        start.open(PROCESSES);
        ASSERT_EQ(reports.take(PROCESSES), std::string(PROCESSES - 1, 'l') + "w") << "round " << round;
        EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe", ".pipe.lock"));
        // The winner can be reached.
        CvPipe("pipe", true, true);
        leave.open(PROCESSES);
        ASSERT_EQ(reports.take(PROCESSES), std::string(PROCESSES, 'g'));
        ASSERT_THAT(folder.names(), IsEmpty()) << "round " << round;
    }
    for (const auto& racer : racers) {
        EXPECT_EQ(racer->wait(), 0);
    }
}

/// A server that serves one client and then lives on until it is killed.
int serveOne(Gate& bound, const std::string& answer) {
    ServerCvPipe server;
    try {
        server.bind("pipe", true, true);
    } catch (BindException&) {
        bound.open();
        return 1;
    }
    bound.open();
    for (;;) {
        CvPipe client;
        server.accept(client);
        if (readSome(client) == "question") {
            writeText(client, answer);
            break;
        }
    }
    for (;;) {
        ::pause();
    }
    return 0;
}

int ask(const std::string& expected) {
    CvPipe client("pipe", true, true);
    writeText(client, "question");
    return readSome(client) == expected ? 0 : 1;
}

TEST_F(FirstInstanceTest, ClientsThatWaitAreServedByTheServerThatComesAfterAKilledOne) {
    const int ROUNDS = 200;
    const std::string WAITING = "DEBUG: Waiting for named pipe.";
    Gate bound;
    auto server = std::make_unique<ChildProcess>([&] { return serveOne(bound, "0"); });
    bound.pass();
    // The first round needs a server that serves no more, as the others have.
    ASSERT_EQ(ask("0"), 0);
    for (int round = 1; round <= ROUNDS; ++round) {
        const std::string answer = std::to_string(round);
        // Takes the one place, so that the next has to wait.
        CvPipe first("pipe", true, true);
        LogCapture log;
        ChildProcess waiting([&] { return ask(answer); });
        ASSERT_TRUE(log.waitFor(WAITING));
        server->kill();
        server = std::make_unique<ChildProcess>([&] { return serveOne(bound, answer); });
        bound.pass();
        ASSERT_EQ(waiting.wait(), 0) << "round " << round;
        EXPECT_EQ(readSome(first), "end of data");
        ASSERT_THAT(folder.names(), SizeIs(2)) << "round " << round;
    }
    server->kill();
    EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe", ".pipe.lock"));
    { ServerCvPipe last("pipe", true, true); }
    EXPECT_THAT(folder.names(), IsEmpty());
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
