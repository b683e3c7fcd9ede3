// Large blocks go to the system, and come from it, without a copy in between and in few calls.

#include <gmock/gmock.h>
#include <poll.h>

#include <cerrno>
#include <istream>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::ElementsAre;

class StraightTransferTest : public FaultTest {
 protected:
    StraightTransferTest() {
        connection.client.getOutputStream()->rdbuf()->pubsetbuf(outMemory, sizeof outMemory);
        connection.accepted.getInputStream()->rdbuf()->pubsetbuf(inMemory, sizeof inMemory);
    }
    void TearDown() override {
        connection.client.close();
        connection.accepted.close();
    }

    std::string received(std::size_t size) {
        std::string text(size, ' ');
        connection.accepted.getInputStream()->read(&text[0], static_cast<std::streamsize>(size));
        return text;
    }

    char outMemory[4096];
    char inMemory[4096];
    Connection connection;
    std::ostream& out = *connection.client.getOutputStream();
};

TEST_F(StraightTransferTest, WhatWasHeldBackGoesOutWithTheCallersBlock) {
    const std::string text = numbered(10007);
    FakeSystem system;
    out.write(text.data(), 7);
    out.write(text.data() + 7, 10000);
    EXPECT_EQ(system.getMade(), Lines{"sendmsg(7+8185)"});
    out.flush();
    EXPECT_EQ(system.getMade(), (Lines{"sendmsg(7+8185)", "send(1815)"}));
    EXPECT_EQ(received(10007), text);
}

TEST_F(StraightTransferTest, ABlockAloneGoesOutInOneCall) {
    const std::string text = numbered(10000);
    FakeSystem system;
    out.write(text.data(), 10000);
    out.flush();
    EXPECT_EQ(system.getMade(), (Lines{"send(8192)", "send(1808)"}));
    EXPECT_EQ(received(10000), text);
}

TEST_F(StraightTransferTest, BlocksThatAreTakenInPartGoOnWhereTheyStopped) {
    const std::string text = numbered(12288 + 5);
    FakeSystem system;
    system.on("sendmsg", {moving(3), failure(EINTR), moving(4)});
    system.on("send", {moving(100)});
    out.write(text.data(), 5);
    out.write(text.data() + 5, 12288);
    out.flush();
    EXPECT_EQ(system.getMade(), (Lines{"sendmsg(5+12283)", "sendmsg(2+12283)", "sendmsg(2+12283)", "send(12281)",
                                       "send(12181)", "send(5)"}));
    EXPECT_EQ(received(12293), text);
}

TEST_F(StraightTransferTest, ManyBlocksGoOnWhereTheyStopped) {
    const std::string text = numbered(70000);
    std::vector<std::string_view> blocks;
    for (std::size_t at = 0; at < text.size(); at += 1000) {
        blocks.push_back(std::string_view(text).substr(at, 1000));
    }
    FakeSystem system;
    // In the middle of a block, at the end of one, and so that a single one is left.
    system.on("sendmsg", {moving(2500), failure(EINTR), moving(500), passing(), passing(), moving(2000)});
    auto& buffer = *Io::PipeBufferBase<char>::from(out.rdbuf());
    buffer.putBlocks(blocks.data(), blocks.data() + blocks.size());
    out.flush();
    // Of 69,632 bytes, and no more than 32 blocks at once.
    EXPECT_EQ(system.madeOf("sendmsg").size(), 6u);
    EXPECT_EQ(system.madeOf("sendmsg").back(), "sendmsg(1000+1000+632)");
    EXPECT_EQ(system.madeOf("send"), (Lines{"send(632)", "send(368)"}));
    EXPECT_EQ(received(70000), text);
}

