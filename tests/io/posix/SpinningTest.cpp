// A read tries again for a moment before it goes to sleep, and learns when that is of no use.

#include "io/platform/posix/Spinning.h"

#include <gtest/gtest.h>
#include <sched.h>

#include <string>
#include <thread>
#include <vector>

#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
namespace Spinning = Platform::Spinning;

class SpinningTest : public FaultTest {
 protected:
    SpinningTest() {
        Spinning::setLength(50);
        system.freezeTime();
    }
    ~SpinningTest() override { Spinning::setLength(-1); }

    // The connection is a member and still there.
    void TearDown() override {}

    static bool hasSeveralProcessors() { return std::thread::hardware_concurrency() > 1; }

    Connection connection;
    FakeSystem system;
};

TEST_F(SpinningTest, WhatIsThereTakesOneCall) {
    Spinning::setLength(50);
    writeText(connection.accepted, "data");
    system.forgetMade();
    EXPECT_EQ(readSome(connection.client), "data");
    EXPECT_EQ(system.getMade(), Lines{hasSeveralProcessors() ? "recv(1000 now)" : "recv(1000)"});
}

TEST_F(SpinningTest, WhatComesWithinTheMomentIsReadWithoutASleep) {
    if (!hasSeveralProcessors()) {
        GTEST_SKIP() << "there is one processor only";
    }
    Spinning::setLength(50);
    system.on("recv", {passing(), passing(), passing([&] { writeText(connection.accepted, "data"); })});
    EXPECT_EQ(readSome(connection.client), "data");
    EXPECT_EQ(system.madeOf("recv"), Lines(3, "recv(1000 now)"));
}

TEST_F(SpinningTest, AfterTheMomentTheReadBlocks) {
    if (!hasSeveralProcessors()) {
        GTEST_SKIP() << "there is one processor only";
    }
    Spinning::setLength(50);
    system.on("recv",
              {passing(), passing(system.after(1)), passing([&] { writeText(connection.accepted, "data"); })});
    EXPECT_EQ(readSome(connection.client), "data");
    EXPECT_EQ(system.madeOf("recv"), (Lines{"recv(1000 now)", "recv(1000 now)", "recv(1000)"}));
}

TEST_F(SpinningTest, ACloseEndsIt) {
    if (!hasSeveralProcessors()) {
        GTEST_SKIP() << "there is one processor only";
    }
    Spinning::setLength(50);
    system.on("recv", {passing([&] { connection.client.close(); })});
    EXPECT_EQ(messageOf<InterruptedException>([&] { readSome(connection.client); }), "CvPipe read aborted.");
    EXPECT_EQ(system.madeOf("recv"), Lines{"recv(1000 now)"});
}

TEST_F(SpinningTest, TheEndOfDataIsSeenInIt) {
    Spinning::setLength(50);
    connection.accepted.close();
    EXPECT_EQ(readSome(connection.client), "end of data");
    EXPECT_EQ(system.madeOf("recv"), Lines{hasSeveralProcessors() ? "recv(1000 now)" : "recv(1000)"});
}

TEST_F(SpinningTest, WasLeftOutTwiceAsOftenAfterEachMomentThatWasWasted) {
    if (!hasSeveralProcessors()) {
        GTEST_SKIP() << "there is one processor only";
    }
    Spinning::setLength(50);
    std::vector<int> leftOut;
    for (int i = 0; i < 15; ++i) {
        int count = 0;
        while (!Spinning::isDue()) {
            ++count;
        }
        leftOut.push_back(count);
        Spinning::note(false);
    }
    EXPECT_EQ(leftOut, (std::vector<int>{0, 1, 2, 4, 8, 16, 32, 64, 128, 256, 512, 1024, 2048, 4096, 4096}));
    while (!Spinning::isDue()) {
    }
    Spinning::note(true);
    EXPECT_TRUE(Spinning::isDue());
}

TEST_F(SpinningTest, IsOffWithALengthOfNothing) {
    Spinning::setLength(0);
    EXPECT_FALSE(Spinning::isDue());
}

TEST_F(SpinningTest, IsOffInAThreadOfOneProcessor) {
    bool isDue = true;
    std::thread([&isDue] {
        cpu_set_t first;
        CPU_ZERO(&first);
        CPU_SET(static_cast<std::size_t>(sched_getcpu()), &first);
        ASSERT_EQ(sched_setaffinity(0, sizeof(first), &first), 0);
        Spinning::setLength(50);
        isDue = Spinning::isDue();
    }).join();
    EXPECT_FALSE(isDue);
}

TEST_F(SpinningTest, EndsInAThreadThatBindsItselfToOneProcessor) {
    int dueLater = 0;
    std::thread([&dueLater] {
        Spinning::setLength(50);
        static_cast<void>(Spinning::isDue());
        cpu_set_t first;
        CPU_ZERO(&first);
        CPU_SET(static_cast<std::size_t>(sched_getcpu()), &first);
        ASSERT_EQ(sched_setaffinity(0, sizeof(first), &first), 0);
        Spinning::note(false);
        for (int i = 0; i < 10; ++i) {
            dueLater += Spinning::isDue() ? 1 : 0;
        }
    }).join();
    EXPECT_EQ(dueLater, 0);
}

/// Reads of another thread, which may find nothing to try again for.
void countReadsOfAnotherThread(int count) {
    std::thread([count] {
        for (int i = 0; i < count; ++i) {
            static_cast<void>(Spinning::isDue());
        }
    }).join();
}

TEST_F(SpinningTest, IsLeftOutWhereOthersReadMoreThanThereAreProcessorsFor) {
    if (!hasSeveralProcessors()) {
        GTEST_SKIP() << "there is one processor only";
    }
    EXPECT_TRUE(Spinning::isDue());
    int rounds = 0;
    do {
        countReadsOfAnotherThread(1000);
    } while (Spinning::isDue() && ++rounds < 1000);
    EXPECT_LT(rounds, 1000);
    EXPECT_FALSE(Spinning::isDue());
}

TEST_F(SpinningTest, ComesBackWhenTheOthersHaveStopped) {
    if (!hasSeveralProcessors()) {
        GTEST_SKIP() << "there is one processor only";
    }
    do {
        countReadsOfAnotherThread(1000);
    } while (Spinning::isDue());
    int leftOut = 0;
    while (!Spinning::isDue() && leftOut < 1000) {
        ++leftOut;
    }
    EXPECT_LT(leftOut, 1000);
}

TEST_F(SpinningTest, GoesOnBesideAThreadThatReadsNowAndThen) {
    if (!hasSeveralProcessors()) {
        GTEST_SKIP() << "there is one processor only";
    }
    int due = 0;
    for (int i = 0; i < 20; ++i) {
        countReadsOfAnotherThread(1);
        for (int j = 0; j < 100; ++j) {
            due += Spinning::isDue() ? 1 : 0;
        }
    }
    EXPECT_EQ(due, 20 * 100);
}

TEST(SpinningLength, IsThatOfTheEnvironment) {
    EXPECT_EQ(Spinning::lengthFrom("0"), 0);
    EXPECT_EQ(Spinning::lengthFrom("7"), 7);
    EXPECT_EQ(Spinning::lengthFrom("1001"), 1000);
}

TEST(SpinningLength, IsTheUsualOneForWhatIsNoLength) {
    for (const char* text : {"", " ", "-1", "many", "5 ms", "0x10", "99999999999999999999"}) {
        EXPECT_EQ(Spinning::lengthFrom(text), 50) << text;
    }
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
