// What becomes of a server's pipe when the system fails while it is made, waits for clients or is closed.

#include <gmock/gmock.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::string CALLING = "DEBUG: Calling ConnectNamedPipe.";
const std::string ERROR_IS = "DEBUG: ServerCvPipe_acceptPipe error = ";
const std::string STATUS_IS = "DEBUG: ServerCvPipe_acceptPipe WaitForSingleObject status = ";
const std::string OVERLAPPED_IS = "DEBUG: GetOverlappedResult - GetLastError=";
const std::string RETVAL_IS = "DEBUG: ServerCvPipe_acceptPipe retval = ";
const std::string CREATED = "DEBUG: bindPipe: handle=N event=-1";
const std::string CONNECT = "ERROR: Connect error: ";
const std::string ABORTED = "InterruptedException accept aborted";
const std::string FAILED = "CvPipeException acceptPipe failed";

class ListenerFaultsTest : public FaultTest {
 protected:
    static std::string acceptFrom(ServerCvPipe& server) {
        CvPipe accepted;
        const std::string outcome = outcomeOf([&] {
            server.accept(accepted);
            return "accepted";
        });
        EXPECT_EQ(accepted.isBound(), outcome == "accepted");
        return outcome;
    }
};

struct CreateCase {
    const char* call;
    int error;
};

std::ostream& operator<<(std::ostream& out, const CreateCase& item) {
    return out << item.call << item.error;
}

class CreateFaultTest : public ListenerFaultsTest, public ::testing::WithParamInterface<CreateCase> {};

TEST_P(CreateFaultTest, NothingIsLeftOfAServerThatCouldNotBeMade) {
    FakeSystem system;
    LogCapture log;
    const std::set<int> before = openDescriptors();
    // With a link for its direction, so that there is everything to be left.
    system.on(GetParam().call, {failure(GetParam().error)});
    EXPECT_EQ(messageOf<BindException>([] { ServerCvPipe("pipe", true, false); }), "CreateNamedPipe failed");
    EXPECT_EQ(log.texts(), Lines{"ERROR: CreateNamedPipe failed: " + std::to_string(GetParam().error)});
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_THAT(folder.names(), IsEmpty());
    // And the name is free.
    ServerCvPipe next("pipe", true, false);
}

INSTANTIATE_TEST_SUITE_P(AllErrors, CreateFaultTest,
                         ::testing::Values(CreateCase{"socket", EMFILE}, CreateCase{"socket", ENFILE},
                                           CreateCase{"socket", ENOMEM}, CreateCase{"socket", ENOBUFS},
                                           CreateCase{"socket", EACCES}, CreateCase{"bind", EADDRINUSE},
                                           CreateCase{"bind", EACCES}, CreateCase{"bind", ENOSPC},
                                           CreateCase{"bind", ENOMEM}, CreateCase{"bind", ENOENT},
                                           CreateCase{"bind", EROFS}, CreateCase{"listen", EADDRINUSE},
                                           CreateCase{"listen", ENOBUFS}, CreateCase{"listen", ENOMEM},
                                           CreateCase{"listen", EOPNOTSUPP}),
                         [](const auto& item) { return item.param.call + std::to_string(item.param.error); });

TEST_F(ListenerFaultsTest, AServerIsMadeInThisOrder) {
    FakeSystem system;
    ServerCvPipe server("pipe", true, false);
    const std::string own = folder.getPath().substr(folder.getPath().rfind('/') + 1);
    EXPECT_EQ(system.getMade(), (Lines{"stat(" + own + ")", "open(.pipe.lock)", "fstat()", "flock(6)",
                                       "lstat(.pipe.lock)", "lstat(pipe)",
                                       // Clients may see the socket at once, so what it offers stands there before.
                                       "lstat(.pipe.direction)", "symlink(readable)", "lstat(.pipe.direction)",
                                       "socket()", "bind()", "lstat(pipe)", "listen(0)"}));
    system.forgetMade();
    server.close();
    // The lock is the last to go, and the files go before the socket does.
    EXPECT_EQ(system.getMade(), (Lines{"lstat(pipe)", "unlink(pipe)", "lstat(.pipe.direction)",
                                       "unlink(.pipe.direction)", "lstat(.pipe.lock)", "unlink(.pipe.lock)",
                                       "flock(8)", "close()", "shutdown(2)", "accept4()", "close()"}));
}

