// What becomes of a client that connects when the system fails.

#include <gmock/gmock.h>

#include <cerrno>
#include <string>
#include <vector>

#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::ElementsAre;

const std::string NOT_CONNECTED = "ConnectException Could not connect to pipe.";
const std::string DENIED = "ConnectException Access denied.";
const std::string TIMED_OUT = "TimeoutException Timed out connecting to pipe";
const std::string GLE_IS = "ERROR: Could not open pipe. GLE=";
const std::string WAITING = "DEBUG: Waiting for named pipe.";
const std::string CREATED = "DEBUG: CreateFile - \\\\.\\pipe\\pipe handle=N GetLastError=0";
const std::string CLOSED = "DEBUG: Close Handles: handle=N; event=-1";

class ConnectFaultsTest : public FaultTest {
 protected:
    /// Connects to a server that has a free place.
    std::string connect(int timeoutMs = 5000) {
        CvPipe client;
        client.setConnectTimeout(timeoutMs);
        return outcomeOf([&] {
            client.connect("pipe", true, true);
            return "connected";
        });
    }
};

struct FaultCase {
    const char* name;
    const char* call;
    std::vector<Answer> answers;
    std::string outcome;
    Lines lines;
};

std::ostream& operator<<(std::ostream& out, const FaultCase& item) {
    return out << item.name;
}

FaultCase failing(const char* name, const char* call, int error) {
    return {name, call, {failure(error)}, NOT_CONNECTED, {GLE_IS + std::to_string(error)}};
}
FaultCase failingLate(const char* name, const char* call, int error) {
    return {
        name, call, {failure(EAGAIN), failure(error)}, NOT_CONNECTED, {WAITING, GLE_IS + std::to_string(error)}};
}

class ConnectFaultTest : public ConnectFaultsTest, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(ConnectFaultTest, EndsAsItShould) {
    const FaultCase& param = GetParam();
    ServerCvPipe server("pipe", true, true);
    {
        FakeSystem system;
        LogCapture log;
        const std::set<int> before = openDescriptors();
        system.on(param.call, param.answers);
        EXPECT_EQ(connect(), param.outcome);
        EXPECT_EQ(maskedTexts(log), param.lines);
        EXPECT_EQ(openDescriptors(), before);
    }
    server.close();
}

INSTANTIATE_TEST_SUITE_P(
    AllErrors, ConnectFaultTest,
    ::testing::Values(
        failing("NoDescriptor", "socket", EMFILE), failing("NoFile", "socket", ENFILE),
        failing("NoMemory", "socket", ENOMEM), failing("NoBuffers", "socket", ENOBUFS),
        // No socket for anybody is no pipe that denies access.
        failing("NoSocketsAllowed", "socket", EACCES), failing("NoServer", "connect", ECONNREFUSED),
        failing("NoPipe", "connect", ENOENT), failing("NoMemoryToConnect", "connect", ENOMEM),
        failing("NoBuffersToConnect", "connect", ENOBUFS), failing("Reset", "connect", ECONNRESET),
        failing("WrongType", "connect", EPROTOTYPE), failing("TimedOutBySystem", "connect", ETIMEDOUT),
        failing("TooManyLinks", "connect", ELOOP), failing("Flags", "fcntl", ENOMEM),
        FaultCase{"Denied", "connect", {failure(EACCES)}, DENIED, {}},
        FaultCase{"NotPermitted", "connect", {failure(EPERM)}, DENIED, {}},
        FaultCase{"Interrupted", "connect", {failure(EINTR), failure(EINTR)}, "connected", {CREATED, CLOSED}},
        FaultCase{"Waited", "connect", {failure(EAGAIN), failure(EAGAIN)}, "connected", {WAITING, CREATED, CLOSED}},
        FaultCase{"WaitedAndInterrupted",
                  "connect",
                  {failure(EAGAIN), failure(EINTR)},
                  "connected",
                  {WAITING, CREATED, CLOSED}},
        FaultCase{"WaitedAndDenied", "connect", {failure(EAGAIN), failure(EACCES)}, DENIED, {WAITING}},
        FaultCase{"WaitedForARestart",
                  "connect",
                  {failure(EAGAIN), failure(ENOENT), failure(ECONNREFUSED)},
                  "connected",
                  {WAITING, CREATED, CLOSED}},
        failingLate("WaitedWithoutMemory", "connect", ENOMEM), failingLate("WaitedAndReset", "connect", ECONNRESET),
        // Links that say nothing, or cannot be read, keep nobody away.
        FaultCase{"NoLinks", "readlink", {failure(EINVAL)}, "connected", {CREATED, CLOSED}},
        FaultCase{"LinkUnreadable", "readlink", {failure(EIO)}, "connected", {CREATED, CLOSED}}),
    [](const auto& item) { return std::string(item.param.name); });

