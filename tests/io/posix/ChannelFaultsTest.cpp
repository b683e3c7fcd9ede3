// What becomes of reads and writes when the system fails, or does less than it was asked for.

#include <gmock/gmock.h>
#include <poll.h>

#include <cerrno>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::ElementsAre;

using ChannelFaultsTest = FaultTest;

const std::string READ_FAILED = "CvPipeException CvPipe read failed.";
const std::string WRITE_FAILED = "CvPipeException Pipe write failed";
const std::string WRITE_BROKEN = "BrokenPipeException Pipe was closed at other end.";

struct FaultCase {
    const char* name;
    /// The call that has these answers, and those of the wait that goes with it.
    const char* call;
    std::vector<Answer> answers;
    std::vector<Answer> waits;
    std::string outcome;
    Lines lines;
};

std::ostream& operator<<(std::ostream& out, const FaultCase& item) {
    return out << item.name;
}

FaultCase failingRead(const char* name, int error) {
    return {name, "recv", {failure(error)}, {}, READ_FAILED, {"WARN: ReadFile error: " + std::to_string(error)}};
}

class ReadFaultTest : public FaultTest, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(ReadFaultTest, EndsAsItShould) {
    const FaultCase& param = GetParam();
    Connection connection;
    writeText(connection.accepted, "data");
    FakeSystem system;
    LogCapture log;
    system.on(param.call, param.answers);
    EXPECT_EQ(outcomeOf([&] { return readSome(connection.client, 70, 10); }), param.outcome);
    EXPECT_EQ(log.texts(), param.lines);
    // It was the call that failed and not the pipe.
    if (param.outcome != "data") {
        EXPECT_EQ(readSome(connection.client), param.outcome == "da" ? "ta" : "data");
    }
}

INSTANTIATE_TEST_SUITE_P(
    AllErrors, ReadFaultTest,
    ::testing::Values(
        FaultCase{"Interrupted", "recv", {failure(EINTR), failure(EINTR)}, {}, "data", {}},
        FaultCase{"NothingThereYet", "recv", {failure(EAGAIN)}, {}, "data", {}},
        FaultCase{"Short", "recv", {moving(2)}, {}, "da", {}},
        FaultCase{"Nothing", "recv", {returning(0)}, {}, "end of data", {}},
        FaultCase{"Reset", "recv", {failure(ECONNRESET)}, {}, "end of data", {}}, failingRead("Broken", EPIPE),
        failingRead("NoMemory", ENOMEM), failingRead("NoBuffers", ENOBUFS), failingRead("Denied", EACCES),
        failingRead("NotConnected", ENOTCONN), failingRead("WrongNumber", EBADF),
        failingRead("Refused", ECONNREFUSED), failingRead("Device", EIO),
        FaultCase{"NoTimeout", "setsockopt", {failure(ENOMEM)}, {}, READ_FAILED, {"WARN: ReadFile error: 12"}},
        FaultCase{"TimeoutOutOfRange",
                  "setsockopt",
                  {failure(EDOM)},
                  {},
                  READ_FAILED,
                  {"WARN: ReadFile error: " + std::to_string(EDOM)}}),
    [](const auto& item) { return std::string(item.param.name); });

FaultCase failingWrite(const char* name, int error) {
    return {name, "send", {failure(error)}, {}, WRITE_FAILED, {"ERROR: WriteFile error: " + std::to_string(error)}};
}
FaultCase failingLateWrite(const char* name, int error) {
    return {name,
            "send",
            {failure(EAGAIN), failure(error)},
            {returning(POLLOUT)},
            WRITE_FAILED,
            {"ERROR: WriteFile failed: " + std::to_string(error)}};
}

class WriteFaultTest : public FaultTest, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(WriteFaultTest, EndsAsItShould) {
    const FaultCase& param = GetParam();
    Connection connection;
    FakeSystem system;
    LogCapture log;
    system.on(param.call, param.answers);
    system.on("poll", param.waits);
    EXPECT_EQ(outcomeOf([&] {
                  writeText(connection.client, "data");
                  return "written";
              }),
              param.outcome);
    EXPECT_EQ(log.texts(), param.lines);
    // It was the call that failed and not the pipe.
    writeText(connection.client, "next");
    std::string expected = param.outcome == "written" && param.lines.empty() ? "datanext" : "next";
    if (param.name == std::string("NothingAfterTwo")) {
        expected = "danext";
    }
    std::string received;
    while (received.size() < expected.size()) {
        received += readSome(connection.accepted, 5000);
    }
    EXPECT_EQ(received, expected);
}

