#include "io/ServerCvPipe.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "tests/io/PipeTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::IsEmpty;

using ServerCvPipeTest = PipeTest;

const std::string CALLING = "DEBUG: Calling ConnectNamedPipe.";
const std::string ERROR_IS = "DEBUG: ServerCvPipe_acceptPipe error = ";
const std::string STATUS_IS = "DEBUG: ServerCvPipe_acceptPipe WaitForSingleObject status = ";
const std::string OVERLAPPED_IS = "DEBUG: GetOverlappedResult - GetLastError=";
const std::string RETVAL_IS = "DEBUG: ServerCvPipe_acceptPipe retval = ";
const std::string CREATED = "DEBUG: bindPipe: handle=N event=" + Codes::EVENT;
const std::string CLOSED = "DEBUG: Close Handles: handle=N event= " + Codes::EVENT;

TEST_F(ServerCvPipeTest, IsBoundOnceAndInOneDirectionAtLeast) {
    ServerCvPipe server;
    EXPECT_FALSE(server.isBound());
    EXPECT_THROW(server.bind("pipe", false, false), IllegalArgumentException);
    EXPECT_FALSE(server.isBound());
    LogCapture log;
    server.bind("pipe", true, true);
    EXPECT_EQ(maskedTexts(log), Lines{CREATED});
    EXPECT_TRUE(server.isBound());
    EXPECT_EQ(messageOf<IllegalStateException>([&] { server.bind("other", true, true); }),
              "Pipe is already bound.");
    EXPECT_EQ(server.getAcceptTimeout(), 0);
    server.setAcceptTimeout(-3);
    EXPECT_EQ(server.getAcceptTimeout(), -3);
}

TEST_F(ServerCvPipeTest, ASecondServerIsRefused) {
    ServerCvPipe first("pipe", true, true);
    LogCapture log;
    ServerCvPipe second;
    EXPECT_EQ(messageOf<BindException>([&] { second.bind("PIPE", true, true); }), "CreateNamedPipe failed");
    EXPECT_TRUE(second.isBound()) << "the name stays stored";
    EXPECT_EQ(messageOf<BindException>([] { ServerCvPipe third("pipe", true, true); }), "CreateNamedPipe failed");
    EXPECT_EQ(log.texts(), Lines(2, "ERROR: CreateNamedPipe failed: " + Codes::NAME_TAKEN));
    CvPipe client("pipe", true, true);
    CvPipe accepted;
    first.accept(accepted);
}

TEST_F(ServerCvPipeTest, AcceptOnAServerThatCouldNotBeBoundFails) {
    ServerCvPipe first("pipe", true, true);
    ServerCvPipe second;
    EXPECT_THROW(second.bind("pipe", true, true), BindException);
    LogCapture log;
    CvPipe pipe;
    EXPECT_EQ(messageOf<CvPipeException>([&] { second.accept(pipe); }), "CreateNamedPipe failed");
    EXPECT_EQ(log.texts(), (Lines{CALLING, ERROR_IS + Codes::NO_HANDLE, "ERROR: Connect error: " + Codes::NO_HANDLE,
                                  RETVAL_IS + "3", "ERROR: CreateNamedPipe failed: " + Codes::NO_HANDLE}));
}

TEST_F(ServerCvPipeTest, AcceptNeedsABoundOpenServerAndAnUnboundPipe) {
    ServerCvPipe server;
    CvPipe pipe;
    EXPECT_EQ(messageOf<IllegalStateException>([&] { server.accept(pipe); }), "Pipe is not bound.");
    server.bind("pipe", true, true);
    CvPipe client("pipe", true, true);
    CvPipe bound;
    bound.bind("pipe", true, true);
    LogCapture log;
    EXPECT_EQ(messageOf<IllegalStateException>([&] { server.accept(bound); }),
              "Cannot provide a bound CvPipe to accept().");
    EXPECT_EQ(log.texts(), Lines{}) << "the waiting instance was touched";
    server.accept(pipe);
    EXPECT_TRUE(pipe.isBound());
    server.close();
    CvPipe late;
    EXPECT_EQ(messageOf<IllegalStateException>([&] { server.accept(late); }), "Pipe is closed.");
}

TEST_F(ServerCvPipeTest, AClientThatCameBeforeTheCallIsAccepted) {
    ServerCvPipe server("pipe", true, true);
    CvPipe client("pipe", true, true);
    writeText(client, "early");
    LogCapture log;
    CvPipe accepted;
    server.accept(accepted);
    EXPECT_EQ(maskedTexts(log), (Lines{CALLING, ERROR_IS + "535", RETVAL_IS + "0", CREATED}));
    EXPECT_EQ(readSome(accepted), "early");
}

