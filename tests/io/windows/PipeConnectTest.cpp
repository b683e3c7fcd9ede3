#include <gmock/gmock.h>

#include <string>

#include "tests/io/windows/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::IsEmpty;

const std::string WAITING = "DEBUG: Waiting for named pipe.";
const std::string OPENED = "DEBUG: CreateFile - \\\\.\\pipe\\pipe handle=1000 GetLastError=0";

TEST(PipeConnectTest, OpensWithExactlyTheseArguments) {
    for (const int direction : {1, 2, 3}) {
        FakeSystem system;
        LogCapture log;
        CvPipe pipe("pipe", (direction & 1) != 0, (direction & 2) != 0);
        const std::string access = direction == 1 ? "2147483648" : direction == 2 ? "1073741824" : "3221225472";
        EXPECT_EQ(system.made,
                  (Lines{"CreateFileA(\\\\.\\pipe\\pipe, " + access + ", 0, null, 3, 1073741824, null)",
                         "CreateEventA(null, 1, 0, null)", "CreateEventA(null, 1, 0, null)"}));
        EXPECT_EQ(log.texts(), Lines{OPENED});
    }
}

TEST(PipeConnectTest, ABusyPipeIsWaitedForAgainAndAgain) {
    FakeSystem system;
    system.onCreateFile = {{231}, {231}, {231}};
    LogCapture log;
    CvPipe pipe;
    pipe.setConnectTimeout(50);
    pipe.connect("pipe", true, true);
    const std::string open = "CreateFileA(\\\\.\\pipe\\pipe, 3221225472, 0, null, 3, 1073741824, null)";
    const std::string wait = "WaitNamedPipeA(\\\\.\\pipe\\pipe, 50)";
    const std::string event = "CreateEventA(null, 1, 0, null)";
    EXPECT_EQ(system.made, (Lines{open, wait, open, wait, open, wait, open, event, event}));
    EXPECT_EQ(log.texts(), (Lines{WAITING, WAITING, WAITING, OPENED}));
}

TEST(PipeConnectTest, AWaitThatFailsIsATimeout) {
    FakeSystem system;
    system.onCreateFile = {{231}, {231}};
    system.onWaitNamedPipe = {{ERROR_SEM_TIMEOUT}, {ERROR_FILE_NOT_FOUND}};
    LogCapture log;
    CvPipe limited;
    limited.setConnectTimeout(50);
    EXPECT_EQ(messageOf<TimeoutException>([&] { limited.connect("pipe", true, true); }),
              "Timed out connecting to pipe");
    EXPECT_EQ(messageOf<TimeoutException>([] { CvPipe("pipe", true, true); }), "Timed out connecting to pipe");
    EXPECT_EQ(system.madeOf("WaitNamedPipeA"),
              (Lines{"WaitNamedPipeA(\\\\.\\pipe\\pipe, 50)", "WaitNamedPipeA(\\\\.\\pipe\\pipe, 4294967295)"}));
    EXPECT_EQ(log.texts(),
              (Lines{WAITING, "DEBUG: Could not open pipe \\\\.\\pipe\\pipe after 50 milliseconds.", WAITING,
                     "DEBUG: Could not open pipe \\\\.\\pipe\\pipe after 4294967295 milliseconds."}));
}

TEST(PipeConnectTest, ARefusalIsDenied) {
    FakeSystem system;
    system.onCreateFile = {{5}, {231}, {5}};
    LogCapture log;
    EXPECT_EQ(messageOf<ConnectException>([] { CvPipe("pipe", true, true); }), "Access denied.");
    EXPECT_EQ(messageOf<ConnectException>([] { CvPipe("pipe", true, true); }), "Access denied.");
    EXPECT_EQ(log.texts(), Lines{WAITING});
}

TEST(PipeConnectTest, AnyOtherCodeIsLogged) {
    for (const DWORD code : {2ul, 109ul, 232ul, 535ul, 995ul, 997ul, 258ul, 4711ul, NO_CODE}) {
        FakeSystem system;
        system.onCreateFile = {{code}};
        LogCapture log;
        EXPECT_EQ(messageOf<ConnectException>([] { CvPipe("pipe", true, true); }), "Could not connect to pipe.");
        EXPECT_EQ(log.texts(),
                  Lines{"ERROR: Could not open pipe. GLE=" + (code == NO_CODE ? "0" : std::to_string(code))});
        EXPECT_THAT(system.open, IsEmpty());
    }
}

TEST(PipeConnectTest, AnEventThatFailsWithoutACodeIsAFailureAllTheSame) {
    for (const bool isFirstThere : {false, true}) {
        FakeSystem system;
        system.onCreateEvent = {{NO_CODE}};
        if (isFirstThere) {
            system.onCreateEvent.push_front({0});
        }
        LogCapture log;
        EXPECT_EQ(messageOf<CvPipeException>([] { CvPipe("pipe", true, true); }),
                  "Unrecognized pipe connect error");
        EXPECT_TRUE(log.has("ERROR: CreateEvent failed: 0"));
        EXPECT_THAT(system.open, IsEmpty());
    }
}

TEST(PipeConnectTest, WithoutEventsThePipeIsOfNoUseAndItsHandleIsNotLost) {
    for (const bool isFirstThere : {false, true}) {
        FakeSystem system;
        {
            system.onCreateEvent = {{8}};
            if (isFirstThere) {
                system.onCreateEvent.push_front({0});
            }
            LogCapture log;
            CvPipe pipe;
            EXPECT_EQ(messageOf<CvPipeException>([&] { pipe.connect("pipe", true, true); }),
                      "Unrecognized pipe connect error");
            EXPECT_EQ(system.open.front(), FakeSystem::FIRST_HANDLE);
            EXPECT_EQ(messageOf<CvPipeException>([&] { readSome(pipe); }), "CvPipe read failed.");
            EXPECT_EQ(messageOf<CvPipeException>([&] { writeText(pipe, "x"); }), "Pipe write failed");
            EXPECT_EQ(log.texts(), (Lines{OPENED, "ERROR: CreateEvent failed: 8", "WARN: ReadFile error: 6",
                                          "ERROR: WriteFile error: 6"}));
        }
        EXPECT_THAT(system.open, IsEmpty());
    }
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