TEST_F(ListenerFaultsTest, ACloseWhileTheServerIsMadeGivesTheNameBack) {
    for (const std::string call : {"flock", "bind", "listen"}) {
        ServerCvPipe server;
        FakeSystem system;
        LogCapture log;
        const std::set<int> before = openDescriptors();
        system.on(call, {passing([&] { server.close(); })});
        server.bind("pipe", true, false);
        EXPECT_THAT(folder.names(), IsEmpty()) << call;
        EXPECT_EQ(openDescriptors(), before);
        EXPECT_EQ(maskedTexts(log), (Lines{"DEBUG: Close Handles: handle=-1 event= -1",
                                           "INFO: ServerCvPipe_closePipe CancelIoEx failed. Error code : 9",
                                           CREATED, "DEBUG: Close Handles: handle=N event= -1"}));
        EXPECT_EQ(acceptFrom(server), "IllegalStateException Pipe is closed.");
    }
}

struct AcceptCase {
    const char* name;
    std::vector<Answer> accepts;
    std::vector<Answer> polls;
    std::string outcome;
    Lines lines;
};

std::ostream& operator<<(std::ostream& out, const AcceptCase& item) {
    return out << item.name;
}

AcceptCase failingAtOnce(const char* name, int error) {
    const std::string code = std::to_string(error);
    return {name, {failure(error)}, {}, FAILED, {ERROR_IS + code, CONNECT + code, RETVAL_IS + "3", CREATED}};
}
AcceptCase failingLate(const char* name, int error) {
    const std::string code = std::to_string(error);
    return {name,
            {failure(EAGAIN), failure(error)},
            {returning(POLLIN)},
            FAILED,
            {ERROR_IS + "997", STATUS_IS + "0", OVERLAPPED_IS + code, CONNECT + code, RETVAL_IS + "3", CREATED}};
}
AcceptCase inTrouble(const char* name, int events) {
    return {name,
            {failure(EAGAIN), failure(EAGAIN)},
            {returning(events)},
            FAILED,
            {ERROR_IS + "997", STATUS_IS + "0", OVERLAPPED_IS + "22", CONNECT + "22", RETVAL_IS + "3", CREATED}};
}
AcceptCase failingWait(const char* name, int error) {
    return {
        name,
        {failure(EAGAIN)},
        {failure(error)},
        "CvPipeException CvPipe wait failed in accept",
        {ERROR_IS + "997", STATUS_IS + std::to_string(error), RETVAL_IS + "2", "ERROR: Wait failed in Accept."}};
}
const Lines ACCEPTED_AT_ONCE = {ERROR_IS + "535", RETVAL_IS + "0", CREATED};
const Lines ACCEPTED_LATE = {ERROR_IS + "997", STATUS_IS + "0", OVERLAPPED_IS + "0", RETVAL_IS + "0", CREATED};

class AcceptFaultTest : public ListenerFaultsTest, public ::testing::WithParamInterface<AcceptCase> {};

TEST_P(AcceptFaultTest, EndsAsItShouldAndLosesNoClient) {
    const AcceptCase& param = GetParam();
    ServerCvPipe server("pipe", true, true);
    server.setAcceptTimeout(5000);
    CvPipe client("pipe", true, true);
    writeText(client, "patient");
    FakeSystem system;
    LogCapture log;
    system.on("accept4", param.accepts);
    system.on("poll", param.polls);
    CvPipe accepted;
    StopWatch watch;
    EXPECT_EQ(outcomeOf([&] {
                  server.accept(accepted);
                  return "accepted";
              }),
              param.outcome);
    Lines expected = {CALLING};
    expected.insert(expected.end(), param.lines.begin(), param.lines.end());
    EXPECT_EQ(maskedTexts(log), expected);
    if (param.outcome != "accepted") {
        EXPECT_GE(watch.elapsed(), 100) << "a server that tries again and again would spin";
        EXPECT_FALSE(accepted.isBound());
        server.accept(accepted);
    }
    EXPECT_EQ(readSome(accepted), "patient");
}

