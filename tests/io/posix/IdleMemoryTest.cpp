// What a connection that is quiet gives back to the system, and what it costs.

#include <gmock/gmock.h>
#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <istream>
#include <memory>
#include <string>
#include <string_view>

#include "io/PipeStreams.h"
#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::ElementsAre;

/// Whole pages, however large those of the system are.
const std::size_t SIZE = 128 * 1024;

class IdleMemoryTest : public PipeTest {
 protected:
    ~IdleMemoryTest() override { ::munmap(pages, SIZE); }

    void SetUp() override {
        ASSERT_NE(pages, MAP_FAILED);
        std::memset(pages, 'x', SIZE);
        PipeStreams::setIdleMemory(connection.client, pages, SIZE);
    }

    /// How much of the memory still holds what was written there.
    std::ptrdiff_t kept() const { return std::count(pages, pages + SIZE, 'x'); }

    Connection connection;
    char* const pages =
        static_cast<char*>(::mmap(nullptr, SIZE, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
};

TEST_F(IdleMemoryTest, IsGivenBackWhenNothingComesForAWhile) {
    EXPECT_THROW(readSome(connection.client, 300), TimeoutException);
    EXPECT_EQ(kept(), 0);
}

TEST_F(IdleMemoryTest, StaysWhenSomethingComesAtOnce) {
    writeText(connection.accepted, "data");
    EXPECT_EQ(readSome(connection.client, 5000), "data");
    EXPECT_EQ(kept(), static_cast<std::ptrdiff_t>(SIZE));
}

TEST_F(IdleMemoryTest, TakesWhatIsReadAfterIt) {
    FakeSystem system;
    writeText(connection.accepted, "data");
    system.on("recv", {failure(EAGAIN)});
    EXPECT_EQ(connection.client.readPipe(pages, 0, 100, 5000), 4);
    EXPECT_EQ(std::string(pages, 5), std::string("data\0", 5));
}

TEST_F(IdleMemoryTest, TakesBytesThatAreReadAgainWithoutAWait) {
    auto& in = *PipeBufferBase<char>::from(connection.client.getInputStream()->rdbuf());
    in.pubsetbuf(pages, 8);
    writeText(connection.accepted, "0123456789");
    char target[10];
    EXPECT_EQ(in.readSome(target, 10), 10);
    const std::string_view block(target, 10);
    in.unread(nullptr, &block, &block + 1, std::make_unique<char[]>(18));
    FakeSystem system;
    EXPECT_EQ(in.sgetc(), '0');
    EXPECT_EQ(in.ahead(), "01234567");
    in.skip(8);
    EXPECT_EQ(in.sgetc(), '8');
    EXPECT_EQ(in.ahead(), "89");
    EXPECT_EQ(system.getMade(), Lines());
}

TEST_F(IdleMemoryTest, TakesAWaitInTwoPartsAndGivesBackOnce) {
    FakeSystem system;
    system.freezeTime();
    system.on("recv", {failure(EINTR, system.after(40)), failure(EAGAIN, system.after(100)),
                       failure(EINTR, system.after(4000)), failure(EAGAIN, system.after(860))});
    EXPECT_THROW(readSome(connection.client, 5000), TimeoutException);
    EXPECT_THAT(system.getWaits(), ElementsAre(100, 4860, 860));
    EXPECT_EQ(system.madeOf("madvise"), Lines{"madvise(131072)"});
}

TEST_F(IdleMemoryTest, LeavesAWaitWithoutLimitAsItIs) {
    FakeSystem system;
    writeText(connection.accepted, "data");
    system.on("recv", {failure(EINTR), failure(EAGAIN), failure(EINTR), failure(EAGAIN)});
    EXPECT_EQ(readSome(connection.client, 0), "data");
    EXPECT_THAT(system.getWaits(), ElementsAre(100, 0));
    EXPECT_EQ(system.madeOf("madvise").size(), 1u);
}

TEST_F(IdleMemoryTest, CostsNoCallWhileRequestsFollowEachOther) {
    FakeSystem system;
    for (int round = 0; round < 3; ++round) {
        writeText(connection.accepted, "data");
        EXPECT_EQ(readSome(connection.client, 5000), "data");
    }
    EXPECT_EQ(system.madeOf("setsockopt").size(), 1u);
    EXPECT_EQ(system.madeOf("madvise").size(), 0u);
}

TEST_F(IdleMemoryTest, ThatTheSystemDoesNotTakeStays) {
    FakeSystem system;
    LogCapture log;
    writeText(connection.accepted, "data");
    system.on("recv", {failure(EAGAIN)});
    system.on("madvise", {failure(EINVAL)});
    EXPECT_EQ(readSome(connection.client, 5000), "data");
    EXPECT_EQ(kept(), static_cast<std::ptrdiff_t>(SIZE));
    EXPECT_EQ(log.texts(), Lines{});
}

TEST_F(IdleMemoryTest, IsNotGivenBackWithOtherBytesOfTheSamePage) {
    // As a buffer of a small page is where the pages of the system are larger.
    PipeStreams::setIdleMemory(connection.client, pages, SIZE - 1);
    EXPECT_THROW(readSome(connection.client, 300), TimeoutException);
    EXPECT_EQ(pages[SIZE - 1], 'x');
}

TEST_F(IdleMemoryTest, IsNoLongerGivenBackWhenThereIsNone) {
    PipeStreams::setIdleMemory(connection.client, nullptr, 0);
    EXPECT_THROW(readSome(connection.client, 300), TimeoutException);
    EXPECT_EQ(kept(), static_cast<std::ptrdiff_t>(SIZE));
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