TEST_F(ServerCvPipeTest, AClientThatComesLaterIsAccepted) {
    for (const int timeout : {0, 20000, -1}) {
        ServerCvPipe server("pipe", true, true);
        server.setAcceptTimeout(timeout);
        CvPipe accepted;
        LogCapture log;
        auto done = std::async(std::launch::async, [&] { server.accept(accepted); });
        ASSERT_TRUE(log.waitFor(ERROR_IS + "997"));
        CvPipe client;
        client.bind("pipe", true, true);
        client.connect();
        done.get();
        Lines lines = maskedTexts(log);
        lines.erase(std::remove_if(lines.begin(), lines.end(),
                                   [](const std::string& line) { return line.find("CreateFile") != line.npos; }),
                    lines.end());
        EXPECT_EQ(lines, (Lines{CALLING, ERROR_IS + "997", STATUS_IS + "0", OVERLAPPED_IS + "0", RETVAL_IS + "0",
                                CREATED}));
    }
}

TEST_F(ServerCvPipeTest, AnAcceptThatTimesOutKeepsTheInstance) {
    ServerCvPipe server("pipe", true, true);
    server.setAcceptTimeout(100);
    LogCapture log;
    CvPipe accepted;
    StopWatch watch;
    EXPECT_EQ(messageOf<TimeoutException>([&] { server.accept(accepted); }), "CvPipe accept timeout");
    EXPECT_GE(watch.elapsed(), 100);
    EXPECT_EQ(log.texts(), (Lines{CALLING, ERROR_IS + "997", STATUS_IS + "258", RETVAL_IS + "1"}));
    EXPECT_FALSE(accepted.isBound());
    CvPipe client("pipe", true, true);
    server.accept(accepted);
    EXPECT_TRUE(accepted.isBound());
}

TEST_F(ServerCvPipeTest, CloseEndsABlockedAccept) {
    for (const int timeout : {0, 60000}) {
        ServerCvPipe server("pipe", true, true);
        server.setAcceptTimeout(timeout);
        LogCapture log;
        CvPipe accepted;
        auto message = std::async(
            std::launch::async, [&] { return messageOf<InterruptedException>([&] { server.accept(accepted); }); });
        ASSERT_TRUE(log.waitFor(ERROR_IS + "997"));
        EXPECT_FALSE(server.isClosed());
        server.close();
        EXPECT_TRUE(server.isClosed());
        EXPECT_EQ(message.get(), "accept aborted");
        Lines lines = maskedTexts(log);
        EXPECT_EQ(std::count(lines.begin(), lines.end(), CLOSED), 1);
        lines.erase(std::remove(lines.begin(), lines.end(), CLOSED), lines.end());
        EXPECT_EQ(lines, (Lines{CALLING, ERROR_IS + "997", STATUS_IS + "0", OVERLAPPED_IS + "995",
                                "INFO: Accept aborted."}));
        EXPECT_FALSE(accepted.isBound());
    }
}