INSTANTIATE_TEST_SUITE_P(
    AllErrors, WriteFaultTest,
    ::testing::Values(
        FaultCase{"Interrupted", "send", {failure(EINTR), failure(EINTR)}, {}, "written", {}},
        FaultCase{"Short", "send", {moving(1), failure(EINTR), moving(2)}, {}, "written", {}},
        FaultCase{"NoRoom", "send", {failure(EAGAIN)}, {}, "written", {}},
        FaultCase{"NoRoomForTheRest", "send", {moving(3), failure(EAGAIN), failure(EAGAIN)}, {}, "written", {}},
        FaultCase{"NoRoomAndInterrupted",
                  "send",
                  {failure(EAGAIN), failure(EAGAIN)},
                  {failure(EINTR), failure(EINTR)},
                  "written",
                  {}},
        FaultCase{"HungUpAndYetThere", "send", {failure(EAGAIN)}, {returning(POLLHUP | POLLERR)}, "written", {}},
        FaultCase{
            "Nothing", "send", {returning(0)}, {}, "written", {"DEBUG: WriteFile succeeded but wrote no bytes."}},
        FaultCase{"NothingAfterTwo",
                  "send",
                  {moving(2), returning(0)},
                  {},
                  "written",
                  {"DEBUG: WriteFile succeeded but wrote no bytes."}},
        FaultCase{"NothingAfterAWait",
                  "send",
                  {failure(EAGAIN), returning(0)},
                  {},
                  "written",
                  {"DEBUG: writePipe: woke up without completing I/O"}},
        FaultCase{"Broken", "send", {failure(EPIPE)}, {}, WRITE_BROKEN, {"DEBUG: WriteFile broken pipe"}},
        FaultCase{"Reset", "send", {failure(ECONNRESET)}, {}, WRITE_BROKEN, {"DEBUG: WriteFile broken pipe"}},
        FaultCase{"BrokenAfterAWait",
                  "send",
                  {failure(EAGAIN), failure(EPIPE)},
                  {returning(POLLHUP | POLLERR)},
                  WRITE_BROKEN,
                  {}},
        FaultCase{"BrokenAfterAWaitAndASignal",
                  "send",
                  {failure(EAGAIN), failure(EINTR), failure(ECONNRESET)},
                  {},
                  WRITE_BROKEN,
                  {}},
        FaultCase{"WaitFailed",
                  "send",
                  {failure(EAGAIN)},
                  {failure(ENOMEM)},
                  WRITE_FAILED,
                  {"ERROR: WriteFile failed: 12"}},
        failingWrite("NoMemory", ENOMEM), failingWrite("NoBuffers", ENOBUFS), failingWrite("Denied", EACCES),
        failingWrite("NotConnected", ENOTCONN), failingWrite("TooLong", EMSGSIZE), failingWrite("NoSpace", ENOSPC),
        failingLateWrite("NoMemoryAfterAWait", ENOMEM), failingLateWrite("NoBuffersAfterAWait", ENOBUFS),
        failingLateWrite("WrongNumberAfterAWait", EBADF)),
    [](const auto& item) { return std::string(item.param.name); });

TEST_F(ChannelFaultsTest, AFailureAfterSomeBytesWentThroughIsOneOfTheNextWrite) {
    Connection connection;
    FakeSystem system;
    LogCapture log;
    system.on("send", {failure(EAGAIN), moving(2), failure(EPIPE)});
    EXPECT_THROW(writeText(connection.client, "data"), BrokenPipeException);
    EXPECT_EQ(log.texts(), Lines{"DEBUG: WriteFile broken pipe"});
    EXPECT_EQ(system.madeOf("send"), (Lines{"send(4)", "send(4)", "send(2)"}));
    EXPECT_EQ(readSome(connection.accepted), "da");
}

TEST_F(ChannelFaultsTest, SignalsNeitherShortenNorLengthenAReadTimeout) {
    for (const int last : {EAGAIN, EINTR}) {
        Connection connection;
        FakeSystem system;
        system.freezeTime();
        system.on("recv", {failure(EINTR, system.after(30)), failure(EINTR, system.after(40)),
                           failure(EAGAIN, system.after(129)), failure(last, system.after(1))});
        LogCapture log;
        EXPECT_EQ(outcomeOf([&] { return readSome(connection.client, 200); }),
                  "TimeoutException CvPipe read timeout.");
        EXPECT_EQ(log.texts(), Lines{"DEBUG: Read timed out."});
        EXPECT_THAT(system.getWaits(), ElementsAre(200, 170, 130, 1));
        // The next one has its own time again.
        system.on("recv", {failure(EAGAIN, system.after(200))});
        EXPECT_THROW(readSome(connection.client, 200), TimeoutException);
        EXPECT_EQ(system.getWaits().back(), 200);
    }
}