TEST_F(ConnectFaultsTest, AFailureWhileItWaitsIsOne) {
    ServerCvPipe server("pipe", true, true);
    for (const std::string call : {"fcntl", "setsockopt"}) {
        FakeSystem system;
        LogCapture log;
        const std::set<int> before = openDescriptors();
        system.on("connect", {failure(EAGAIN)});
        system.on(call, {failure(ENOMEM)});
        EXPECT_EQ(connect(), NOT_CONNECTED) << call;
        EXPECT_EQ(log.texts(), (Lines{WAITING, GLE_IS + "12"}));
        EXPECT_EQ(openDescriptors(), before);
    }
}

TEST_F(ConnectFaultsTest, SignalsNeitherShortenNorLengthenTheTimeout) {
    FakeSystem system;
    system.freezeTime();
    LogCapture log;
    system.on("connect", {failure(EAGAIN, system.after(5000)), failure(EINTR, system.after(300)),
                          failure(EAGAIN, system.after(1000)), failure(EINTR, system.after(1)),
                          failure(EINTR, system.after(1198)), failure(EINTR, system.after(1))});
    EXPECT_EQ(connect(2500), TIMED_OUT);
    // In slices, and the last is what is left. The time begins with the wait.
    EXPECT_THAT(system.getWaits(), ElementsAre(1000, 1000, 1000, 1000, 1));
    EXPECT_EQ(system.madeOf("setsockopt"), Lines(5, "setsockopt(SO_SNDTIMEO)"));
    EXPECT_EQ(log.texts(),
              (Lines{WAITING, "DEBUG: Could not open pipe \\\\.\\pipe\\pipe after 2500 milliseconds."}));
}

TEST_F(ConnectFaultsTest, AWaitWithoutLimitGoesOnSliceAfterSlice) {
    for (const int timeout : {0, -1}) {
        ServerCvPipe server("pipe", true, true);
        FakeSystem system;
        system.freezeTime();
        system.on("connect", std::vector<Answer>(50, failure(EAGAIN, system.after(100000))));
        EXPECT_EQ(connect(timeout), "connected");
        EXPECT_EQ(system.getWaits(), std::vector<int>(50, 1000));
    }
}

TEST_F(ConnectFaultsTest, AServerThatIsGoneIsWaitedForTwoSeconds) {
    FakeSystem system;
    system.freezeTime();
    LogCapture log;
    system.on("connect", {failure(EAGAIN), failure(ENOENT, system.after(500)),
                          failure(ECONNREFUSED, system.after(1999)), failure(ENOENT, system.after(1))});
    // With the pauses in between the real one.
    system.on("poll", {returning(0), returning(0)});
    EXPECT_EQ(connect(0), TIMED_OUT);
    EXPECT_EQ(system.madeOf("connect").size(), 4u);
    EXPECT_THAT(system.getWaits(), ElementsAre(1000, 20, 1000, 20, 1000));
    EXPECT_EQ(log.texts(),
              (Lines{WAITING, "DEBUG: Could not open pipe \\\\.\\pipe\\pipe after 4294967295 milliseconds."}));
}

