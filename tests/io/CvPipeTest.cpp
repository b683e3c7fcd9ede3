#include "io/CvPipe.h"

#include <gmock/gmock.h>

#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/io/PipeTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;

using CvPipeTest = PipeTest;

const std::string CLOSE_LINE = "DEBUG: Close Handles: handle=N; event=" + Codes::EVENT;
const std::string CLOSE_NONE_LINE = "DEBUG: Close Handles: handle=-1; event=-1";
const std::string CANCEL_LINE = "INFO: CvPipe_closePipe CancelIoEx failed. Error code : " + Codes::NO_HANDLE;

/// Waits for the beginning of what the other end writes: a close before that would meet no write at all.
void waitUntilWritten(CvPipe& pipe) {
    EXPECT_EQ(readSome(pipe, 60000, 1), "x");
}

TEST_F(CvPipeTest, IsBoundOnceAndInOneDirectionAtLeast) {
    CvPipe pipe;
    EXPECT_FALSE(pipe.isBound());
    EXPECT_THROW(pipe.bind("pipe", false, false), IllegalArgumentException);
    EXPECT_FALSE(pipe.isBound());
    pipe.bind("pipe", true, false);
    EXPECT_TRUE(pipe.isBound());
    EXPECT_EQ(messageOf<IllegalStateException>([&] { pipe.bind("other", true, true); }), "Pipe is already bound.");
    EXPECT_THROW(pipe.bind("other", false, false), IllegalArgumentException);
}

TEST_F(CvPipeTest, TheTwoConstructorsDifferInTheConnectTimeout) {
    ServerCvPipe server("pipe", true, true);
    CvPipe unbound;
    CvPipe connected("pipe", true, true);
    EXPECT_EQ(unbound.getConnectTimeout(), 10000);
    EXPECT_EQ(unbound.getReadTimeout(), 0);
    EXPECT_EQ(connected.getConnectTimeout(), 0);
    EXPECT_EQ(connected.getReadTimeout(), 0);
    unbound.setConnectTimeout(-5);
    unbound.setReadTimeout(7);
    EXPECT_EQ(unbound.getConnectTimeout(), -5);
    EXPECT_EQ(unbound.getReadTimeout(), 7);
}

TEST_F(CvPipeTest, ConnectsOnlyWhenBound) {
    CvPipe pipe;
    EXPECT_EQ(messageOf<IllegalStateException>([&] { pipe.connect(); }), "Pipe not yet bound");
    EXPECT_EQ(messageOf<IllegalStateException>([&] { pipe.connect("", true, true); }), "Pipe not yet bound");
}

TEST_F(CvPipeTest, ANameWithoutAServerCannotBeConnected) {
    LogCapture log;
    CvPipe pipe;
    EXPECT_EQ(messageOf<ConnectException>([&] { pipe.connect("nobody", true, true); }),
              "Could not connect to pipe.");
    EXPECT_EQ(messageOf<ConnectException>([] { CvPipe named("nobody", true, true); }),
              "Could not connect to pipe.");
    EXPECT_EQ(log.texts(), (Lines{"ERROR: Could not open pipe. GLE=2", "ERROR: Could not open pipe. GLE=2"}));
    EXPECT_TRUE(pipe.isBound());
}

TEST_F(CvPipeTest, ConnectingIsLogged) {
    ServerCvPipe server("Pipe", true, true);
    LogCapture log;
    CvPipe pipe("Pipe", true, true);
    EXPECT_EQ(maskedTexts(log), Lines{"DEBUG: CreateFile - \\\\.\\pipe\\Pipe handle=N GetLastError=0"});
}

TEST_F(CvPipeTest, CarriesBytesBothWays) {
    Connection connection;
    writeText(connection.client, "request");
    EXPECT_EQ(readSome(connection.accepted), "request");
    writeText(connection.accepted, "response");
    EXPECT_EQ(readSome(connection.client, 0, 3), "res");
    std::string text = "........";
    EXPECT_EQ(connection.client.readPipe(text.data(), 2, 5, 1000), 5);
    EXPECT_EQ(text, "..ponse.");
    connection.client.writePipe("offset", 3, 3);
    EXPECT_EQ(readSome(connection.accepted), "set");
}

