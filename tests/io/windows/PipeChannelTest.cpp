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

/// The handles of the first pipe that a fake system opens.
const std::string PIPE = "1000";
const std::string EVENT = "1001";
const std::string WRITE_EVENT = "1002";

/// What a call of a pipe ended with: its result, or the class and message of its exception.
template <class Action>
std::string outcomeOf(Action action) {
    try {
        return action();
    } catch (TimeoutException& e) {
        return "TimeoutException " + e.getMessage();
    } catch (InterruptedException& e) {
        return "InterruptedException " + e.getMessage();
    } catch (BrokenPipeException& e) {
        return "BrokenPipeException " + e.getMessage();
    } catch (CvPipeException& e) {
        return "CvPipeException " + e.getMessage();
    }
}

struct IoCase {
    const char* name;
    /// What ReadFile or WriteFile says.
    Answer first;
    DWORD status;
    Answer result;
    std::string outcome;
    Lines lines;
};

std::ostream& operator<<(std::ostream& out, const IoCase& item) {
    return out << item.name;
}

class ReadCodeTest : public ::testing::TestWithParam<IoCase> {};

TEST_P(ReadCodeTest, EndsAsItShould) {
    const IoCase& param = GetParam();
    FakeSystem system;
    CvPipe pipe("pipe", true, true);
    system.incoming = "data";
    system.onRead = {param.first};
    system.onWait = {param.status};
    system.onResult = {param.result};
    LogCapture log;
    EXPECT_EQ(outcomeOf([&] { return readSome(pipe, 70, 10); }), param.outcome);
    EXPECT_EQ(log.texts(), param.lines);
    EXPECT_EQ(system.madeOf("ReadFile"), Lines{"ReadFile(" + PIPE + ", 10, event " + EVENT + ")"});
    if (param.first.error == ERROR_IO_PENDING) {
        EXPECT_EQ(system.madeOf("WaitForSingleObject"), Lines{"WaitForSingleObject(" + EVENT + ", 70)"});
        EXPECT_EQ(system.madeOf("GetOverlappedResult"),
                  param.status == 0 ? Lines{"GetOverlappedResult(" + PIPE + ", event " + EVENT + ", 1)"} : Lines{});
    }
}

const Answer PENDING{ERROR_IO_PENDING, 0};
const std::string READ_ABORTED = "InterruptedException CvPipe read aborted.";
const std::string READ_FAILED = "CvPipeException CvPipe read failed.";

INSTANTIATE_TEST_SUITE_P(
    AllCodes, ReadCodeTest,
    ::testing::Values(IoCase{"AtOnce", {0, 4}, 0, {}, "data", {}},
                      IoCase{"NothingAtOnce", {0, 0}, 0, {}, "end of data", {}},
                      IoCase{"BrokenAtOnce", {109, 0}, 0, {}, "end of data", {"WARN: ReadFile error: 109"}},
                      IoCase{"AbortedAtOnce", {995, 0}, 0, {}, READ_FAILED, {"WARN: ReadFile error: 995"}},
                      IoCase{"NoDataAtOnce", {232, 0}, 0, {}, READ_FAILED, {"WARN: ReadFile error: 232"}},
                      IoCase{"UnknownAtOnce", {4711, 0}, 0, {}, READ_FAILED, {"WARN: ReadFile error: 4711"}},
                      IoCase{"NoCodeAtOnce", {NO_CODE, 0}, 0, {}, READ_FAILED, {"WARN: ReadFile error: 0"}},
                      IoCase{"Pending", PENDING, 0, {0, 4}, "data", {}},
                      IoCase{"PendingWithACodeLeft", PENDING, 0, {997, 4}, "data", {}},
                      IoCase{"PendingWithNothing", PENDING, 0, {0, 0}, "end of data", {}},
                      IoCase{"PendingBroken", PENDING, 0, {109, 0}, "end of data", {}},
                      IoCase{"PendingBrokenWithData", PENDING, 0, {109, 4}, "data", {}},
                      IoCase{"PendingAborted", PENDING, 0, {995, 0}, READ_ABORTED, {}},
                      IoCase{
                          "PendingUnknown", PENDING, 0, {4711, 0}, READ_FAILED, {"ERROR: ReadFile failed: 4711"}},
                      IoCase{"TimedOut",
                             PENDING,
                             WAIT_TIMEOUT,
                             {},
                             "TimeoutException CvPipe read timeout.",
                             {"DEBUG: Read timed out."}},
                      IoCase{"WaitFailed", PENDING, WAIT_FAILED, {}, "end of data", {}},
                      IoCase{"WaitAbandoned", PENDING, WAIT_ABANDONED, {}, "end of data", {}}),
    [](const auto& item) { return std::string(item.param.name); });