TEST_F(StraightTransferTest, EachBufferOfABlockHasTheTimeOfAWriteOfItsOwn) {
    const std::string text = numbered(3 * 4096 + 1);
    FakeSystem system;
    system.freezeTime();
    system.on("send", {moving(4095), failure(EAGAIN), moving(1), failure(EAGAIN), moving(5000), failure(EAGAIN),
                       failure(EAGAIN)});
    system.on("poll", {Answer{0, POLLOUT, system.after(9999)}, Answer{0, POLLOUT, system.after(9998)},
                       Answer{0, 0, system.after(10000)}});
    EXPECT_EQ(messageOf<TimeoutException>([&] { out.write(text.data(), 3 * 4096 + 1); }), "Pipe write timed out");
    // The last wait is for the rest of the third buffer.
    EXPECT_THAT(system.getWaits(), ElementsAre(10000, 10000, 10000));
    EXPECT_EQ(received(4096 + 5000), text.substr(0, 4096 + 5000));
}

TEST_F(StraightTransferTest, TheTimeOfABufferDoesNotBeginAnewWithinIt) {
    const std::string text = numbered(3 * 4096 + 1);
    FakeSystem system;
    system.freezeTime();
    system.on("send", {moving(4000), failure(EAGAIN), moving(95), failure(EAGAIN), failure(EAGAIN)});
    system.on("poll", {Answer{0, POLLOUT, system.after(4000)}, Answer{0, 0, system.after(6000)}});
    EXPECT_EQ(messageOf<TimeoutException>([&] { out.write(text.data(), 3 * 4096 + 1); }), "Pipe write timed out");
    EXPECT_THAT(system.getWaits(), ElementsAre(10000, 6000));
}

TEST_F(StraightTransferTest, ALargeReadNeedsNoBufferInBetween) {
    const std::string text = numbered(20000);
    out.write(text.data(), 20000);
    out.flush();
    FakeSystem system;
    EXPECT_EQ(received(20000), text);
    EXPECT_EQ(system.madeOf("recv"), Lines{"recv(20000)"});
}

TEST_F(StraightTransferTest, WhatComesBehindALargeReadIsReadWithIt) {
    const std::string text = numbered(20000);
    out.write(text.data(), 20000);
    out.flush();
    FakeSystem system;
    auto& in = *Io::PipeBufferBase<char>::from(connection.accepted.getInputStream()->rdbuf());
    std::string target(18000, ' ');
    EXPECT_EQ(in.readSomeAndAhead(&target[0], 18000), 18000);
    EXPECT_EQ(system.getMade(), Lines{"recvmsg(18000+4095)"});
    EXPECT_EQ(target + std::string(in.ahead()), text);
}

TEST_F(StraightTransferTest, AReadOfTwoPlacesThatFailsLosesNothing) {
    FakeSystem system;
    system.on("recvmsg", {failure(EINTR), failure(EIO), moving(5)});
    out.write("0123456789", 10);
    out.flush();
    auto& in = *Io::PipeBufferBase<char>::from(connection.accepted.getInputStream()->rdbuf());
    std::string target(5000, ' ');
    EXPECT_EQ(messageOf<CvPipeException>([&] { in.readSomeAndAhead(&target[0], 5000); }), "CvPipe read failed.");
    EXPECT_EQ(in.readSomeAndAhead(&target[0], 5000), 5);
    EXPECT_EQ(in.readSomeAndAhead(&target[5], 4995), 5);
    EXPECT_EQ(target.substr(0, 10), "0123456789");
}

TEST_F(StraightTransferTest, BlocksToAPipeThatWasClosedAreAborted) {
    const std::string text = numbered(20000);
    connection.client.close();
    LogCapture log;
    EXPECT_EQ(messageOf<InterruptedException>([&] { out.write(text.data(), 20000); }), "Pipe write aborted.");
    EXPECT_EQ(log.texts(), Lines{"INFO: WriteFile aborted."});
}

TEST_F(StraightTransferTest, BlocksToAPipeThatIsNotOpenFail) {
    CvPipe pipe;
    pipe.bind("none", false, true);
    char memory[8];
    pipe.getOutputStream()->rdbuf()->pubsetbuf(memory, sizeof memory);
    LogCapture log;
    EXPECT_EQ(messageOf<CvPipeException>([&] { pipe.getOutputStream()->write("0123456789abcdefgh", 18); }),
              "Pipe write failed");
    EXPECT_EQ(log.texts(), Lines{"ERROR: WriteFile error: 9"});
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