TEST_F(ChannelFaultsTest, AReadWithoutTimeoutWaitsOnAfterASignal) {
    Connection connection;
    writeText(connection.accepted, "data");
    FakeSystem system;
    system.on("recv", {failure(EINTR), failure(EAGAIN), failure(EINTR)});
    EXPECT_EQ(readSome(connection.client, 0), "data");
    EXPECT_THAT(system.getWaits(), ElementsAre()) << "the socket has no timeout from the first";
    EXPECT_EQ(system.getMade(), Lines(4, "recv(1000)"));
}

TEST_F(ChannelFaultsTest, TheSocketIsToldOfATimeoutOnlyWhenItChanges) {
    Connection connection;
    writeText(connection.accepted, "abcdef");
    FakeSystem system;
    system.on("setsockopt", {passing(), passing(), failure(ENOMEM)});
    EXPECT_EQ(readSome(connection.client, 5000, 1), "a");
    EXPECT_EQ(readSome(connection.client, 5000, 1), "b");
    EXPECT_EQ(readSome(connection.client, -1, 1), "c");
    EXPECT_EQ(readSome(connection.client, 0, 1), "d");
    EXPECT_THROW(readSome(connection.client, 5000, 1), CvPipeException);
    EXPECT_EQ(readSome(connection.client, 5000, 1), "e");
    EXPECT_THAT(system.getWaits(), ElementsAre(5000, 0, 5000, 5000));
}

TEST_F(ChannelFaultsTest, SignalsNeitherShortenNorLengthenTheTimeoutOfAWrite) {
    Connection connection;
    FakeSystem system;
    system.freezeTime();
    LogCapture log;
    system.on("send", std::vector<Answer>(5, failure(EAGAIN)));
    system.on("poll", {failure(EINTR, system.after(30)), Answer{0, 0, system.after(1000)},
                       failure(EINTR, system.after(8969)), Answer{0, 0, system.after(1)}});
    EXPECT_EQ(messageOf<TimeoutException>([&] { writeText(connection.client, "data"); }), "Pipe write timed out");
    EXPECT_EQ(log.texts(), Lines{"DEBUG: Write timed out."});
    EXPECT_THAT(system.getWaits(), ElementsAre(10000, 9970, 8970, 1));
    EXPECT_EQ(system.madeOf("poll"), Lines(4, "poll(" + std::to_string(POLLOUT) + ")"));
}

TEST_F(ChannelFaultsTest, AtTheEndOfItsTimeAWriteTriesOnceMore) {
    Connection connection;
    FakeSystem system;
    system.freezeTime();
    LogCapture log;
    // poll() calls a socket writable only when most of it is empty.
    system.on("send", {moving(1), failure(EAGAIN)});
    system.on("poll", {Answer{0, 0, system.after(10000)}});
    writeText(connection.client, "data");
    EXPECT_EQ(log.texts(), Lines{});
    EXPECT_EQ(readSome(connection.accepted), "data");
}

TEST_F(ChannelFaultsTest, TheTimeOfAWriteIsThatOfTheWholeAndNotOfAPiece) {
    Connection connection;
    FakeSystem system;
    system.freezeTime();
    system.on("send", {failure(EAGAIN), moving(1), failure(EAGAIN), moving(1), failure(EAGAIN), failure(EAGAIN)});
    system.on("poll", {Answer{0, POLLOUT, system.after(4000)}, Answer{0, POLLOUT, system.after(4000)},
                       Answer{0, 0, system.after(2000)}});
    EXPECT_THROW(writeText(connection.client, "data"), TimeoutException);
    EXPECT_THAT(system.getWaits(), ElementsAre(10000, 6000, 2000));
    EXPECT_EQ(readSome(connection.accepted), "da");
}