TEST_F(ServerCvPipeTest, CloseIsDoneOnce) {
    LogCapture log;
    {
        ServerCvPipe server("pipe", true, true);
        server.close();
        server.close();
        EXPECT_EQ(maskedTexts(log), (Lines{CREATED, CLOSED}));
    }
    EXPECT_EQ(maskedTexts(log), (Lines{CREATED, CLOSED, "DEBUG: Closing server pipe: pipe"}));
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(ServerCvPipeTest, TheDestructorCloses) {
    auto server = std::make_unique<ServerCvPipe>("pipe", true, true);
    LogCapture log;
    server.reset();
    EXPECT_EQ(maskedTexts(log), (Lines{"DEBUG: Closing server pipe: pipe", CLOSED}));
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(ServerCvPipeTest, TheDestructorOfAnUnboundServerHasNothingToCancel) {
    LogCapture log;
    { ServerCvPipe server; }
    EXPECT_EQ(log.texts(),
              (Lines{"DEBUG: Closing server pipe: ", "DEBUG: Close Handles: handle=-1 event= -1",
                     "INFO: ServerCvPipe_closePipe CancelIoEx failed. Error code : " + Codes::NO_HANDLE}));
}

TEST_F(ServerCvPipeTest, AClosedNameCanBeTakenAgain) {
    for (int round = 0; round < 3; ++round) {
        ServerCvPipe server("pipe", true, true);
        CvPipe client("pipe", true, true);
        CvPipe accepted;
        server.accept(accepted);
        server.close();
        ServerCvPipe next("pipe", true, true);
        writeText(client, "old connections live on");
        EXPECT_EQ(readSome(accepted), "old connections live on");
    }
    EXPECT_THROW(CvPipe("pipe", true, true), ConnectException);
}

TEST_F(ServerCvPipeTest, ClientsOfAClosedServerAreNotLeftWaiting) {
    ServerCvPipe server("pipe", true, true);
    const ServerCvPipe copy(server);
    CvPipe queued("pipe", true, true);
    server.close();
    // Although the copy still holds the instance.
    EXPECT_EQ(readSome(queued), "end of data");
}

TEST_F(ServerCvPipeTest, ACopyNamesTheSameInstance) {
    ServerCvPipe server("pipe", true, true);
    server.setAcceptTimeout(30);
    CvPipe client("pipe", true, true);
    ServerCvPipe copy(server);
    EXPECT_TRUE(copy.isBound());
    EXPECT_EQ(copy.getAcceptTimeout(), 30);
    CvPipe accepted;
    copy.accept(accepted);
    writeText(client, "x");
    EXPECT_EQ(readSome(accepted), "x");
    CvPipe second;
    EXPECT_THROW(server.accept(second), TimeoutException);
    copy.close();
    EXPECT_FALSE(server.isClosed());
    EXPECT_EQ(messageOf<CvPipeException>([&] { server.accept(second); }), "acceptPipe aborted.");
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(ServerCvPipeTest, AnAssignedServerNamesTheSameInstanceAndGivesItsOwnBack) {
    ServerCvPipe server("pipe", true, true);
    ServerCvPipe other("other", true, true);
    other = server;
    EXPECT_THROW(CvPipe("other", true, true), ConnectException);
    CvPipe client("pipe", true, true);
    CvPipe accepted;
    other.accept(accepted);
}

TEST_F(ServerCvPipeTest, AnAssignedServerIsAsTheOther) {
    ServerCvPipe server("pipe", false, true);
    server.setAcceptTimeout(30);
    ServerCvPipe other;
    other = server;
    EXPECT_TRUE(other.isBound());
    EXPECT_EQ(other.getAcceptTimeout(), 30);
    EXPECT_FALSE(other.isClosed());
    CvPipe client("pipe", true, false);
    CvPipe accepted;
    other.accept(accepted);
    EXPECT_NE(accepted.getOutputStream(), nullptr);
    EXPECT_THROW(accepted.getInputStream(), IllegalStateException);
    server.close();
    other = server;
    EXPECT_TRUE(other.isClosed());
    CvPipe pipe;
    EXPECT_EQ(messageOf<IllegalStateException>([&] { other.accept(pipe); }), "Pipe is closed.");
}

TEST_F(ServerCvPipeTest, AServerAssignedToItselfStaysAsItIs) {
    ServerCvPipe server("pipe", true, true);
    ServerCvPipe& same = server;
    server = same;
    CvPipe client("pipe", true, true);
    CvPipe accepted;
    server.accept(accepted);
}

TEST_F(ServerCvPipeTest, ACopyOfAClosedServerIsClosed) {
    ServerCvPipe server("pipe", true, true);
    server.close();
    ServerCvPipe copy(server);
    EXPECT_TRUE(copy.isClosed());
    CvPipe pipe;
    EXPECT_EQ(messageOf<IllegalStateException>([&] { copy.accept(pipe); }), "Pipe is closed.");
}

TEST_F(ServerCvPipeTest, TheNameOfAnAcceptedPipeIsTheWholePath) {
    Connection connection;
    connection.accepted.close();
    LogCapture log;
    // Such a name is no client's, so it leads nowhere.
    EXPECT_THROW(connection.accepted.connect(), ConnectException);
    EXPECT_EQ(log.texts(), (Lines{"ERROR: Pipe name '\\\\.\\pipe\\pipe' refused: it must have 1 to 256 bytes and "
                                  "neither a backslash nor a NUL.",
                                  "ERROR: Could not open pipe. GLE=" + Codes::WRONG_NAME}));
}

TEST_F(ServerCvPipeTest, AnAcceptedPipeHasTheDirectionOfItsServer) {
    Connection connection("pipe", false, true);
    EXPECT_NE(connection.accepted.getOutputStream(), nullptr);
    EXPECT_THROW(connection.accepted.getInputStream(), IllegalStateException);
}

TEST_F(ServerCvPipeTest, ACloseAtAnyMomentIsNoFailureInTheLog) {
    LogCapture log(1);
    for (int round = 0; round < 500; ++round) {
        ServerCvPipe server("pipe", true, true);
        std::atomic<bool> closing{false};
        std::thread closer([&] {
            closing = true;
            server.close();
        });
        while (!closing) {
            std::this_thread::yield();
        }
        try {
            CvPipe accepted;
            server.accept(accepted);
            ADD_FAILURE() << "accepted a client that is not there";
        } catch (InterruptedException& e) {
            EXPECT_EQ(e.getMessage(), "accept aborted");
        } catch (const IllegalStateException& e) {
            EXPECT_EQ(e.getMessage(), "Pipe is closed.");
        }
        closer.join();
    }
    EXPECT_THAT(log.texts(), IsEmpty());
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