TEST_F(CvPipeTest, AnAcceptedPipeReadsAfterItsServerIsGone) {
    auto server = std::make_unique<ServerCvPipe>("pipe", true, true);
    CvPipe client("pipe", true, true);
    CvPipe accepted;
    server->accept(accepted);
    server.reset();
    writeText(client, "still here");
    EXPECT_EQ(readSome(accepted), "still here");
}

TEST_F(CvPipeTest, ABusyPipeIsWaitedForAsLongAsTheTimeoutSaysAnewWithEachAttempt) {
    ServerCvPipe server("pipe", true, true);
    CvPipe first("pipe", true, true);
    CvPipe second;
    second.bind("pipe", true, true);
    second.setConnectTimeout(150);
    for (int attempt = 0; attempt < 2; ++attempt) {
        LogCapture log;
        StopWatch watch;
        EXPECT_EQ(messageOf<TimeoutException>([&] { second.connect(); }), "Timed out connecting to pipe");
        EXPECT_GE(watch.elapsed(), 150);
        EXPECT_EQ(log.texts(), (Lines{"DEBUG: Waiting for named pipe.",
                                      "DEBUG: Could not open pipe \\\\.\\pipe\\pipe after 150 milliseconds."}));
    }
    CvPipe accepted;
    server.accept(accepted);
    second.connect();
}