class WriteCodeTest : public ::testing::TestWithParam<IoCase> {};

TEST_P(WriteCodeTest, EndsAsItShould) {
    const IoCase& param = GetParam();
    FakeSystem system;
    CvPipe pipe("pipe", true, true);
    system.onWrite = {param.first};
    system.onWait = {param.status};
    system.onResult = {param.result};
    system.made.clear();
    LogCapture log;
    EXPECT_EQ(outcomeOf([&] {
                  writeText(pipe, "data");
                  return "written";
              }),
              param.outcome);
    EXPECT_EQ(log.texts(), param.lines);
    Lines calls{"WriteFile(" + PIPE + ", 4, event " + WRITE_EVENT + ")"};
    if (param.first.error == ERROR_IO_PENDING) {
        calls.push_back("WaitForSingleObject(" + WRITE_EVENT + ", 10000)");
        if (param.status != WAIT_OBJECT_0) {
            calls.push_back("CancelIoEx(" + PIPE + ", event " + WRITE_EVENT + ")");
        }
        // Whatever the wait said, the system has let go of the bytes.
        calls.push_back("GetOverlappedResult(" + PIPE + ", event " + WRITE_EVENT + ", 1)");
    }
    EXPECT_EQ(system.made, calls);
}

const std::string BROKEN = "BrokenPipeException Pipe was closed at other end.";
const std::string WRITE_ABORTED = "InterruptedException Pipe write aborted.";
const std::string WRITE_FAILED = "CvPipeException Pipe write failed";

INSTANTIATE_TEST_SUITE_P(
    AllCodes, WriteCodeTest,
    ::testing::Values(
        IoCase{"AtOnce", {0, 4}, 0, {}, "written", {}},
        IoCase{"NothingAtOnce", {0, 0}, 0, {}, "written", {"DEBUG: WriteFile succeeded but wrote no bytes."}},
        IoCase{"AbortedAtOnce", {995, 0}, 0, {}, WRITE_ABORTED, {"INFO: WriteFile aborted."}},
        IoCase{"BrokenAtOnce", {109, 0}, 0, {}, BROKEN, {"DEBUG: WriteFile broken pipe"}},
        IoCase{"NoDataAtOnce", {232, 0}, 0, {}, BROKEN, {"DEBUG: WriteFile broken pipe"}},
        IoCase{"UnknownAtOnce", {4711, 0}, 0, {}, WRITE_FAILED, {"ERROR: WriteFile error: 4711"}},
        IoCase{"NoCodeAtOnce", {NO_CODE, 0}, 0, {}, WRITE_FAILED, {"ERROR: WriteFile error: 0"}},
        IoCase{"Pending", PENDING, 0, {0, 4}, "written", {}},
        IoCase{"PendingWithACodeLeft", PENDING, 0, {997, 4}, "written", {}},
        IoCase{"PendingWithNothing",
               PENDING,
               0,
               {0, 0},
               "written",
               {"DEBUG: writePipe: woke up without completing I/O"}},
        IoCase{"PendingAborted", PENDING, 0, {995, 0}, WRITE_ABORTED, {}},
        IoCase{"PendingBroken", PENDING, 0, {109, 0}, BROKEN, {}},
        IoCase{"PendingNoData", PENDING, 0, {232, 0}, WRITE_FAILED, {"ERROR: WriteFile failed: 232"}},
        IoCase{"PendingUnknown", PENDING, 0, {4711, 0}, WRITE_FAILED, {"ERROR: WriteFile failed: 4711"}},
        IoCase{"TimedOut",
               PENDING,
               WAIT_TIMEOUT,
               {995, 0},
               "TimeoutException Pipe write timed out",
               {"DEBUG: Write timed out."}},
        IoCase{"WaitFailed", PENDING, WAIT_FAILED, {995, 0}, WRITE_FAILED, {"ERROR: WriteFile failed: 6"}}),
    [](const auto& item) { return std::string(item.param.name); });

