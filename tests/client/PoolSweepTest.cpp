#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "cvtp/internal/DefaultConnectionManager.h"
#include "tests/client/ClientTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Internal::Cvtp::DefaultConnectionManager;
using Io::CvPipe;

using Pipes = std::vector<CvPipe*>;

/// With this every idle pipe is stale at once, with the other none in the time of a test.
const int AT_ONCE = -1;
const int NEVER = 600000;

void listen(ScriptedConnection& connection) {
    connection.readToEnd();
}

/// Milliseconds of the clock that the pool goes by.
std::int64_t now() {
    const auto time = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
}

class PoolSweepTest : public ClientTest {
 protected:
    /// New pipes of one name, all in use.
    static Pipes take(DefaultConnectionManager& manager, const std::string& name, std::size_t count) {
        Pipes pipes;
        for (std::size_t i = 0; i < count; ++i) {
            pipes.push_back(manager.getPipe(name, "rw"));
        }
        return pipes;
    }

    static void giveBack(DefaultConnectionManager& manager, const Pipes& pipes) {
        for (CvPipe* const pipe : pipes) {
            manager.returnPipe(pipe);
        }
    }

    ScriptedServer a{"a", {listen}, ScriptedServer::Then::REPEAT};
    ScriptedServer b{"b", {listen}, ScriptedServer::Then::REPEAT};
    ScriptedServer c{"c", {listen}, ScriptedServer::Then::REPEAT};
    ScriptedServer capital{"Z", {listen}, ScriptedServer::Then::REPEAT};
};

}  // namespace

TEST_F(PoolSweepTest, ASingleStalePipeIsDeletedWhenAPipeOfItsOwnKeyIsAskedFor) {
    DefaultConnectionManager manager(NEVER, AT_ONCE);
    giveBack(manager, take(manager, "a", 1));
    const LogCapture log;
    manager.getPipe("a", "rw");
    EXPECT_EQ(ownLines(log), (Lines{"DEBUG: Deleting stale CvPipe Binding-1", "DEBUG: Closing CvPipe Binding-1",
                                    "DEBUG: Need a CvPipe (a/Binding-2)", "DEBUG: Created CvPipe (a/Binding-2)",
                                    "DEBUG: Using CvPipe (a/Binding-2)"}));
    EXPECT_TRUE(a.waitForEnd(0));
}

TEST_F(PoolSweepTest, ASingleStalePipeIsDeletedWhenAPipeOfAnyKeyIsAskedFor) {
    DefaultConnectionManager manager(NEVER, AT_ONCE);
    giveBack(manager, take(manager, "a", 1));
    const LogCapture log;
    manager.getPipe("b", "w");
    EXPECT_EQ(ownLines(log), (Lines{"DEBUG: Deleting stale CvPipe Binding-1", "DEBUG: Closing CvPipe Binding-1",
                                    "DEBUG: Need a CvPipe (b/Binding-2)", "DEBUG: Created CvPipe (b/Binding-2)",
                                    "DEBUG: Using CvPipe (b/Binding-2)"}));
    EXPECT_TRUE(a.waitForEnd(0));
}

TEST_F(PoolSweepTest, KeysAreSweptInTheOrderOfTheirBytes) {
    const LogCapture log;
    DefaultConnectionManager manager(NEVER, AT_ONCE);
    CvPipe* const inB = manager.getPipe("b", "rw");
    CvPipe* const inA = manager.getPipe("a", "w");
    CvPipe* const inZ = manager.getPipe("Z", "rw");
    CvPipe* const inAToo = manager.getPipe("a", "rw");
    giveBack(manager, {inB, inA, inZ, inAToo});
    const std::size_t before = ownLines(log).size();
    manager.getPipe("c", "rw");
    // "Z.rw", "a.rw", "a.w", "b.rw"
    EXPECT_EQ(newLines(log, before),
              (Lines{"DEBUG: Deleting stale CvPipe Binding-3", "DEBUG: Closing CvPipe Binding-3",
                     "DEBUG: Deleting stale CvPipe Binding-4", "DEBUG: Closing CvPipe Binding-4",
                     "DEBUG: Deleting stale CvPipe Binding-2", "DEBUG: Closing CvPipe Binding-2",
                     "DEBUG: Deleting stale CvPipe Binding-1", "DEBUG: Closing CvPipe Binding-1",
                     "DEBUG: Need a CvPipe (c/Binding-5)", "DEBUG: Created CvPipe (c/Binding-5)",
                     "DEBUG: Using CvPipe (c/Binding-5)"}));
}

TEST_F(PoolSweepTest, TwoStalePipesAreLeftAloneAndTheOlderOneIsHandedOut) {
    DefaultConnectionManager manager(NEVER, AT_ONCE);
    const Pipes pipes = take(manager, "a", 2);
    giveBack(manager, pipes);
    const LogCapture log;
    EXPECT_EQ(manager.getPipe("a", "rw"), pipes[0]);
    EXPECT_EQ(ownLines(log), (Lines{"DEBUG: Using CvPipe (a/Binding-1)"}));
}

TEST_F(PoolSweepTest, ThreeStalePipesAreLeftAloneUntilOneIsLeft) {
    const LogCapture log;
    DefaultConnectionManager manager(NEVER, AT_ONCE);
    const Pipes pipes = take(manager, "a", 3);
    giveBack(manager, pipes);
    EXPECT_EQ(manager.getPipe("a", "rw"), pipes[0]);
    EXPECT_EQ(manager.getPipe("a", "rw"), pipes[1]);
    const std::size_t before = ownLines(log).size();
    manager.getPipe("b", "rw");
    EXPECT_EQ(newLines(log, before),
              (Lines{"DEBUG: Deleting stale CvPipe Binding-3", "DEBUG: Closing CvPipe Binding-3",
                     "DEBUG: Need a CvPipe (b/Binding-4)", "DEBUG: Created CvPipe (b/Binding-4)",
                     "DEBUG: Using CvPipe (b/Binding-4)"}));
    EXPECT_TRUE(a.waitForEnd(2));
}