TEST_F(CvPipeTest, ABusyPipeIsOpenedWhenAPlaceComesFree) {
    for (const int timeout : {0, 20000, -1}) {
        ServerCvPipe server("pipe", true, true);
        CvPipe first("pipe", true, true);
        CvPipe second;
        second.setConnectTimeout(timeout);
        LogCapture log;
        auto connected = std::async(std::launch::async, [&] { second.connect("pipe", true, true); });
        ASSERT_TRUE(log.waitFor("DEBUG: Waiting for named pipe."));
        EXPECT_EQ(connected.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
        CvPipe forFirst;
        server.accept(forFirst);
        connected.get();
        CvPipe forSecond;
        server.accept(forSecond);
        writeText(second, "second");
        EXPECT_EQ(readSome(forSecond), "second");
    }
}

TEST_F(CvPipeTest, EveryClientThatWaitsIsServed) {
    const int CLIENTS = 12;
    ServerCvPipe server("pipe", true, true);
    std::vector<std::thread> clients;
    for (int i = 0; i < CLIENTS; ++i) {
        clients.emplace_back([] {
            CvPipe client("pipe", true, true);
            writeText(client, "x");
            EXPECT_EQ(readSome(client), "y");
        });
    }
    for (int i = 0; i < CLIENTS; ++i) {
        CvPipe accepted;
        server.accept(accepted);
        EXPECT_EQ(readSome(accepted), "x");
        writeText(accepted, "y");
    }
    for (std::thread& client : clients) {
        client.join();
    }
}

TEST_F(CvPipeTest, AReadAfterTheOtherEndHasClosedIsEndOfData) {
    Connection connection;
    writeText(connection.accepted, "rest");
    connection.accepted.close();
    LogCapture log;
    char c = ' ';
    EXPECT_EQ(readSome(connection.client), "rest");
    EXPECT_EQ(connection.client.readPipe(&c, 0, 1, 0), -1);
    EXPECT_EQ(connection.client.readPipe(&c, 0, 1, 50), -1);
    EXPECT_EQ(log.texts(), Codes::linesAtTheEnd(2));
}

TEST_F(CvPipeTest, AReadThatWaitsEndsWhenTheOtherEndCloses) {
    Connection connection;
    auto count = std::async(std::launch::async, [&] {
        char c = ' ';
        return connection.client.readPipe(&c, 0, 1, 0);
    });
    EXPECT_EQ(count.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
    connection.accepted.close();
    EXPECT_EQ(count.get(), -1);
}

TEST_F(CvPipeTest, WhatArrivedIsReadAlthoughTheOtherEndLeftBytesUnread) {
    Connection connection;
    writeText(connection.client, "never read");
    writeText(connection.accepted, "answer");
    connection.accepted.close();
    LogCapture log;
    EXPECT_EQ(readSome(connection.client), "answer");
    EXPECT_EQ(readSome(connection.client), "end of data");
    EXPECT_EQ(readSome(connection.client), "end of data");
    EXPECT_EQ(log.texts(), Codes::linesAtTheEnd(2));
}

TEST_F(CvPipeTest, AWriteToAClosedEndIsABrokenPipe) {
    Connection connection;
    writeText(connection.client, "unread");
    connection.accepted.close();
    LogCapture log;
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(messageOf<BrokenPipeException>([&] { writeText(connection.client, "x"); }),
                  "Pipe was closed at other end.");
    }
    EXPECT_EQ(log.texts(), (Lines{"DEBUG: WriteFile broken pipe", "DEBUG: WriteFile broken pipe"}));
}

TEST_F(CvPipeTest, AWriteThatWaitsBreaksWhenTheOtherEndCloses) {
    Connection connection;
    LogCapture log;
    auto message = std::async(std::launch::async, [&] {
        const std::string text(4000000, 'x');
        return messageOf<BrokenPipeException>([&] { writeText(connection.client, text); });
    });
    waitUntilWritten(connection.accepted);
    EXPECT_EQ(message.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    connection.accepted.close();
    EXPECT_EQ(message.get(), "Pipe was closed at other end.");
    // The line belongs to writes that break at once.
    EXPECT_EQ(maskedTexts(log), Lines{CLOSE_LINE});
}

TEST_F(CvPipeTest, ALargeWriteArrivesWhole) {
    Connection connection;
    const std::string text = numbered(3000000);
    auto written = std::async(std::launch::async, [&] { writeText(connection.client, text); });
    std::string received;
    while (received.size() < text.size()) {
        received += readSome(connection.accepted, 0, 50000);
    }
    written.get();
    EXPECT_TRUE(received == text);
}

TEST_F(CvPipeTest, NoByteIsLostByReadsThatTimeOut) {
    Connection connection;
    for (char c = 'a'; c <= 'e'; ++c) {
        EXPECT_THROW(readSome(connection.client, 1), TimeoutException);
        writeText(connection.accepted, std::string(1, c));
        EXPECT_EQ(readSome(connection.client, 1000), std::string(1, c));
    }
    std::thread writer([&] {
        for (char c = 'a'; c <= 'z'; ++c) {
            // So that some bytes come just when a read gives up.
            std::this_thread::sleep_for(std::chrono::milliseconds(c % 8));
            writeText(connection.accepted, std::string(1, c));
        }
    });
    std::string received;
    while (received.size() < 26) {
        try {
            received += readSome(connection.client, 1);
        } catch (TimeoutException&) {
        }
    }
    writer.join();
    EXPECT_EQ(received, "abcdefghijklmnopqrstuvwxyz");
}

TEST_F(CvPipeTest, AReadTimeoutIsLoggedAndNotShort) {
    Connection connection;
    LogCapture log;
    for (const int timeout : {120, 40}) {
        StopWatch watch;
        EXPECT_EQ(messageOf<TimeoutException>([&] { readSome(connection.client, timeout); }),
                  "CvPipe read timeout.");
        EXPECT_GE(watch.elapsed(), timeout);
    }
    EXPECT_EQ(log.texts(), (Lines{"DEBUG: Read timed out.", "DEBUG: Read timed out."}));
}

TEST_F(CvPipeTest, AReadWithoutTimeoutWaitsAlsoAfterOneThatTimedOut) {
    Connection connection;
    EXPECT_THROW(readSome(connection.client, 10), TimeoutException);
    for (const int timeout : {0, -1}) {
        auto text = std::async(std::launch::async, [&] { return readSome(connection.client, timeout); });
        EXPECT_EQ(text.wait_for(std::chrono::milliseconds(60)), std::future_status::timeout);
        writeText(connection.accepted, "late");
        EXPECT_EQ(text.get(), "late");
    }
}

TEST_F(CvPipeTest, CloseEndsABlockedRead) {
    Connection connection;
    for (const int timeout : {0, 60000}) {
        CvPipe client("pipe", true, true);
        CvPipe accepted;
        connection.server.accept(accepted);
        auto message = std::async(std::launch::async, [&] {
            return messageOf<InterruptedException>([&] { readSome(client, timeout); });
        });
        EXPECT_EQ(message.wait_for(std::chrono::milliseconds(30)), std::future_status::timeout);
        client.close();
        EXPECT_EQ(message.get(), "CvPipe read aborted.");
    }
}

TEST_F(CvPipeTest, CloseEndsABlockedWrite) {
    Connection connection;
    LogCapture log;
    auto message = std::async(std::launch::async, [&] {
        const std::string text(4000000, 'x');
        return messageOf<InterruptedException>([&] { writeText(connection.client, text); });
    });
    waitUntilWritten(connection.accepted);
    EXPECT_EQ(message.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    connection.client.close();
    EXPECT_EQ(message.get(), "Pipe write aborted.");
    EXPECT_EQ(maskedTexts(log), Lines{CLOSE_LINE});
}

TEST_F(CvPipeTest, CallsAfterCloseAreInterrupted) {
    Connection connection;
    writeText(connection.accepted, "unread");
    connection.client.close();
    LogCapture log;
    EXPECT_EQ(messageOf<InterruptedException>([&] { readSome(connection.client); }), "CvPipe read aborted.");
    EXPECT_EQ(messageOf<InterruptedException>([&] { writeText(connection.client, "x"); }), "Pipe write aborted.");
    EXPECT_EQ(log.texts(), Lines{"INFO: WriteFile aborted."});
}

TEST_F(CvPipeTest, CallsOfAPipeThatWasNeverOpenedFail) {
    CvPipe pipe;
    pipe.bind("pipe", true, true);
    LogCapture log;
    EXPECT_EQ(messageOf<CvPipeException>([&] { readSome(pipe); }), "CvPipe read failed.");
    EXPECT_EQ(messageOf<CvPipeException>([&] { writeText(pipe, "x"); }), "Pipe write failed");
    EXPECT_EQ(log.texts(),
              (Lines{"WARN: ReadFile error: " + Codes::NO_HANDLE, "ERROR: WriteFile error: " + Codes::NO_HANDLE}));
}

TEST_F(CvPipeTest, WritingNothingDoesNothing) {
    CvPipe pipe;
    LogCapture log;
    pipe.writePipe("x", 0, 0);
    Connection connection;
    connection.client.writePipe("x", 1, 0);
    connection.accepted.close();
    connection.client.writePipe("x", 0, 0);
    EXPECT_FALSE(log.has("DEBUG: WriteFile broken pipe"));
}

TEST_F(CvPipeTest, CloseIsLoggedAndSafeAtAnyTime) {
    Connection connection;
    CvPipe never;
    LogCapture log;
    connection.client.close();
    connection.client.close();
    never.close();
    EXPECT_EQ(maskedTexts(log), (Lines{CLOSE_LINE, CLOSE_NONE_LINE, CANCEL_LINE, CLOSE_NONE_LINE, CANCEL_LINE}));
}

TEST_F(CvPipeTest, TheDestructorClosesOnlyWhatIsOpen) {
    ServerCvPipe server("pipe", true, true);
    auto open = std::make_unique<CvPipe>("pipe", true, true);
    CvPipe accepted;
    server.accept(accepted);
    auto closed = std::make_unique<CvPipe>("pipe", true, true);
    closed->close();
    LogCapture log;
    { CvPipe never; }
    closed.reset();
    EXPECT_EQ(log.texts(), Lines{});
    open.reset();
    EXPECT_EQ(maskedTexts(log), Lines{CLOSE_LINE});
    EXPECT_EQ(readSome(accepted), "end of data");
}

TEST_F(CvPipeTest, AClosedPipeConnectsAgain) {
    Connection connection;
    connection.client.close();
    EXPECT_TRUE(connection.client.isBound());
    EXPECT_THROW(connection.client.bind("other", true, true), IllegalStateException);
    connection.client.connect();
    CvPipe accepted;
    connection.server.accept(accepted);
    writeText(accepted, "again");
    EXPECT_EQ(readSome(connection.client), "again");
}

TEST_F(CvPipeTest, AClosedPipeThatConnectsAgainForgetsTheFormerConnection) {
    Connection connection;
    std::array<char, 64> input{};
    std::array<char, 64> output{};
    std::istream& in = *connection.client.getInputStream();
    std::ostream& out = *connection.client.getOutputStream();
    in.rdbuf()->pubsetbuf(input.data(), 64);
    out.rdbuf()->pubsetbuf(output.data(), 64);
    writeText(connection.accepted, "unread");
    EXPECT_EQ(in.get(), 'u');
    out << "unwritten";
    in.setstate(std::ios_base::eofbit);
    connection.client.close();
    connection.client.connect();
    CvPipe accepted;
    connection.server.accept(accepted);
    writeText(accepted, "fresh");
    EXPECT_EQ(in.get(), 'f');
    out << "new" << std::flush;
    EXPECT_EQ(readSome(accepted), "new");
}

TEST_F(CvPipeTest, TheStreamsAreMadeOnce) {
    Connection connection;
    std::istream* const in = connection.client.getInputStream();
    std::ostream* const out = connection.client.getOutputStream();
    EXPECT_EQ(in, connection.client.getInputStream());
    EXPECT_EQ(out, connection.client.getOutputStream());
    EXPECT_EQ(in->exceptions(), std::ios_base::badbit);
    EXPECT_EQ(out->exceptions(), std::ios_base::badbit);
}

TEST_F(CvPipeTest, AStreamThatAnApplicationHadLeavesNothingToTheNextPipe) {
    ServerCvPipe server("pipe", true, true);
    std::ostream* first = nullptr;
    {
        CvPipe client("pipe", true, true);
        first = client.getOutputStream();
        *first << std::hex;
        first->iword(0) = 1;
        CvPipe accepted;
        server.accept(accepted);
    }
    CvPipe client("pipe", true, true);
    std::ostream* const second = client.getOutputStream();
    ASSERT_EQ(first, second);
    EXPECT_EQ(second->flags(), std::ios(nullptr).flags());
    EXPECT_EQ(second->iword(0), 0);
}

TEST_F(CvPipeTest, AStreamNeedsItsDirection) {
    const std::string READ = "Pipe is not bound with read access.";
    const std::string WRITE = "Pipe is not bound with write access.";
    CvPipe unbound;
    EXPECT_EQ(messageOf<IllegalStateException>([&] { unbound.getInputStream(); }), READ);
    EXPECT_EQ(messageOf<IllegalStateException>([&] { unbound.getOutputStream(); }), WRITE);
    CvPipe reader;
    reader.bind("pipe", true, false);
    EXPECT_NE(reader.getInputStream(), nullptr);
    EXPECT_EQ(messageOf<IllegalStateException>([&] { reader.getOutputStream(); }), WRITE);
    CvPipe writer;
    writer.bind("pipe", false, true);
    EXPECT_NE(writer.getOutputStream(), nullptr);
    EXPECT_EQ(messageOf<IllegalStateException>([&] { writer.getInputStream(); }), READ);
}

struct DirectionCase {
    bool serverReads, serverWrites, clientReads, clientWrites, allowed;
};

class DirectionTest : public PipeTest, public ::testing::WithParamInterface<DirectionCase> {};

TEST_P(DirectionTest, AClientGetsWhatTheServerOffers) {
    const DirectionCase& param = GetParam();
    ServerCvPipe server("pipe", param.serverReads, param.serverWrites);
    server.setAcceptTimeout(20);
    CvPipe client;
    CvPipe accepted;
    if (param.allowed) {
        client.connect("pipe", param.clientReads, param.clientWrites);
        server.accept(accepted);
        if (param.clientWrites) {
            writeText(client, "request");
            EXPECT_EQ(readSome(accepted), "request");
        }
        if (param.clientReads) {
            writeText(accepted, "answer");
            EXPECT_EQ(readSome(client), "answer");
        }
        return;
    }
    LogCapture log;
    EXPECT_EQ(messageOf<ConnectException>([&] { client.connect("pipe", param.clientReads, param.clientWrites); }),
              "Access denied.");
    EXPECT_EQ(log.texts(), Lines{});
    EXPECT_THROW(server.accept(accepted), TimeoutException) << "the server was disturbed";
}

INSTANTIATE_TEST_SUITE_P(
    AllPairs, DirectionTest,
    ::testing::Values(DirectionCase{true, true, true, true, true}, DirectionCase{true, true, true, false, true},
                      DirectionCase{true, true, false, true, true}, DirectionCase{true, false, true, true, false},
                      DirectionCase{true, false, true, false, false}, DirectionCase{true, false, false, true, true},
                      DirectionCase{false, true, true, true, false}, DirectionCase{false, true, true, false, true},
                      DirectionCase{false, true, false, true, false}));

TEST_F(CvPipeTest, APipeOfOneDirectionDoesNotGoTheOtherWay) {
    Connection connection("pipe", true, false);
    LogCapture log;
    EXPECT_THROW(readSome(connection.client), CvPipeException);
    EXPECT_THROW(writeText(connection.accepted, "x"), CvPipeException);
    EXPECT_EQ(log.texts(), (Lines{"WARN: ReadFile error: " + Codes::NOT_ALLOWED,
                                  "ERROR: WriteFile error: " + Codes::NOT_ALLOWED}));
    writeText(connection.client, "works");
    EXPECT_EQ(readSome(connection.accepted), "works");
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