TEST(PipeChannelTest, ZeroAsReadTimeoutWaitsForEver) {
    FakeSystem system;
    CvPipe pipe("pipe", true, true);
    system.incoming = "abc";
    for (const int timeout : {0, -1}) {
        system.made.clear();
        system.onRead = {PENDING};
        system.onResult = {{0, 1}};
        readSome(pipe, timeout);
        EXPECT_EQ(system.madeOf("WaitForSingleObject"), Lines{"WaitForSingleObject(" + EVENT + ", 4294967295)"});
    }
}

TEST(PipeChannelTest, AReadThatTimedOutIsTakenUpAndNothingIsLost) {
    FakeSystem system;
    CvPipe pipe("pipe", true, true);
    system.incoming = "abcdef";
    system.onRead = {PENDING};
    system.onWait = {WAIT_TIMEOUT, WAIT_TIMEOUT, WAIT_OBJECT_0};
    EXPECT_THROW(readSome(pipe, 5, 6), TimeoutException);
    EXPECT_THROW(readSome(pipe, 5, 6), TimeoutException);
    system.onResult = {{0, 6}};
    // Piece by piece when the next callers ask for less.
    EXPECT_EQ(readSome(pipe, 5, 2), "ab");
    EXPECT_EQ(readSome(pipe, 5, 3), "cde");
    EXPECT_EQ(readSome(pipe, 5, 100), "f");
    EXPECT_EQ(system.madeOf("ReadFile").size(), 1u);
    EXPECT_THAT(system.madeOf("CancelIoEx"), IsEmpty());
}

TEST(PipeChannelTest, AReadThatEndedWithItsThreadBeginsAnew) {
    FakeSystem system;
    CvPipe pipe("pipe", true, true);
    system.incoming = "abc";
    system.onRead = {PENDING, {0, 3}};
    system.onWait = {WAIT_TIMEOUT};
    EXPECT_THROW(readSome(pipe, 5, 6), TimeoutException);
    system.onResult = {{ERROR_OPERATION_ABORTED, 0}};
    EXPECT_EQ(readSome(pipe, 5, 6), "abc");
}

TEST(PipeChannelTest, AWriteGoesOnUntilAllIsTaken) {
    FakeSystem system;
    CvPipe pipe("pipe", true, true);
    system.onWrite = {{0, 3}, PENDING, {0, 1}};
    system.onResult = {{0, 2}};
    LogCapture log;
    writeText(pipe, "abcdef");
    EXPECT_EQ(log.texts(), Lines{});
    EXPECT_EQ(system.madeOf("WriteFile"), (Lines{"WriteFile(1000, 6, event 1002)", "WriteFile(1000, 3, event 1002)",
                                                 "WriteFile(1000, 1, event 1002)"}));
}

TEST(PipeChannelTest, LargeBlocksAreWrittenInFewCallsOfTheUsualTime) {
    FakeSystem system;
    CvPipe pipe("pipe", true, true);
    char memory[4096];
    pipe.getOutputStream()->rdbuf()->pubsetbuf(memory, sizeof memory);
    const std::string text(40960, 'x');
    system.onWrite = {{0, 16384}, PENDING};
    system.onResult = {{0, 16384}};
    pipe.getOutputStream()->write(text.data(), 7);
    pipe.getOutputStream()->write(text.data(), 40960);
    // What was held back goes out with the beginning of the block.
    EXPECT_EQ(system.madeOf("WriteFile"),
              (Lines{"WriteFile(1000, 16384, event 1002)", "WriteFile(1000, 16384, event 1002)",
                     "WriteFile(1000, 8192, event 1002)"}));
    EXPECT_EQ(system.madeOf("WaitForSingleObject"), Lines{"WaitForSingleObject(1002, 10000)"});
}