TEST_F(PoolSweepTest, FreshPipesAreLeftAlone) {
    DefaultConnectionManager manager(NEVER, NEVER);
    const Pipes pipes = take(manager, "a", 2);
    giveBack(manager, pipes);
    const LogCapture log;
    manager.getPipe("b", "rw");
    EXPECT_EQ(ownLines(log).size(), 3u) << log.log();
    EXPECT_EQ(manager.getPipe("a", "rw"), pipes[0]);
    EXPECT_EQ(manager.getPipe("a", "rw"), pipes[1]);
}

TEST_F(PoolSweepTest, APipeInUseIsNeverStale) {
    DefaultConnectionManager manager(NEVER, AT_ONCE);
    CvPipe* const used = manager.getPipe("a", "rw");
    const LogCapture log;
    manager.getPipe("a", "rw");
    manager.getPipe("b", "rw");
    EXPECT_EQ(log.log().find("Deleting stale"), std::string::npos);
    EXPECT_NO_THROW(used->writePipe("x", 0, 1));
}

TEST_F(PoolSweepTest, APipeThatWasUsedAndGivenBackIsFreshAgain) {
    DefaultConnectionManager manager(NEVER, 300);
    CvPipe* const pipe = manager.getPipe("a", "rw");
    manager.returnPipe(pipe);
    ASSERT_EQ(manager.getPipe("a", "rw"), pipe);
    std::this_thread::sleep_for(std::chrono::milliseconds(320));
    // Only the time since it was given back counts. A machine that stops for longer here shows nothing, so again.
    for (int i = 0; i < 10; ++i) {
        const std::int64_t before = now();
        manager.returnPipe(pipe);
        const LogCapture log;
        CvPipe* const next = manager.getPipe("a", "rw");
        if (now() - before <= 300) {
            EXPECT_EQ(next, pipe);
            EXPECT_EQ(ownLines(log).size(), 1u) << log.log();
            return;
        }
        ASSERT_EQ(next, pipe) << "too slow a machine for this test";
    }
}

namespace {

/// Two pipes of "a", of which the older is stale; three of "b", of which the oldest is; and three of "c", of which
/// only the last one given back is fresh. Gives the lines of the next sweep.
struct MixedSweep {
    Lines lines;
    Pipes inC;
    /// All that should be fresh was so when the sweep ran.
    bool inTime = false;
};

MixedSweep sweepMixedLists(DefaultConnectionManager& manager, int staleTimeout) {
    MixedSweep result;
    const LogCapture log;
    const Pipes inA{manager.getPipe("a", "rw"), manager.getPipe("a", "rw")};
    const Pipes inB{manager.getPipe("b", "rw"), manager.getPipe("b", "rw"), manager.getPipe("b", "rw")};
    result.inC = {manager.getPipe("c", "rw"), manager.getPipe("c", "rw"), manager.getPipe("c", "rw")};
    for (CvPipe* const old : {inA[0], inB[0], result.inC[0], result.inC[1]}) {
        manager.returnPipe(old);
    }
    // The clock of the pool stands still for up to 16 ms.
    const std::int64_t end = now() + staleTimeout + 20;
    while (now() < end) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const std::size_t before = ownLines(log).size();
    const std::int64_t start = now();
    for (CvPipe* const fresh : {inA[1], inB[2], inB[1], result.inC[2]}) {
        manager.returnPipe(fresh);
    }
    manager.getPipe("Z", "rw");
    result.inTime = now() - start <= staleTimeout;
    result.lines = newLines(log, before);
    return result;
}

}  // namespace

TEST_F(PoolSweepTest, AListOfWhichOnlyTheOldestIsStaleIsEmptiedAndOneWithMoreStalePipesIsLeftAlone) {
    const int staleTimeout = 300;
    for (int attempt = 0; attempt < 5; ++attempt) {
        DefaultConnectionManager manager(NEVER, staleTimeout);
        const MixedSweep sweep = sweepMixedLists(manager, staleTimeout);
        if (!sweep.inTime) {
            // The machine stood still, and what should be fresh is stale.
            continue;
        }
        // The connections of "a" are 1 and 2, those of "b" 3 to 5. Each list goes from its oldest pipe on; nothing
        // of "c".
        EXPECT_EQ(sweep.lines, (Lines{"DEBUG: Deleting stale CvPipe Binding-1", "DEBUG: Closing CvPipe Binding-1",
                                      "DEBUG: Deleting stale CvPipe Binding-2", "DEBUG: Closing CvPipe Binding-2",
                                      "DEBUG: Deleting stale CvPipe Binding-3", "DEBUG: Closing CvPipe Binding-3",
                                      "DEBUG: Deleting stale CvPipe Binding-5", "DEBUG: Closing CvPipe Binding-5",
                                      "DEBUG: Deleting stale CvPipe Binding-4", "DEBUG: Closing CvPipe Binding-4",
                                      "DEBUG: Need a CvPipe (Z/Binding-9)", "DEBUG: Created CvPipe (Z/Binding-9)",
                                      "DEBUG: Using CvPipe (Z/Binding-9)"}));
        EXPECT_EQ(manager.getPipe("c", "rw"), sweep.inC[0]);
        return;
    }
    FAIL() << "too slow a machine for this test";
}

}  // namespace Testing
}  // namespace Corvane
