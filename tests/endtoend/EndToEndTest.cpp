// A server process and client processes.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/endtoend/ByteSource.h"
#include "tests/endtoend/ChildProcess.h"
#include "tests/support_code/Skips.h"
#include "tests/support_code/TemporaryPipeDirectory.h"

namespace Corvane {
namespace Testing {

namespace {

using ::testing::StartsWith;

const std::uint64_t HUNDRED_MEBIBYTES = 100 * 1024 * 1024;

std::string post(const std::string& resource, std::uint64_t size, const std::string& framing) {
    return "post " + resource + " " + std::to_string(size) + " " + framing;
}

std::string notify(const std::string& resource, std::uint64_t size, const std::string& framing) {
    return "notify " + resource + " " + std::to_string(size) + " " + framing;
}

std::string pipeName() {
    return TemporaryPipeDirectory::nameForOthers("service");
}

class ServerProcess : public ChildProcess {
 public:
    ServerProcess() : ChildProcess(CVTP_TEST_SERVER, pipeName()) {}
};

class ClientProcess : public ChildProcess {
 public:
    ClientProcess() : ChildProcess(CVTP_TEST_CLIENT, pipeName()) {}

    std::string ask(const std::string& command) {
        tell(command);
        return hear();
    }
};

class EndToEndTest : public ::testing::Test {
 protected:
    void SetUp() override {
        const char* const reason = reasonToSkip();
        if (reason != nullptr) {
            GTEST_SKIP() << reason;
        }
        startServer();
    }

    void startServer() {
        server.emplace();
        ASSERT_EQ(server->hear(), "ready");
    }

    /// Ends the server in order; whatever it still tells before it stops is not looked at.
    void expectServerStops() {
        EXPECT_EQ(server->finish(), 0);
        std::string last;
        for (std::string line = server->hear(); line != "end"; line = server->hear()) {
            last = line;
        }
        EXPECT_EQ(last, "stopped");
    }

    TemporaryPipeDirectory directory;
    std::optional<ServerProcess> server;
};

TEST_F(EndToEndTest, PostByLength) {
    ClientProcess client;
    EXPECT_EQ(client.ask(post("/digest", 0, "length")), "200 OK: " + digestOf(0));
    EXPECT_EQ(client.ask(post("/digest", 5, "length")), "200 OK: " + digestOf(5));
    EXPECT_EQ(client.ask(post("/digest", 1000003, "length")), "200 OK: " + digestOf(1000003));
    EXPECT_EQ(client.finish(), 0);
    expectServerStops();
}

TEST_F(EndToEndTest, PostOfAHundredMebibytesInChunks) {
    ClientProcess client;
    EXPECT_EQ(client.ask(post("/digest", HUNDRED_MEBIBYTES, "chunks")), "200 OK: " + digestOf(HUNDRED_MEBIBYTES));
    expectServerStops();
}

TEST_F(EndToEndTest, ResponseOfAHundredMebibytesInChunks) {
    ClientProcess client;
    const std::string resource = "/bytes/" + std::to_string(HUNDRED_MEBIBYTES);
    EXPECT_EQ(client.ask(post(resource, 0, "length")), "200 OK: " + digestOf(HUNDRED_MEBIBYTES));
    // The pipe is good for more.
    EXPECT_EQ(client.ask(post("/bytes/7", 0, "length")), "200 OK: " + digestOf(7));
    expectServerStops();
}

TEST_F(EndToEndTest, Notify) {
    ClientProcess client;
    EXPECT_EQ(client.ask(notify("/event", 5, "length")), "sent");
    EXPECT_EQ(server->hear(), "NOTIFY /event " + digestOf(5));
    EXPECT_EQ(client.ask(notify("/event", 100000, "chunks")), "sent");
    EXPECT_EQ(server->hear(), "NOTIFY /event " + digestOf(100000));
    expectServerStops();
}

TEST_F(EndToEndTest, AResourceThatIsNotThere) {
    ClientProcess client;
    EXPECT_EQ(client.ask(post("/nowhere", 5, "length")), "404 There is no /nowhere: ");
    EXPECT_EQ(client.ask(post("/nowhere", 100000, "chunks")), "404 There is no /nowhere: ");
    EXPECT_EQ(client.ask(post("/digest", 5, "length")), "200 OK: " + digestOf(5));
    expectServerStops();
}

TEST_F(EndToEndTest, SeveralClientsAtOnce) {
    const int rounds = 20;
    std::vector<std::unique_ptr<ClientProcess>> clients;
    // No more than the server has threads, so that none has to wait until another is quiet.
    for (std::uint64_t number = 0; number < 5; ++number) {
        clients.push_back(std::make_unique<ClientProcess>());
        for (int round = 0; round < rounds; ++round) {
            clients.back()->tell(post("/digest", 10000 * (number + 1), round % 2 == 0 ? "length" : "chunks"));
        }
    }
    for (std::uint64_t number = 0; number < clients.size(); ++number) {
        const std::string expected = "200 OK: " + digestOf(10000 * (number + 1));
        for (int round = 0; round < rounds; ++round) {
            ASSERT_EQ(clients[number]->hear(), expected);
        }
        EXPECT_EQ(clients[number]->finish(), 0);
    }
    expectServerStops();
}

TEST_F(EndToEndTest, AServerThatWasKilledAndRestartedIsFoundAgain) {
    ClientProcess client;
    for (const char* const framing : {"length", "chunks"}) {
        EXPECT_EQ(client.ask(post("/digest", 5, "length")), "200 OK: " + digestOf(5));
        server->kill();
        EXPECT_EQ(server->wait(), ChildProcess::KILLED);
        startServer();
        // The client has a pipe in its pool that leads to the old server.
        const std::string first = client.ask(post("/digest", 5, framing));
        EXPECT_EQ(first, "200 OK: " + digestOf(5)) << framing;
    }
    expectServerStops();
}

TEST_F(EndToEndTest, AClientThatIsKilledInTheMiddleOfARequestHarmsNobody) {
    ClientProcess other;
    EXPECT_EQ(other.ask(post("/digest", 5, "length")), "200 OK: " + digestOf(5));
    ClientProcess client;
    EXPECT_EQ(client.ask("stall /digest"), "stalled");
    client.kill();
    EXPECT_EQ(client.wait(), ChildProcess::KILLED);
    EXPECT_EQ(other.ask(post("/digest", 6, "length")), "200 OK: " + digestOf(6));
    ClientProcess another;
    EXPECT_EQ(another.ask(post("/digest", 7, "chunks")), "200 OK: " + digestOf(7));
    expectServerStops();
}

TEST_F(EndToEndTest, AServerStopsWhileClientsAreConnected) {
    ClientProcess quiet;
    EXPECT_EQ(quiet.ask(post("/digest", 5, "length")), "200 OK: " + digestOf(5));
    ClientProcess busy;
    EXPECT_EQ(busy.ask("stall /digest"), "stalled");
    expectServerStops();
    EXPECT_THAT(quiet.ask(post("/digest", 5, "length")), StartsWith("failed: "));
    EXPECT_EQ(quiet.finish(), 0);
    // Finds out when it goes on sending.
    EXPECT_EQ(busy.finish(), 0);
    EXPECT_THAT(busy.hear(), StartsWith("failed: "));
}

TEST_F(EndToEndTest, ASecondServerOnTheSameNameIsRefused) {
    ServerProcess second;
    EXPECT_EQ(second.hear(), "taken");
    EXPECT_EQ(second.wait(), 1);
    ClientProcess client;
    EXPECT_EQ(client.ask(post("/digest", 5, "length")), "200 OK: " + digestOf(5));
    expectServerStops();
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