INSTANTIATE_TEST_SUITE_P(
    AllErrors, AcceptFaultTest,
    ::testing::Values(
        failingAtOnce("NoDescriptor", EMFILE), failingAtOnce("NoFile", ENFILE), failingAtOnce("NoMemory", ENOMEM),
        failingAtOnce("NoBuffers", ENOBUFS), failingAtOnce("NotAllowed", EPERM), failingAtOnce("Protocol", EPROTO),
        failingLate("NoDescriptorAfterAWait", EMFILE), failingLate("NoFileAfterAWait", ENFILE),
        failingLate("NoMemoryAfterAWait", ENOMEM), failingLate("NoBuffersAfterAWait", ENOBUFS),
        failingLate("WrongNumberAfterAWait", EBADF), failingWait("NoMemoryToWait", ENOMEM),
        failingWait("WrongCall", EINVAL), inTrouble("HungUp", POLLHUP),
        inTrouble("HungUpAndReadable", POLLIN | POLLHUP), inTrouble("Error", POLLERR),
        inTrouble("WrongNumber", POLLNVAL),
        AcceptCase{
            "ClientsThatGaveUp", {failure(ECONNABORTED), failure(ECONNABORTED)}, {}, "accepted", ACCEPTED_AT_ONCE},
        AcceptCase{"Interrupted", {failure(EINTR), failure(EINTR)}, {}, "accepted", ACCEPTED_AT_ONCE},
        AcceptCase{
            "WaitedAndInterrupted", {failure(EAGAIN), failure(EINTR)}, {failure(EINTR)}, "accepted", ACCEPTED_LATE},
        AcceptCase{"WaitedForOneThatGaveUp",
                   {failure(EAGAIN), failure(ECONNABORTED), failure(EAGAIN)},
                   {},
                   "accepted",
                   ACCEPTED_LATE},
        AcceptCase{
            "WokenForNothing", {failure(EAGAIN), failure(EAGAIN), failure(EAGAIN)}, {}, "accepted", ACCEPTED_LATE}),
    [](const auto& item) { return std::string(item.param.name); });

TEST_F(ListenerFaultsTest, SignalsNeitherShortenNorLengthenTheTimeout) {
    ServerCvPipe server("pipe", true, true);
    server.setAcceptTimeout(500);
    FakeSystem system;
    system.freezeTime();
    LogCapture log;
    system.on("accept4", {failure(EAGAIN), failure(EAGAIN)});
    system.on("poll", {failure(EINTR, system.after(100)), Answer{0, POLLIN, system.after(250)},
                       failure(EINTR, system.after(149)), Answer{0, 0, system.after(1)}});
    EXPECT_EQ(acceptFrom(server), "TimeoutException CvPipe accept timeout");
    EXPECT_THAT(system.getWaits(), ElementsAre(500, 400, 150, 1));
    EXPECT_EQ(log.texts(), (Lines{CALLING, ERROR_IS + "997", STATUS_IS + "258", RETVAL_IS + "1"}));
}

TEST_F(ListenerFaultsTest, AWaitWithoutLimitIsOneForTheSystem) {
    for (const int timeout : {0, -1}) {
        ServerCvPipe server("pipe", true, true);
        server.setAcceptTimeout(timeout);
        CvPipe client("pipe", true, true);
        FakeSystem system;
        system.on("accept4", {failure(EAGAIN)});
        system.on("poll", {failure(EINTR)});
        EXPECT_EQ(acceptFrom(server), "accepted");
        EXPECT_THAT(system.getWaits(), ElementsAre(-1, -1));
    }
}

TEST_F(ListenerFaultsTest, AClientTakesOneCallWhileNobodyHasToKnowMore) {
    ServerCvPipe server("pipe", true, true);
    LogCapture log(3);
    FakeSystem system;
    for (int round = 0; round < 2; ++round) {
        CvPipe client("pipe", true, true);
        system.forgetMade();
        EXPECT_EQ(acceptFrom(server), "accepted");
        EXPECT_EQ(system.getMade().front(), "accept4()");
        EXPECT_EQ(system.madeOf("poll").size(), 0u);
    }
}

TEST_F(ListenerFaultsTest, AServerThatWaitsForALimitedTimeOrTellsMoreLooksFirst) {
    for (const int level : {3, 4}) {
        ServerCvPipe server("pipe", true, true);
        LogCapture log(level);
        FakeSystem system;
        server.setAcceptTimeout(level == 3 ? 30 : 0);
        for (int round = 0; round < 2; ++round) {
            CvPipe client("pipe", true, true);
            system.forgetMade();
            EXPECT_EQ(acceptFrom(server), "accepted");
            EXPECT_EQ(system.getMade().front(), round == 0 ? "fcntl(2048)" : "accept4()");
        }
    }
}