TEST(PipeChannelTest, LargeBlocksStopAtTheFirstFailure) {
    FakeSystem system;
    CvPipe pipe("pipe", true, true);
    char memory[4096];
    pipe.getOutputStream()->rdbuf()->pubsetbuf(memory, sizeof memory);
    const std::string text(40960, 'x');
    system.onWrite = {{0, 16384}, {ERROR_NO_DATA}};
    EXPECT_EQ(outcomeOf([&] {
                  pipe.getOutputStream()->write(text.data(), 40960);
                  return "written";
              }),
              "BrokenPipeException Pipe was closed at other end.");
    EXPECT_EQ(system.madeOf("WriteFile"),
              (Lines{"WriteFile(1000, 16384, event 1002)", "WriteFile(1000, 16384, event 1002)"}));
}

TEST(PipeChannelTest, CloseCancelsAllAndTheLastOneOutClosesTheHandles) {
    FakeSystem system;
    Platform::ChannelHandle channel;
    ASSERT_EQ(Platform::openChannel("\\\\.\\pipe\\pipe", true, true, 0, channel), 0);
    LogCapture log;
    system.made.clear();
    EXPECT_EQ(Platform::closeChannel(channel), 0);
    EXPECT_EQ(system.made, Lines{"CancelIoEx(1000, all)"});
    char c = ' ';
    EXPECT_EQ(Platform::readChannel(channel, &c, 1, 0), Platform::ABORTED);
    EXPECT_EQ(Platform::writeChannel(channel, &c, 1), Platform::ABORTED);
    system.onCancel = {{ERROR_NOT_FOUND, 0}};
    EXPECT_EQ(Platform::closeChannel(channel), 0);
    EXPECT_EQ(log.texts(), (Lines{"DEBUG: Close Handles: handle=1000; event=1001", "INFO: WriteFile aborted.",
                                  "DEBUG: Close Handles: handle=1000; event=1001",
                                  "INFO: CvPipe_closePipe CancelIoEx failed. Error code : 1168"}));
    EXPECT_EQ(system.open.size(), 3u);
    channel.reset();
    EXPECT_THAT(system.open, IsEmpty());
}

TEST(PipeChannelTest, CloseSetsItsFlagAndCancelsBeforeItLogs) {
    FakeSystem system;
    Platform::ChannelHandle channel;
    ASSERT_EQ(Platform::openChannel("\\\\.\\pipe\\pipe", true, true, 0, channel), 0);
    LogCapture log;
    int result = 0;
    std::string logged;
    system.onCall = [&](const std::string& name) {
        if (name == "CancelIoEx") {
            char c = ' ';
            result = Platform::readChannel(channel, &c, 1, 0);
            logged = log.log();
        }
    };
    Platform::closeChannel(channel);
    EXPECT_EQ(result, Platform::ABORTED);
    EXPECT_EQ(logged, "");
    EXPECT_EQ(log.texts(), Lines{"DEBUG: Close Handles: handle=1000; event=1001"});
}

/// What another thread does while the system is within the call of that name.
std::function<void(const std::string&)> closeWithin(const std::string& call, CvPipe& pipe) {
    return [call, &pipe](const std::string& name) {
        if (name == call) {
            pipe.close();
        }
    };
}

const std::string CLOSED = "DEBUG: Close Handles: handle=1000; event=1001";

TEST(PipeChannelTest, ACloseThatComesJustBeforeAReadBeginsIsNotLost) {
    FakeSystem system;
    CvPipe pipe("pipe", true, true);
    system.onRead = {PENDING};
    // The first one is too early to find anything.
    system.onCancel = {{ERROR_NOT_FOUND, 0}, {0, 0}};
    system.onResult = {{ERROR_OPERATION_ABORTED, 0}};
    system.made.clear();
    system.onCall = closeWithin("ReadFile", pipe);
    EXPECT_EQ(outcomeOf([&] { return readSome(pipe, 0, 10); }), READ_ABORTED);
    EXPECT_EQ(system.made,
              (Lines{"ReadFile(1000, 10, event 1001)", "CancelIoEx(1000, all)", "CancelIoEx(1000, event 1001)",
                     "WaitForSingleObject(1001, 4294967295)", "GetOverlappedResult(1000, event 1001, 1)",
                     "CloseHandle(1002)", "CloseHandle(1001)", "CloseHandle(1000)"}));
}

