// Each of the codes that the system may give, forced at each call that may give it.

#include <gmock/gmock.h>

#include <string>

#include "tests/io/windows/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::IsEmpty;

const DWORD CODES[] = {ERROR_ACCESS_DENIED,  ERROR_BROKEN_PIPE,       ERROR_PIPE_BUSY,  ERROR_NO_DATA, WAIT_TIMEOUT,
                       ERROR_PIPE_CONNECTED, ERROR_OPERATION_ABORTED, ERROR_IO_PENDING, 4711};

/// What is the same for all calls: the class and message of the exception, or the result.
template <class Action>
std::string outcomeOf(Action action) {
    try {
        return action();
    } catch (BindException& e) {
        return "BindException " + e.getMessage();
    } catch (ConnectException& e) {
        return "ConnectException " + e.getMessage();
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

/// A result and the lines of the log that go with it.
struct Expected {
    std::string outcome;
    Lines lines;
};

class EveryCodeTest : public ::testing::TestWithParam<DWORD> {
 protected:
    const DWORD code = GetParam();
    const std::string number = std::to_string(code);
    FakeSystem system;
};

INSTANTIATE_TEST_SUITE_P(Codes, EveryCodeTest, ::testing::ValuesIn(CODES),
                         [](const auto& item) { return std::to_string(item.param); });

// Without the lines at DEBUG.
const int LEVEL_INFO = 3;

TEST_P(EveryCodeTest, OfCreateNamedPipe) {
    system.onCreateNamedPipe = {{code}};
    LogCapture log(LEVEL_INFO);
    EXPECT_EQ(outcomeOf([] {
                  ServerCvPipe("pipe", true, true);
                  return "bound";
              }),
              "BindException CreateNamedPipe failed");
    // The last one is of the server's destruction, which has no handle to cancel anything on.
    EXPECT_EQ(log.texts().front(), "ERROR: CreateNamedPipe failed: " + number);
    EXPECT_THAT(system.open, IsEmpty());
}

TEST_P(EveryCodeTest, OfCreateNamedPipeForTheNextInstance) {
    ServerCvPipe server("pipe", true, true);
    system.onCreateNamedPipe = {{code}};
    LogCapture log(LEVEL_INFO);
    CvPipe accepted;
    EXPECT_EQ(outcomeOf([&] {
                  server.accept(accepted);
                  return "accepted";
              }),
              "CvPipeException CreateNamedPipe failed");
    EXPECT_TRUE(accepted.isBound());
    EXPECT_EQ(log.texts(), Lines{"ERROR: CreateNamedPipe failed: " + number});
}

TEST_P(EveryCodeTest, OfCreateEventForAServer) {
    for (const bool isFirstThere : {false, true}) {
        system.onCreateEvent = {{code}};
        if (isFirstThere) {
            system.onCreateEvent.push_front({0});
        }
        LogCapture log(LEVEL_INFO);
        EXPECT_EQ(outcomeOf([] {
                      ServerCvPipe("pipe", true, true);
                      return "bound";
                  }),
                  "BindException CreateNamedPipe failed");
        EXPECT_EQ(log.texts().front(), "ERROR: CreateEvent failed: " + number);
        EXPECT_THAT(system.open, IsEmpty());
    }
}

TEST_P(EveryCodeTest, OfCreateEventForTheNextInstance) {
    ServerCvPipe server("pipe", true, true);
    system.onCreateEvent = {{code}};
    LogCapture log(LEVEL_INFO);
    CvPipe accepted;
    EXPECT_EQ(outcomeOf([&] {
                  server.accept(accepted);
                  return "accepted";
              }),
              "CvPipeException CreateNamedPipe failed");
    EXPECT_TRUE(accepted.isBound());
    EXPECT_EQ(log.texts(), Lines{"ERROR: CreateEvent failed: " + number});
    // The accepted pipe alone: handle and two events.
    EXPECT_EQ(system.open.size(), 3u);
}

TEST_P(EveryCodeTest, OfCreateEventForAClient) {
    system.onCreateEvent = {{code}};
    LogCapture log(LEVEL_INFO);
    EXPECT_EQ(outcomeOf([] {
                  CvPipe("pipe", true, true);
                  return "connected";
              }),
              "CvPipeException Unrecognized pipe connect error");
    EXPECT_EQ(log.texts().front(), "ERROR: CreateEvent failed: " + number);
    EXPECT_THAT(system.open, IsEmpty());
}

TEST_P(EveryCodeTest, OfCreateFile) {
    system.onCreateFile = {{code}};
    LogCapture log(LEVEL_INFO);
    Expected expected{"ConnectException Could not connect to pipe.", {"ERROR: Could not open pipe. GLE=" + number}};
    if (code == ERROR_ACCESS_DENIED) {
        expected = {"ConnectException Access denied.", {}};
    } else if (code == ERROR_PIPE_BUSY) {
        // Waited for, and open at the second try.
        expected = {"connected", {}};
    }
    CvPipe pipe;
    EXPECT_EQ(outcomeOf([&] {
                  pipe.connect("pipe", true, true);
                  return "connected";
              }),
              expected.outcome);
    EXPECT_EQ(log.texts(), expected.lines);
    EXPECT_EQ(system.madeOf("WaitNamedPipeA").size(), code == ERROR_PIPE_BUSY ? 1u : 0u);
}

TEST_P(EveryCodeTest, OfWaitNamedPipe) {
    system.onCreateFile = {{ERROR_PIPE_BUSY}};
    system.onWaitNamedPipe = {{code}};
    LogCapture log;
    CvPipe pipe;
    EXPECT_EQ(outcomeOf([&] {
                  pipe.connect("pipe", true, true);
                  return "connected";
              }),
              "TimeoutException Timed out connecting to pipe");
    EXPECT_EQ(log.texts(), (Lines{"DEBUG: Waiting for named pipe.",
                                  "DEBUG: Could not open pipe \\\\.\\pipe\\pipe after 10000 milliseconds."}));
}

TEST_P(EveryCodeTest, OfReadFile) {
    CvPipe pipe("pipe", true, true);
    system.onRead = {{code, 0}};
    LogCapture log;
    Expected expected{"CvPipeException CvPipe read failed.", {"WARN: ReadFile error: " + number}};
    if (code == ERROR_BROKEN_PIPE) {
        expected.outcome = "end of data";
    } else if (code == ERROR_IO_PENDING) {
        // Done at once, with nothing.
        expected = {"end of data", {}};
    }
    EXPECT_EQ(outcomeOf([&] { return readSome(pipe, 70); }), expected.outcome);
    EXPECT_EQ(log.texts(), expected.lines);
}

TEST_P(EveryCodeTest, OfTheResultOfARead) {
    CvPipe pipe("pipe", true, true);
    system.onRead = {{ERROR_IO_PENDING, 0}};
    system.onResult = {{code, 0}};
    LogCapture log;
    Expected expected{"CvPipeException CvPipe read failed.", {"ERROR: ReadFile failed: " + number}};
    if (code == ERROR_BROKEN_PIPE || code == ERROR_IO_PENDING) {
        expected = {"end of data", {}};
    } else if (code == ERROR_OPERATION_ABORTED) {
        expected = {"InterruptedException CvPipe read aborted.", {}};
    }
    EXPECT_EQ(outcomeOf([&] { return readSome(pipe, 70); }), expected.outcome);
    EXPECT_EQ(log.texts(), expected.lines);
}

TEST_P(EveryCodeTest, OfWriteFile) {
    CvPipe pipe("pipe", true, true);
    system.onWrite = {{code, 0}};
    LogCapture log;
    Expected expected{"CvPipeException Pipe write failed", {"ERROR: WriteFile error: " + number}};
    if (code == ERROR_BROKEN_PIPE || code == ERROR_NO_DATA) {
        expected = {"BrokenPipeException Pipe was closed at other end.", {"DEBUG: WriteFile broken pipe"}};
    } else if (code == ERROR_OPERATION_ABORTED) {
        expected = {"InterruptedException Pipe write aborted.", {"INFO: WriteFile aborted."}};
    } else if (code == ERROR_IO_PENDING) {
        expected = {"written", {"DEBUG: writePipe: woke up without completing I/O"}};
    }
    EXPECT_EQ(outcomeOf([&] {
                  writeText(pipe, "data");
                  return "written";
              }),
              expected.outcome);
    EXPECT_EQ(log.texts(), expected.lines);
}

TEST_P(EveryCodeTest, OfTheResultOfAWrite) {
    CvPipe pipe("pipe", true, true);
    system.onWrite = {{ERROR_IO_PENDING, 0}};
    system.onResult = {{code, 0}};
    LogCapture log;
    Expected expected{"CvPipeException Pipe write failed", {"ERROR: WriteFile failed: " + number}};
    if (code == ERROR_BROKEN_PIPE) {
        expected = {"BrokenPipeException Pipe was closed at other end.", {}};
    } else if (code == ERROR_OPERATION_ABORTED) {
        expected = {"InterruptedException Pipe write aborted.", {}};
    } else if (code == ERROR_IO_PENDING) {
        expected = {"written", {"DEBUG: writePipe: woke up without completing I/O"}};
    }
    EXPECT_EQ(outcomeOf([&] {
                  writeText(pipe, "data");
                  return "written";
              }),
              expected.outcome);
    EXPECT_EQ(log.texts(), expected.lines);
}

/// The wait of a write has timed out, and the write ended before it could be cancelled, or in another way.
TEST_P(EveryCodeTest, OfTheResultOfAWriteThatTimedOut) {
    CvPipe pipe("pipe", true, true);
    system.onWrite = {{ERROR_IO_PENDING, 0}};
    system.onWait = {WAIT_TIMEOUT};
    system.onCancel = {{ERROR_NOT_FOUND}};
    system.onResult = {{code, 4}};
    LogCapture log;
    EXPECT_EQ(outcomeOf([&] {
                  writeText(pipe, "data");
                  return "written";
              }),
              "TimeoutException Pipe write timed out");
    EXPECT_EQ(log.texts(), Lines{"DEBUG: Write timed out."});
    EXPECT_EQ(system.madeOf("GetOverlappedResult").size(), 1u);
}

TEST_P(EveryCodeTest, OfConnectNamedPipe) {
    ServerCvPipe server("pipe", true, true);
    system.onConnect = {{code}};
    LogCapture log(LEVEL_INFO);
    const bool isFine = code == ERROR_PIPE_CONNECTED || code == ERROR_IO_PENDING;
    CvPipe accepted;
    EXPECT_EQ(outcomeOf([&] {
                  server.accept(accepted);
                  return "accepted";
              }),
              isFine ? "accepted" : "CvPipeException acceptPipe failed");
    EXPECT_EQ(log.texts(), isFine ? Lines{} : Lines{"ERROR: Connect error: " + number});
    EXPECT_EQ(accepted.isBound(), isFine);
    // Another instance waits in either case, and the one that has failed is closed.
    EXPECT_EQ(system.madeOf("CreateNamedPipeA").size(), 2u);
    EXPECT_EQ(system.open.size(), isFine ? 6u : 3u);
}

TEST_P(EveryCodeTest, OfTheResultOfConnectNamedPipe) {
    ServerCvPipe server("pipe", true, true);
    system.onConnect = {{ERROR_IO_PENDING}};
    system.onResult = {{code, 0}};
    LogCapture log(LEVEL_INFO);
    Expected expected{"CvPipeException acceptPipe failed", {"ERROR: Connect error: " + number}};
    if (code == ERROR_PIPE_CONNECTED || code == ERROR_IO_PENDING) {
        expected = {"accepted", {}};
    } else if (code == ERROR_OPERATION_ABORTED) {
        // Nobody has closed the server, so this is no interruption.
        expected = {"CvPipeException acceptPipe aborted.", {"INFO: Accept aborted."}};
    }
    CvPipe accepted;
    EXPECT_EQ(outcomeOf([&] {
                  server.accept(accepted);
                  return "accepted";
              }),
              expected.outcome);
    EXPECT_EQ(log.texts(), expected.lines);
}

TEST_P(EveryCodeTest, OfCancelIoExWhenAPipeIsClosed) {
    CvPipe pipe("pipe", true, true);
    system.onCancel = {{code}};
    LogCapture log;
    pipe.close();
    EXPECT_EQ(log.texts(), (Lines{"DEBUG: Close Handles: handle=1000; event=1001",
                                  "INFO: CvPipe_closePipe CancelIoEx failed. Error code : " + number}));
    EXPECT_THAT(system.open, IsEmpty());
}

TEST_P(EveryCodeTest, OfCancelIoExWhenAServerIsClosed) {
    ServerCvPipe server("pipe", true, true);
    system.onCancel = {{code}};
    LogCapture log;
    server.close();
    EXPECT_EQ(log.texts(), (Lines{"DEBUG: Close Handles: handle=1000 event= 1001",
                                  "INFO: ServerCvPipe_closePipe CancelIoEx failed. Error code : " + number}));
    EXPECT_THAT(system.open, IsEmpty());
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