TEST_F(ListenerFaultsTest, ALoopOfAcceptsPausesAfterEachFailure) {
    ServerCvPipe server("pipe", true, true);
    FakeSystem system;
    LogCapture log(1);
    system.on("accept4", std::vector<Answer>(3, failure(EMFILE)));
    StopWatch watch;
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(acceptFrom(server), FAILED);
    }
    EXPECT_GE(watch.elapsed(), 300);
    EXPECT_EQ(system.madeOf("accept4").size(), 3u);
    EXPECT_EQ(log.texts(), Lines(3, CONNECT + "24"));
}

TEST_F(ListenerFaultsTest, ACloseEndsThePause) {
    long long shortest = 1000000;
    // A machine that is busy may make any round of them long, but not all.
    for (int round = 0; round < 30 && shortest >= 100; ++round) {
        ServerCvPipe server("pipe", true, true);
        FakeSystem system;
        LogCapture log(1);
        system.on("accept4", {failure(EMFILE)});
        std::thread closer([&] {
            log.waitFor(CONNECT + "24");
            server.close();
        });
        StopWatch watch;
        acceptFrom(server);
        shortest = std::min(shortest, watch.elapsed());
        closer.join();
    }
    EXPECT_LT(shortest, 100);
}

TEST_F(ListenerFaultsTest, AFailedWaitOfAServerThatWasClosedIsAnInterruption) {
    ServerCvPipe server("pipe", true, true);
    FakeSystem system;
    LogCapture log(1);
    system.on("accept4", {failure(EAGAIN)});
    system.on("poll", {failure(ENOMEM, [&] { server.close(); })});
    EXPECT_EQ(acceptFrom(server), ABORTED);
    EXPECT_EQ(log.texts(), Lines{"ERROR: Wait failed in Accept."});
}

TEST_F(ListenerFaultsTest, ACloseThatFailsSaysSo) {
    ServerCvPipe server("pipe", true, true);
    FakeSystem system;
    LogCapture log;
    system.on("shutdown", {failure(ENOTCONN)});
    server.close();
    EXPECT_EQ(maskedTexts(log), (Lines{"DEBUG: Close Handles: handle=N event= -1",
                                       "INFO: ServerCvPipe_closePipe CancelIoEx failed. Error code : 107"}));
}

/// Closes the server just before each call that an accept makes, one after the other.
class CloseAtEachCallTest : public ListenerFaultsTest {
 protected:
    /// @return how many calls there are at which it can close.
    std::size_t closeAtEachCall(bool withClient) {
        for (std::size_t number = 0;; ++number) {
            ServerCvPipe server("pipe", true, true);
            server.setAcceptTimeout(20);
            std::unique_ptr<CvPipe> client;
            if (withClient) {
                client = std::make_unique<CvPipe>("pipe", true, true);
            }
            FakeSystem system;
            LogCapture log(3);
            system.onCallNumber(number, [&] { std::thread([&] { server.close(); }).join(); });
            const std::string outcome = acceptFrom(server);
            if (!system.isActionDone()) {
                return number;
            }
            expectOutcome(outcome, log.texts(), withClient);
        }
    }
    static void expectOutcome(const std::string& outcome, const Lines& lines, bool withClient) {
        if (outcome == "accepted") {
            EXPECT_TRUE(withClient);
            EXPECT_THAT(lines, IsEmpty());
        } else {
            EXPECT_EQ(outcome, ABORTED);
            EXPECT_EQ(lines, Lines{"INFO: Accept aborted."});
        }
    }
};

TEST_F(CloseAtEachCallTest, IsNoFailureInTheLog) {
    // To let the socket not block, to accept and to wait, and what follows when there is a client.
    EXPECT_EQ(closeAtEachCall(false), 3u);
    EXPECT_GE(closeAtEachCall(true), 1u);
}

TEST_F(CloseAtEachCallTest, IsNoFailureWhateverTheCallSays) {
    for (const int error : {EINVAL, EAGAIN, EMFILE, EINTR, ECONNABORTED}) {
        for (const bool isLate : {false, true}) {
            ServerCvPipe server("pipe", true, true);
            FakeSystem system;
            LogCapture log(3);
            std::vector<Answer> answers = {failure(error, [&] { server.close(); })};
            if (isLate) {
                answers.insert(answers.begin(), failure(EAGAIN));
                system.on("poll", {returning(POLLIN)});
            }
            system.on("accept4", answers);
            EXPECT_EQ(acceptFrom(server), ABORTED) << error;
            EXPECT_EQ(log.texts(), Lines{"INFO: Accept aborted."}) << error;
        }
    }
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