TEST(PipeChannelTest, ACloseThatComesJustBeforeAWriteBeginsIsNotLost) {
    FakeSystem system;
    CvPipe pipe("pipe", true, true);
    system.onWrite = {PENDING};
    system.onCancel = {{ERROR_NOT_FOUND, 0}, {0, 0}};
    system.onResult = {{ERROR_OPERATION_ABORTED, 0}};
    system.made.clear();
    system.onCall = closeWithin("WriteFile", pipe);
    EXPECT_EQ(outcomeOf([&] {
                  writeText(pipe, "data");
                  return "written";
              }),
              WRITE_ABORTED);
    EXPECT_EQ(system.made,
              (Lines{"WriteFile(1000, 4, event 1002)", "CancelIoEx(1000, all)", "CancelIoEx(1000, event 1002)",
                     "WaitForSingleObject(1002, 10000)", "GetOverlappedResult(1000, event 1002, 1)",
                     "CloseHandle(1002)", "CloseHandle(1001)", "CloseHandle(1000)"}));
}

TEST(PipeChannelTest, AReadThatTheSystemRefusesForACloseIsInterrupted) {
    for (const DWORD code : {DWORD(ERROR_OPERATION_ABORTED), DWORD(ERROR_INVALID_HANDLE)}) {
        FakeSystem system;
        CvPipe pipe("pipe", true, true);
        system.onRead = {{code, 0}};
        system.onCall = closeWithin("ReadFile", pipe);
        LogCapture log;
        EXPECT_EQ(outcomeOf([&] { return readSome(pipe); }), READ_ABORTED);
        EXPECT_EQ(log.texts(), Lines{CLOSED});
    }
}

TEST(PipeChannelTest, AReadThatIsClosedAsItsTimeEndsIsInterrupted) {
    for (const DWORD status : {static_cast<DWORD>(WAIT_TIMEOUT), WAIT_FAILED}) {
        FakeSystem system;
        CvPipe pipe("pipe", true, true);
        system.onRead = {PENDING};
        system.onWait = {status};
        system.onResult = {{ERROR_OPERATION_ABORTED, 0}};
        system.onCall = closeWithin("WaitForSingleObject", pipe);
        LogCapture log;
        EXPECT_EQ(outcomeOf([&] { return readSome(pipe, 70); }), READ_ABORTED);
        EXPECT_EQ(log.texts(), Lines{CLOSED});
    }
}

TEST(PipeChannelTest, AWriteThatIsClosedAsItsTimeEndsIsInterrupted) {
    for (const DWORD status : {static_cast<DWORD>(WAIT_TIMEOUT), WAIT_FAILED}) {
        FakeSystem system;
        CvPipe pipe("pipe", true, true);
        system.onWrite = {PENDING};
        system.onWait = {status};
        system.onResult = {{ERROR_OPERATION_ABORTED, 0}};
        system.onCall = closeWithin("WaitForSingleObject", pipe);
        LogCapture log;
        EXPECT_EQ(outcomeOf([&] {
                      writeText(pipe, "data");
                      return "written";
                  }),
                  WRITE_ABORTED);
        EXPECT_EQ(log.texts(), Lines{CLOSED});
    }
}

TEST(PipeChannelTest, APendingReadIsCancelledAndAwaitedBeforeItsMemoryGoes) {
    FakeSystem system;
    {
        CvPipe pipe("pipe", true, true);
        system.onRead = {PENDING};
        system.onWait = {WAIT_TIMEOUT};
        EXPECT_THROW(readSome(pipe, 5), TimeoutException);
        system.made.clear();
        system.onResult = {{ERROR_OPERATION_ABORTED, 0}};
    }
    EXPECT_EQ(system.made, (Lines{"CancelIoEx(1000, all)", "CancelIoEx(1000, event 1001)",
                                  "GetOverlappedResult(1000, event 1001, 1)", "CloseHandle(1002)",
                                  "CloseHandle(1001)", "CloseHandle(1000)"}));
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
