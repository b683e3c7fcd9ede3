#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>

#include "io/platform/PipePlatform.h"
#include "tests/io/windows/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::IsEmpty;

const std::string CALLING = "DEBUG: Calling ConnectNamedPipe.";
const std::string ERROR_IS = "DEBUG: ServerCvPipe_acceptPipe error = ";
const std::string STATUS_IS = "DEBUG: ServerCvPipe_acceptPipe WaitForSingleObject status = ";
const std::string OVERLAPPED_IS = "DEBUG: GetOverlappedResult - GetLastError=";
const std::string RETVAL_IS = "DEBUG: ServerCvPipe_acceptPipe retval = ";
const std::string CREATED = "DEBUG: bindPipe: handle=1003 event=1004";
const std::string CONNECT = "ERROR: Connect error: ";

std::string creation(const std::string& openMode) {
    return "CreateNamedPipeA(\\\\.\\pipe\\pipe, " + openMode + ", 0, 255, 65536, 65536, 0, {24 null 0})";
}

TEST(PipeListenerTest, CreatesWithExactlyTheseArguments) {
    for (const int direction : {1, 2, 3}) {
        FakeSystem system;
        LogCapture log;
        ServerCvPipe server("pipe", (direction & 1) != 0, (direction & 2) != 0);
        CvPipe accepted;
        server.accept(accepted);
        // Overlapped, of that direction, and the first instance is to be the only one.
        const std::string event = "CreateEventA(null, 1, 0, null)";
        EXPECT_EQ(system.made, (Lines{creation(std::to_string(0x40080000 + direction)), event, event,
                                      "ConnectNamedPipe(1000, event 1001)",
                                      creation(std::to_string(0x40000000 + direction)), event, event}));
        EXPECT_EQ(log.texts(),
                  (Lines{"DEBUG: bindPipe: handle=1000 event=1001", CALLING, RETVAL_IS + "0", CREATED}));
    }
}

TEST(PipeListenerTest, AFailedCreationIsLogged) {
    for (const DWORD code : {5ul, 231ul, 4711ul, NO_CODE}) {
        FakeSystem system;
        system.onCreateNamedPipe = {{code}};
        LogCapture log;
        EXPECT_EQ(messageOf<BindException>([] { ServerCvPipe("pipe", true, true); }), "CreateNamedPipe failed");
        EXPECT_EQ(log.texts().front(),
                  "ERROR: CreateNamedPipe failed: " + (code == NO_CODE ? "0" : std::to_string(code)));
    }
}

TEST(PipeListenerTest, AFailedCreationOfAnEventIsLoggedAndNothingStaysOpen) {
    FakeSystem system;
    system.onCreateEvent = {{8}, {0}, {8}, {NO_CODE}, {0}, {NO_CODE}};
    LogCapture log;
    for (int i = 0; i < 4; ++i) {
        EXPECT_THROW(ServerCvPipe("pipe", true, true), BindException);
    }
    EXPECT_THAT(system.open, IsEmpty());
    EXPECT_EQ(log.count("ERROR: CreateEvent failed: 8"), 2);
    EXPECT_EQ(log.count("ERROR: CreateEvent failed: 0"), 2);
}

struct AcceptCase {
    const char* name;
    Answer connect;
    DWORD status;
    Answer result;
    std::string message;
    Lines lines;
};

std::ostream& operator<<(std::ostream& out, const AcceptCase& item) {
    return out << item.name;
}

class AcceptCodeTest : public ::testing::TestWithParam<AcceptCase> {};