TEST_F(ChannelFaultsTest, TheStreamsOfAPipeThatFailedWorkAgainWhenItIsConnectedAnew) {
    Connection connection;
    std::istream& in = *connection.client.getInputStream();
    std::ostream& out = *connection.client.getOutputStream();
    {
        FakeSystem system;
        system.on("send", {failure(EPIPE)});
        system.on("recv", {failure(ENOMEM)});
        EXPECT_THROW(out.put('x'), BrokenPipeException);
        EXPECT_THROW(in.get(), CvPipeException);
        EXPECT_TRUE(in.bad());
        EXPECT_TRUE(out.bad());
    }
    connection.client.close();
    connection.client.connect();
    CvPipe accepted;
    connection.server.accept(accepted);
    out.put('y');
    EXPECT_EQ(readSome(accepted), "y");
    writeText(accepted, "z");
    EXPECT_EQ(in.get(), 'z');
}

TEST_F(ChannelFaultsTest, WritingNothingToAClosedPipeDoesNothing) {
    Connection connection;
    connection.client.close();
    FakeSystem system;
    LogCapture log;
    connection.client.writePipe(nullptr, 0, 0);
    connection.client.writePipe(nullptr, 0, -1);
    EXPECT_EQ(log.texts(), Lines{});
    EXPECT_EQ(system.getMade(), Lines{});
}

TEST_F(ChannelFaultsTest, ACloseThatFailsSaysSo) {
    Connection connection;
    FakeSystem system;
    LogCapture log;
    system.on("shutdown", {failure(ENOTCONN)});
    connection.client.close();
    EXPECT_EQ(maskedTexts(log), (Lines{"DEBUG: Close Handles: handle=N; event=-1",
                                       "INFO: CvPipe_closePipe CancelIoEx failed. Error code : 107"}));
    EXPECT_EQ(readSome(connection.accepted), "end of data");
}

TEST_F(ChannelFaultsTest, ADescriptorIsClosedOnceWhateverTheSystemSays) {
    Connection connection;
    FakeSystem system;
    // As the system does it: it says that a signal came, and the number is free all the same.
    system.on("close", {Answer{0, std::nullopt, nullptr, 0, EINTR}});
    connection.client.close();
    EXPECT_EQ(system.getMade(), (Lines{"shutdown(2)", "close()"}));
}

TEST_F(ChannelFaultsTest, ACloseDuringAReadInterruptsIt) {
    for (const std::string call : {"setsockopt", "recv"}) {
        Connection connection;
        FakeSystem system;
        LogCapture log(3);
        system.on(call, {passing([&] { connection.client.close(); })});
        EXPECT_EQ(outcomeOf([&] { return readSome(connection.client, 60000); }),
                  "InterruptedException CvPipe read aborted.")
            << call;
        EXPECT_EQ(log.texts(), Lines{});
    }
}

TEST_F(ChannelFaultsTest, ACloseDuringAReadThatFailsOrEndsInterruptsItToo) {
    for (const Answer& answer :
         {failure(ENOMEM), failure(ECONNRESET), failure(EINTR), failure(EAGAIN), returning(0)}) {
        Connection connection;
        FakeSystem system;
        LogCapture log(3);
        Answer closing = answer;
        closing.before = [&] { connection.client.close(); };
        system.on("recv", {closing});
        EXPECT_EQ(outcomeOf([&] { return readSome(connection.client, 60000); }),
                  "InterruptedException CvPipe read aborted.");
        EXPECT_EQ(log.texts(), Lines{});
    }
}

TEST_F(ChannelFaultsTest, WhatArrivedBeforeACloseIsRead) {
    Connection connection;
    writeText(connection.accepted, "data");
    FakeSystem system;
    system.on("recv", {passing([&] { connection.client.close(); })});
    EXPECT_EQ(readSome(connection.client), "data");
}

TEST_F(ChannelFaultsTest, ACloseDuringAWriteInterruptsIt) {
    {
        Connection connection;
        FakeSystem system;
        LogCapture log(3);
        system.on("send", {passing([&] { connection.client.close(); })});
        EXPECT_EQ(messageOf<InterruptedException>([&] { writeText(connection.client, "x"); }),
                  "Pipe write aborted.");
        EXPECT_EQ(log.texts(), Lines{"INFO: WriteFile aborted."});
    }
    for (const Answer& answer : {failure(ENOMEM), failure(EINTR), passing()}) {
        Connection connection;
        FakeSystem system;
        LogCapture log(3);
        Answer closing = answer;
        closing.before = [&] { connection.client.close(); };
        system.on("send", {failure(EAGAIN)});
        system.on("poll", {closing});
        // A write that has waited ends without a line.
        EXPECT_EQ(messageOf<InterruptedException>([&] { writeText(connection.client, "x"); }),
                  "Pipe write aborted.");
        EXPECT_EQ(log.texts(), Lines{});
    }
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