TEST_F(ConnectFaultsTest, AServerThatCameBackMayGoAgain) {
    ServerCvPipe server("pipe", true, true);
    FakeSystem system;
    system.freezeTime();
    const Answer gone = failure(ECONNREFUSED, system.after(1500));
    system.on("connect", {failure(EAGAIN), gone, gone, failure(EAGAIN), gone, gone, failure(EAGAIN), gone});
    EXPECT_EQ(connect(0), "connected");
}

TEST_F(ConnectFaultsTest, TheTimeoutIsKeptWhileTheServerIsGoneToo) {
    FakeSystem system;
    system.freezeTime();
    system.on("connect", {failure(EAGAIN), failure(ENOENT, system.after(993)), failure(ENOENT, system.after(7))});
    EXPECT_EQ(connect(1000), TIMED_OUT);
    // No pause is longer than what is left. The first of them was measured before the call.
    EXPECT_THAT(system.getWaits(), ElementsAre(1000, 20, 7, 7));
}

TEST_F(ConnectFaultsTest, ALinkThatCannotBeLookedAtKeepsNobodyAway) {
    ServerCvPipe server("pipe", true, false);
    FakeSystem system;
    EXPECT_EQ(connect(), DENIED);
    // Of the link and of the socket it belongs to.
    system.on("lstat", {failure(EACCES)});
    EXPECT_EQ(connect(), "connected");
    CvPipe accepted;
    server.accept(accepted);
    system.on("lstat", {passing(), failure(ENOMEM)});
    EXPECT_EQ(connect(), "connected");
    // A second look at the socket tells whether a link has taken its place.
    EXPECT_EQ(system.madeOf("lstat"),
              (Lines{"lstat(.pipe.direction)", "lstat(pipe)", "lstat(.pipe.direction)", "lstat(pipe)",
                     "lstat(.pipe.direction)", "lstat(pipe)", "lstat(pipe)"}));
}

TEST_F(ConnectFaultsTest, AFolderThatCannotBeLookedAtHasNoPipe) {
    ServerCvPipe server("pipe", true, true);
    const std::string refused = "ERROR: Pipe folder " + folder.getPath() + " refused: ";
    const std::string notLookedAt = refused + "it cannot be looked at, error ";
    struct Case {
        int error;
        std::string outcome;
        Lines lines;
    };
    FakeSystem system;
    for (const Case& one :
         {Case{ENOENT, NOT_CONNECTED, {refused + "CVTP_PIPE_DIR names no folder.", GLE_IS + "2"}},
          Case{ENOTDIR, NOT_CONNECTED, {refused + "CVTP_PIPE_DIR names no folder.", GLE_IS + "2"}},
          Case{EIO, NOT_CONNECTED, {notLookedAt + "5.", GLE_IS + "5"}},
          Case{EACCES, DENIED, {notLookedAt + "13."}}}) {
        LogCapture log;
        // What cannot be looked at cannot be connected to either.
        system.on("connect", {failure(one.error)});
        system.on("stat", {failure(one.error)});
        EXPECT_EQ(connect(), one.outcome);
        EXPECT_EQ(log.texts(), one.lines);
    }
}

TEST_F(ConnectFaultsTest, AFolderThatCanBeLookedAtIsNotBlamed) {
    for (const int error : {ENOENT, ECONNREFUSED, EIO}) {
        ServerCvPipe server("pipe", true, true);
        FakeSystem system;
        LogCapture log;
        system.on("connect", {failure(error)});
        EXPECT_EQ(connect(), NOT_CONNECTED);
        EXPECT_EQ(log.texts(), Lines{GLE_IS + std::to_string(error)});
        EXPECT_EQ(system.madeOf("stat").size(), 1u);
    }
}

TEST_F(ConnectFaultsTest, TheSocketIsNonBlockingUntilItIsConnected) {
    ServerCvPipe server("pipe", true, true);
    FakeSystem system;
    CvPipe client;
    client.connect("pipe", true, true);
    EXPECT_EQ(system.getMade(),
              (Lines{"readlink(.pipe.direction)", "lstat(pipe)", "socket()", "connect()", "fcntl(0)"}));
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