TEST_P(AcceptCodeTest, EndsAsItShould) {
    const AcceptCase& param = GetParam();
    FakeSystem system;
    ServerCvPipe server("pipe", true, true);
    server.setAcceptTimeout(70);
    system.onConnect = {param.connect};
    system.onWait = {param.status};
    system.onResult = {param.result};
    LogCapture log;
    CvPipe accepted;
    std::string message = "accepted";
    try {
        server.accept(accepted);
    } catch (TimeoutException& e) {
        message = "TimeoutException " + e.getMessage();
    } catch (CvPipeException& e) {
        message = e.getMessage();
    }
    EXPECT_EQ(message, param.message);
    EXPECT_EQ(accepted.isBound(), message == "accepted");
    Lines expected{CALLING};
    expected.insert(expected.end(), param.lines.begin(), param.lines.end());
    EXPECT_EQ(log.texts(), expected);
    if (param.connect.error == ERROR_IO_PENDING) {
        EXPECT_EQ(system.madeOf("WaitForSingleObject"), Lines{"WaitForSingleObject(1001, 70)"});
    }
}

const Answer PENDING{ERROR_IO_PENDING, 0};
const std::string FAILED = "acceptPipe failed";

INSTANTIATE_TEST_SUITE_P(
    AllCodes, AcceptCodeTest,
    ::testing::Values(
        AcceptCase{"AtOnce", {}, 0, {}, "accepted", {RETVAL_IS + "0", CREATED}},
        AcceptCase{"Connected", {535}, 0, {}, "accepted", {ERROR_IS + "535", RETVAL_IS + "0", CREATED}},
        AcceptCase{"Gone", {232}, 0, {}, FAILED, {ERROR_IS + "232", CONNECT + "232", RETVAL_IS + "3", CREATED}},
        AcceptCase{"Broken", {109}, 0, {}, FAILED, {ERROR_IS + "109", CONNECT + "109", RETVAL_IS + "3", CREATED}},
        AcceptCase{
            "Unknown", {4711}, 0, {}, FAILED, {ERROR_IS + "4711", CONNECT + "4711", RETVAL_IS + "3", CREATED}},
        AcceptCase{"NoCode", {NO_CODE}, 0, {}, FAILED, {ERROR_IS + "0", CONNECT + "0", RETVAL_IS + "3", CREATED}},
        AcceptCase{"Pending",
                   PENDING,
                   0,
                   {0},
                   "accepted",
                   {ERROR_IS + "997", STATUS_IS + "0", OVERLAPPED_IS + "0", RETVAL_IS + "0", CREATED}},
        AcceptCase{"PendingConnected",
                   PENDING,
                   0,
                   {535},
                   "accepted",
                   {ERROR_IS + "997", STATUS_IS + "0", OVERLAPPED_IS + "535", RETVAL_IS + "0", CREATED}},
        AcceptCase{"PendingWithACodeLeft",
                   PENDING,
                   0,
                   {997},
                   "accepted",
                   {ERROR_IS + "997", STATUS_IS + "0", OVERLAPPED_IS + "997", RETVAL_IS + "0", CREATED}},
        AcceptCase{"PendingAborted",
                   PENDING,
                   0,
                   {995},
                   "acceptPipe aborted.",
                   {ERROR_IS + "997", STATUS_IS + "0", OVERLAPPED_IS + "995", "INFO: Accept aborted."}},
        AcceptCase{"PendingUnknown",
                   PENDING,
                   0,
                   {4711},
                   FAILED,
                   {ERROR_IS + "997", STATUS_IS + "0", OVERLAPPED_IS + "4711", CONNECT + "4711", RETVAL_IS + "3",
                    CREATED}},
        AcceptCase{"TimedOut",
                   PENDING,
                   WAIT_TIMEOUT,
                   {},
                   "TimeoutException CvPipe accept timeout",
                   {ERROR_IS + "997", STATUS_IS + "258", RETVAL_IS + "1"}},
        AcceptCase{"WaitFailed",
                   PENDING,
                   WAIT_FAILED,
                   {},
                   "CvPipe wait failed in accept",
                   {ERROR_IS + "997", STATUS_IS + "4294967295", RETVAL_IS + "2", "ERROR: Wait failed in Accept."}}),
    [](const auto& item) { return std::string(item.param.name); });

TEST(PipeListenerTest, ZeroAsAcceptTimeoutWaitsForEver) {
    FakeSystem system;
    ServerCvPipe server("pipe", true, true);
    system.onConnect = {PENDING};
    CvPipe accepted;
    server.accept(accepted);
    EXPECT_EQ(system.madeOf("WaitForSingleObject"), Lines{"WaitForSingleObject(1001, 4294967295)"});
}

TEST(PipeListenerTest, AnAcceptThatTimedOutIsTakenUpWithTheSameLines) {
    FakeSystem system;
    ServerCvPipe server("pipe", true, true);
    server.setAcceptTimeout(70);
    system.onConnect = {PENDING};
    system.onWait = {WAIT_TIMEOUT};
    CvPipe accepted;
    EXPECT_THROW(server.accept(accepted), TimeoutException);
    LogCapture log;
    server.accept(accepted);
    EXPECT_EQ(log.texts(),
              (Lines{CALLING, ERROR_IS + "997", STATUS_IS + "0", OVERLAPPED_IS + "0", RETVAL_IS + "0", CREATED}));
    EXPECT_EQ(system.madeOf("ConnectNamedPipe").size(), 1u);
}

TEST(PipeListenerTest, AWaitThatEndedWithItsThreadBeginsAnew) {
    FakeSystem system;
    ServerCvPipe server("pipe", true, true);
    server.setAcceptTimeout(70);
    system.onConnect = {PENDING, {ERROR_PIPE_CONNECTED}};
    system.onWait = {WAIT_TIMEOUT};
    CvPipe accepted;
    EXPECT_THROW(server.accept(accepted), TimeoutException);
    system.onResult = {{ERROR_OPERATION_ABORTED}};
    server.accept(accepted);
    EXPECT_TRUE(accepted.isBound());
}

TEST(PipeListenerTest, AnInstanceThatCouldNotBeCreatedIsTriedAgain) {
    FakeSystem system;
    ServerCvPipe server("pipe", true, true);
    system.onCreateNamedPipe = {{8}};
    LogCapture log;
    CvPipe first;
    EXPECT_EQ(messageOf<CvPipeException>([&] { server.accept(first); }), "CreateNamedPipe failed");
    EXPECT_TRUE(first.isBound()) << "the client was connected before";
    CvPipe second;
    EXPECT_EQ(messageOf<CvPipeException>([&] { server.accept(second); }), "acceptPipe failed");
    server.accept(second);
    EXPECT_TRUE(second.isBound());
    EXPECT_TRUE(log.has("ERROR: CreateNamedPipe failed: 8"));
    EXPECT_TRUE(log.has(CONNECT + "6"));
}

TEST(PipeListenerTest, CloseCancelsAndLogsWhyItCouldNot) {
    FakeSystem system;
    {
        ServerCvPipe server("pipe", true, true);
        LogCapture log;
        system.made.clear();
        system.onCancel = {{ERROR_NOT_FOUND}};
        server.close();
        EXPECT_EQ(system.made,
                  (Lines{"CancelIoEx(1000, all)", "CloseHandle(1002)", "CloseHandle(1001)", "CloseHandle(1000)"}));
        EXPECT_EQ(log.texts(), (Lines{"DEBUG: Close Handles: handle=1000 event= 1001",
                                      "INFO: ServerCvPipe_closePipe CancelIoEx failed. Error code : 1168"}));
    }
    EXPECT_THAT(system.open, IsEmpty());
}

TEST(PipeListenerTest, CloseSetsItsFlagAndCancelsBeforeItLogs) {
    FakeSystem system;
    Platform::ListenerHandle listener;
    ASSERT_EQ(Platform::createInstance("\\\\.\\pipe\\pipe", true, true, true, listener), 0);
    LogCapture log;
    int result = 0;
    std::string logged = "nothing was cancelled";
    system.onCancel = {{ERROR_NOT_FOUND}};
    system.onCall = [&](const std::string& name) {
        if (name == "CancelIoEx") {
            logged = log.log();
            Platform::ChannelHandle channel;
            result = Platform::awaitClient(listener, 0, channel);
        }
    };
    Platform::closeListener(listener);
    EXPECT_EQ(result, Platform::ABORTED);
    EXPECT_EQ(logged, "");
    EXPECT_EQ(log.texts(), (Lines{CALLING, ERROR_IS + "995", "DEBUG: Close Handles: handle=1000 event= 1001",
                                  "INFO: ServerCvPipe_closePipe CancelIoEx failed. Error code : 1168"}));
}

TEST(PipeListenerTest, WhatIsClosedAlreadyIsNeitherCancelledNorLoggedAgain) {
    FakeSystem system;
    Platform::ListenerHandle listener;
    ASSERT_EQ(Platform::createInstance("\\\\.\\pipe\\pipe", true, true, true, listener), 0);
    LogCapture log;
    Platform::closeListener(listener);
    Platform::closeListener(listener);
    EXPECT_EQ(log.texts(), Lines{"DEBUG: Close Handles: handle=1000 event= 1001"});
    EXPECT_EQ(system.madeOf("CancelIoEx").size(), 1u);
}

/// What another thread does while the system is within the call of that name.
std::function<void(const std::string&)> closeWithin(const std::string& call, ServerCvPipe& server) {
    return [call, &server](const std::string& name) {
        if (name == call) {
            server.close();
        }
    };
}

const std::string CLOSED = "DEBUG: Close Handles: handle=1000 event= 1001";

TEST(PipeListenerTest, ACloseThatComesJustBeforeAWaitBeginsIsNotLost) {
    FakeSystem system;
    ServerCvPipe server("pipe", true, true);
    system.onConnect = {PENDING};
    // The first one is too early to find anything.
    system.onCancel = {{ERROR_NOT_FOUND}, {0}};
    system.onResult = {{ERROR_OPERATION_ABORTED}};
    system.made.clear();
    system.onCall = closeWithin("ConnectNamedPipe", server);
    CvPipe accepted;
    EXPECT_EQ(messageOf<InterruptedException>([&] { server.accept(accepted); }), "accept aborted");
    EXPECT_EQ(system.made,
              (Lines{"ConnectNamedPipe(1000, event 1001)", "CancelIoEx(1000, all)", "CancelIoEx(1000, event 1001)",
                     "WaitForSingleObject(1001, 4294967295)", "GetOverlappedResult(1000, event 1001, 1)",
                     "CloseHandle(1002)", "CloseHandle(1001)", "CloseHandle(1000)"}));
}

TEST(PipeListenerTest, AWaitThatIsClosedAsItsTimeEndsIsInterrupted) {
    for (const DWORD status : {static_cast<DWORD>(WAIT_TIMEOUT), WAIT_FAILED}) {
        FakeSystem system;
        ServerCvPipe server("pipe", true, true);
        server.setAcceptTimeout(70);
        system.onConnect = {PENDING};
        system.onWait = {status};
        system.onResult = {{ERROR_OPERATION_ABORTED}};
        system.onCall = closeWithin("WaitForSingleObject", server);
        LogCapture log;
        CvPipe accepted;
        EXPECT_EQ(messageOf<InterruptedException>([&] { server.accept(accepted); }), "accept aborted");
        EXPECT_EQ(log.texts(), (Lines{CALLING, ERROR_IS + "997", CLOSED, STATUS_IS + std::to_string(status),
                                      "INFO: Accept aborted."}));
    }
}

TEST(PipeListenerTest, APendingWaitIsCancelledAndAwaitedBeforeItsMemoryGoes) {
    FakeSystem system;
    ServerCvPipe server("pipe", true, true);
    server.setAcceptTimeout(70);
    system.onConnect = {PENDING};
    system.onWait = {WAIT_TIMEOUT};
    CvPipe accepted;
    EXPECT_THROW(server.accept(accepted), TimeoutException);
    system.made.clear();
    system.onResult = {{ERROR_OPERATION_ABORTED}};
    server.close();
    EXPECT_EQ(system.made, (Lines{"CancelIoEx(1000, all)", "CancelIoEx(1000, event 1001)",
                                  "GetOverlappedResult(1000, event 1001, 1)", "CloseHandle(1002)",
                                  "CloseHandle(1001)", "CloseHandle(1000)"}));
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
