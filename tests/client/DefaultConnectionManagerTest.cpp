#include "cvtp/internal/DefaultConnectionManager.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <ostream>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "cvtp/internal/PipeInfo.h"
#include "io/ServerCvPipe.h"
#include "tests/client/ClientTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpConnectionManager;
using Internal::Cvtp::DefaultConnectionManager;
using Internal::Cvtp::PipeInfo;
using Io::CvPipe;
using Io::CvPipeException;
using Io::IllegalStateException;

const int CONNECT_TIMEOUT = 20000;
const int STALE_TIMEOUT = 60000;

void listen(ScriptedConnection& connection) {
    connection.readToEnd();
}

/// A manager, and a server `orders` that takes any number of connections and never says anything.
class DefaultConnectionManagerTest : public ClientTest {
 protected:
    CvPipe* get(const std::string& mode = "rw") { return manager.getPipe("orders", mode); }

    ScriptedServer server{"orders", {listen}, ScriptedServer::Then::REPEAT};
    DefaultConnectionManager manager{CONNECT_TIMEOUT, STALE_TIMEOUT};
};

int bindingNumber(const std::string& text) {
    const std::string label = "/Binding-";
    const std::string::size_type at = text.find(label);
    return at == std::string::npos ? -1 : std::atoi(text.c_str() + at + label.size());
}

/// Numbers of the connections that the log says were needed, in its order.
std::vector<int> neededBindings(const LogCapture& log) {
    std::vector<int> numbers;
    for (const std::string& text : completeLines(log)) {
        if (text.rfind("DEBUG: Need a CvPipe (", 0) == 0) {
            numbers.push_back(bindingNumber(text));
        }
    }
    return numbers;
}

bool hasLineWith(const LogCapture& log, const std::string& beginning) {
    // Not taken apart line by line: another thread may be in the middle of one.
    return log.log().find(" - " + beginning) != std::string::npos;
}

bool waitForLineWith(const LogCapture& log, const std::string& beginning) {
    for (int i = 0; i < 10000; ++i) {
        if (hasLineWith(log, beginning)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
}

}  // namespace

TEST(CvtpConnectionManagerTest, IsAnInterfaceThatOnlyDerivedClassesMake) {
    EXPECT_TRUE(std::is_abstract<CvtpConnectionManager>::value);
    EXPECT_TRUE(std::has_virtual_destructor<CvtpConnectionManager>::value);
    EXPECT_FALSE(std::is_default_constructible<CvtpConnectionManager>::value);
    EXPECT_TRUE(std::has_virtual_destructor<PipeInfo>::value);
}

TEST_F(DefaultConnectionManagerTest, ANewPipeIsLoggedWhenNeededCreatedAndUsed) {
    const LogCapture log;
    EXPECT_NE(get(), nullptr);
    EXPECT_EQ(ownLines(log),
              (Lines{"DEBUG: Need a CvPipe (orders/Binding-1)", "DEBUG: Created CvPipe (orders/Binding-1)",
                     "DEBUG: Using CvPipe (orders/Binding-1)"}));
}

TEST_F(DefaultConnectionManagerTest, BindingNumbersCountUpAcrossAllManagersOfTheProcess) {
    DefaultConnectionManager other(CONNECT_TIMEOUT, STALE_TIMEOUT);
    const LogCapture log;
    get();
    other.getPipe("orders", "rw");
    get("w");
    const std::vector<int> numbers = neededBindings(log);
    ASSERT_EQ(numbers.size(), 3u);
    EXPECT_GE(numbers[0], 1);
    EXPECT_EQ(numbers[1], numbers[0] + 1);
    EXPECT_EQ(numbers[2], numbers[0] + 2);
}

TEST_F(DefaultConnectionManagerTest, ANewPipeHasTheConnectTimeoutAndNoReadTimeout) {
    CvPipe* const pipe = get();
    EXPECT_EQ(pipe->getConnectTimeout(), CONNECT_TIMEOUT);
    EXPECT_EQ(pipe->getReadTimeout(), 0);
}

TEST_F(DefaultConnectionManagerTest, APipeGivenBackIsUsedAgainWithoutANewConnection) {
    CvPipe* const pipe = get();
    manager.returnPipe(pipe);
    const LogCapture log;
    EXPECT_EQ(get(), pipe);
    EXPECT_EQ(ownLines(log), (Lines{"DEBUG: Using CvPipe (orders/Binding-1)"}));
}

TEST_F(DefaultConnectionManagerTest, ThePipeIdleForLongestIsHandedOutFirst) {
    CvPipe* const a = get();
    CvPipe* const b = get();
    CvPipe* const c = get();
    manager.returnPipe(b);
    manager.returnPipe(a);
    manager.returnPipe(c);
    EXPECT_EQ(get(), b);
    EXPECT_EQ(get(), a);
    manager.returnPipe(b);
    EXPECT_EQ(get(), c);
    EXPECT_EQ(get(), b);
}

TEST_F(DefaultConnectionManagerTest, PipesOfDifferentModesAreNeverShared) {
    CvPipe* const oneWay = get("w");
    manager.returnPipe(oneWay);
    CvPipe* const twoWay = get("rw");
    EXPECT_NE(twoWay, oneWay);
    manager.returnPipe(twoWay);
    EXPECT_EQ(get("w"), oneWay);
    EXPECT_EQ(get("rw"), twoWay);
    // The letters are compared as they stand.
    manager.returnPipe(twoWay);
    EXPECT_NE(get("wr"), twoWay);
}

TEST_F(DefaultConnectionManagerTest, PipesOfDifferentNamesAreNeverShared) {
    ScriptedServer second("parts", {listen});
    CvPipe* const pipe = get();
    manager.returnPipe(pipe);
    EXPECT_NE(manager.getPipe("parts", "rw"), pipe);
    EXPECT_EQ(get(), pipe);
}

TEST_F(DefaultConnectionManagerTest, TheModeGivesTheDirections) {
    CvPipe* const oneWay = get("w");
    EXPECT_NE(oneWay->getOutputStream(), nullptr);
    EXPECT_EQ(messageOf<IllegalStateException>([&] { oneWay->getInputStream(); }),
              "Pipe is not bound with read access.");
    CvPipe* const readOnly = get("r");
    EXPECT_NE(readOnly->getInputStream(), nullptr);
    EXPECT_EQ(messageOf<IllegalStateException>([&] { readOnly->getOutputStream(); }),
              "Pipe is not bound with write access.");
    CvPipe* const twoWay = get("rw");
    EXPECT_NE(twoWay->getInputStream(), nullptr);
    EXPECT_NE(twoWay->getOutputStream(), nullptr);
}

TEST_F(DefaultConnectionManagerTest, AModeWithoutADirectionIsRefusedAndLeavesNothingBehind) {
    EXPECT_THROW(get("x"), Io::IllegalArgumentException);
    EXPECT_THROW(get(""), Io::IllegalArgumentException);
    // Creating goes on, so nothing is locked any more.
    EXPECT_NE(get(), nullptr);
}

TEST_F(DefaultConnectionManagerTest, BothStreamsHaveTheirBuffer) {
    CvPipe* const pipe = get();
    char other[16];
    EXPECT_EQ(messageOf<CvPipeException>([&] { pipe->getInputStream()->rdbuf()->pubsetbuf(other, 16); }),
              "Buffer already set.  Reset not supported.");
    EXPECT_EQ(messageOf<CvPipeException>([&] { pipe->getOutputStream()->rdbuf()->pubsetbuf(other, 16); }),
              "Buffer already set.  Reset not supported.");
}

TEST_F(ClientTest, TheBuffersHave4096Bytes) {
    std::string first;
    std::string rest;
    bool silent = false;
    Signal flushed;
    Signal firstRead;
    Signal written;
    ScriptedServer server("orders", {[&](ScriptedConnection& connection) {
                              first = connection.read(4096);
                              silent = connection.isSilent(50);
                              firstRead.set();
                              flushed.wait();
                              connection.write(std::string(5000, 'y'));
                              written.set();
                              rest = connection.readToEnd();
                          }});
    {
        DefaultConnectionManager manager(CONNECT_TIMEOUT, STALE_TIMEOUT);
        CvPipe* const pipe = manager.getPipe("orders", "rw");
        *pipe->getOutputStream() << std::string(5000, 'x');
        ASSERT_TRUE(firstRead.wait());
        pipe->getOutputStream()->flush();
        flushed.set();
        ASSERT_TRUE(written.wait());
        EXPECT_EQ(pipe->getInputStream()->peek(), 'y');
        EXPECT_EQ(pipe->getInputStream()->rdbuf()->in_avail(), 4096);
    }
    ASSERT_TRUE(server.waitForEnd(0));
    EXPECT_EQ(first, std::string(4096, 'x'));
    EXPECT_TRUE(silent);
    EXPECT_EQ(rest, std::string(5000 - 4096, 'x'));
}

TEST_F(DefaultConnectionManagerTest, ReturningNullDoesNothing) {
    const LogCapture log;
    EXPECT_NO_THROW(manager.returnPipe(nullptr));
    EXPECT_EQ(ownLines(log), Lines{});
}

TEST_F(DefaultConnectionManagerTest, ReturningAPipeTwiceIsLoggedAndThrown) {
    CvPipe* const pipe = get();
    manager.returnPipe(pipe);
    const LogCapture log;
    // No blank after the key.
    EXPECT_EQ(messageOf<IllegalStateException>([&] { manager.returnPipe(pipe); }),
              "orders.rwhas already been returned to the Pipe Pool");
    EXPECT_EQ(ownLines(log), (Lines{"ERROR: orders.rwhas already been returned to the Pipe Pool"}));
    // It lies in the pool once, not twice.
    EXPECT_EQ(get(), pipe);
    EXPECT_NE(get(), pipe);
}

TEST_F(DefaultConnectionManagerTest, ReturningAnUnknownPipeIsLoggedAndThrownAndLeavesThePipeAlone) {
    CvPipe stranger("orders", true, true);
    const LogCapture log;
    // No blank before "in".
    const std::string text = "Can't find the pipe " + addressOf(&stranger) + "in the used or available pools.";
    EXPECT_EQ(messageOf<IllegalStateException>([&] { manager.returnPipe(&stranger); }), text);
    EXPECT_EQ(ownLines(log), (Lines{"ERROR: " + text}));
    EXPECT_EQ(log.log().find("Close Handles"), std::string::npos);
    EXPECT_NO_THROW(stranger.writePipe("x", 0, 1));
}

TEST_F(DefaultConnectionManagerTest, APipeOfAnotherManagerIsUnknown) {
    DefaultConnectionManager other(CONNECT_TIMEOUT, STALE_TIMEOUT);
    CvPipe* const pipe = get();
    EXPECT_EQ(messageOf<IllegalStateException>([&] { other.returnPipe(pipe); }),
              "Can't find the pipe " + addressOf(pipe) + "in the used or available pools.");
    EXPECT_NO_THROW(manager.returnPipe(pipe));
}

TEST_F(DefaultConnectionManagerTest, RemovingAPipeClosesItAndIsLogged) {
    CvPipe* const pipe = get();
    const LogCapture log;
    const std::string address = addressOf(pipe);
    manager.removePipe(pipe);
    EXPECT_EQ(ownLines(log), (Lines{"DEBUG: Remove CvPipe Binding-1(ADDRESS) from used pipe list",
                                    "DEBUG: Closing CvPipe Binding-1"}));
    EXPECT_NE(log.log().find("(" + address + ") from used pipe list- Corvane"), std::string::npos);
    EXPECT_TRUE(server.waitForEnd(0));
    const std::size_t before = ownLines(log).size();
    get();
    EXPECT_EQ(newLines(log, before).size(), 3u) << "the removed pipe was handed out";
}

TEST_F(DefaultConnectionManagerTest, RemovingAnIdlePipeIsLoggedAndThrownAndLeavesItInThePool) {
    CvPipe* const pipe = get("w");
    manager.returnPipe(pipe);
    const LogCapture log;
    EXPECT_EQ(messageOf<IllegalStateException>([&] { manager.removePipe(pipe); }),
              "orders.whas already been returned to the Pipe Pool");
    EXPECT_EQ(ownLines(log), (Lines{"ERROR: orders.whas already been returned to the Pipe Pool"}));
    EXPECT_EQ(get("w"), pipe);
}

TEST_F(DefaultConnectionManagerTest, RemovingAnUnknownPipeDeletesItAndThrows) {
    CvPipe* const stranger = new CvPipe("orders", true, true);
    const LogCapture log;
    EXPECT_EQ(messageOf<IllegalStateException>([&] { manager.removePipe(stranger); }),
              "Can't find the pipe in the Used or Available pools. Will delete it.");
    EXPECT_EQ(ownLines(log), (Lines{"ERROR: Can't find the pipe in the Used or Available pools. Will delete it."}));
    // Closed; that it is deleted, too, is what the leak sanitizer sees.
    EXPECT_TRUE(server.waitForEnd(0));
}

TEST_F(DefaultConnectionManagerTest, RemovingNullIsAnUnknownPipe) {
    EXPECT_EQ(messageOf<IllegalStateException>([&] { manager.removePipe(nullptr); }),
              "Can't find the pipe in the Used or Available pools. Will delete it.");
}

TEST_F(DefaultConnectionManagerTest, TheDestructorClosesUsedAndIdlePipes) {
    const LogCapture log;
    std::size_t before = 0;
    {
        DefaultConnectionManager other(CONNECT_TIMEOUT, STALE_TIMEOUT);
        CvPipe* const idle = other.getPipe("orders", "rw");
        other.getPipe("orders", "rw");
        other.returnPipe(idle);
        before = ownLines(log).size();
    }
    EXPECT_THAT(newLines(log, before), ::testing::UnorderedElementsAre("DEBUG: Closing CvPipe Binding-1",
                                                                       "DEBUG: Closing CvPipe Binding-2"));
    EXPECT_TRUE(server.waitForEnd(0));
    EXPECT_TRUE(server.waitForEnd(1));
}

TEST_F(DefaultConnectionManagerTest, AnIdlePipeIsHandedOutEvenIfItsServerIsGone) {
    DefaultConnectionManager other(CONNECT_TIMEOUT, STALE_TIMEOUT);
    CvPipe* pipe = nullptr;
    {
        ScriptedServer shortLived("parts", {listen});
        pipe = other.getPipe("parts", "rw");
        other.returnPipe(pipe);
    }
    EXPECT_EQ(other.getPipe("parts", "rw"), pipe);
}

TEST_F(DefaultConnectionManagerTest, AFailureIsLoggedAndLeavesNothingInThePool) {
    const LogCapture log;
    EXPECT_EQ(messageOf<CvPipeException>([&] { manager.getPipe("nobody", "rw"); }), "Could not connect to pipe.");
    EXPECT_EQ(ownLines(log),
              (Lines{"DEBUG: Need a CvPipe (nobody/Binding-1)",
                     "ERROR: Failed create/connect CvPipe (nobody/Binding-1)", "DEBUG: Closing CvPipe Binding-1"}));
    ScriptedServer late("nobody", {listen});
    manager.getPipe("nobody", "rw");
    EXPECT_EQ(newLines(log, 3),
              (Lines{"DEBUG: Need a CvPipe (nobody/Binding-2)", "DEBUG: Created CvPipe (nobody/Binding-2)",
                     "DEBUG: Using CvPipe (nobody/Binding-2)"}));
}

TEST_F(DefaultConnectionManagerTest, AFailureKeepsMessageAndCodeButNotTheClass) {
    Io::ServerCvPipe inboundOnly("inbound", true, false);
    // messageOf() looks for exactly this class, neither ConnectException nor TimeoutException.
    EXPECT_EQ(messageOf<CvPipeException>([&] { manager.getPipe("nobody", "w"); }), "Could not connect to pipe.");
    EXPECT_EQ(messageOf<CvPipeException>([&] { manager.getPipe("inbound", "rw"); }), "Access denied.");
    try {
        manager.getPipe("nobody", "w");
        ADD_FAILURE() << "did not throw";
    } catch (CvPipeException& e) {
        EXPECT_EQ(e.getCode(), 0);
        EXPECT_STREQ(e.what(), CvPipeException("Could not connect to pipe.").what());
    }
}

TEST_F(DefaultConnectionManagerTest, ABusyPipeTimesOutWithTheMessageOfTheTimeout) {
    Io::ServerCvPipe busy("busy", true, true);
    CvPipe takesThePlace("busy", true, true);
    DefaultConnectionManager hasty(50, STALE_TIMEOUT);
    const LogCapture log;
    EXPECT_EQ(messageOf<CvPipeException>([&] { hasty.getPipe("busy", "rw"); }), "Timed out connecting to pipe");
    EXPECT_EQ(countOf(log, "DEBUG: Waiting for named pipe."), 1);
    EXPECT_EQ(countOf(log, "DEBUG: Could not open pipe \\\\.\\pipe\\busy after 50 milliseconds."), 1);
}

TEST_F(DefaultConnectionManagerTest, CreatingIsSerialisedAcrossManagersWhileIdlePipesGoOn) {
    Io::ServerCvPipe busy("busy", true, true);
    CvPipe takesThePlace("busy", true, true);
    DefaultConnectionManager other(CONNECT_TIMEOUT, STALE_TIMEOUT);
    CvPipe* const idle = get();
    manager.returnPipe(idle);
    const LogCapture log;
    std::thread waiting([&] { EXPECT_NE(manager.getPipe("busy", "rw"), nullptr); });
    ASSERT_TRUE(waitForLineWith(log, "Waiting for named pipe."));
    std::thread behind([&] { EXPECT_NE(other.getPipe("orders", "rw"), nullptr); });
    ASSERT_TRUE(waitForLineWith(log, "Need a CvPipe (orders/"));
    // The manager's own lock is free meanwhile: this would wait for as long as the first thread does.
    EXPECT_EQ(get(), idle);
    manager.returnPipe(idle);
    // A wrong manager would have connected the second pipe in this time.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_FALSE(hasLineWith(log, "Created CvPipe ("));
    CvPipe accepted;
    busy.accept(accepted);
    waiting.join();
    behind.join();
    const std::string all = log.log();
    EXPECT_LT(all.find("Created CvPipe (busy/"), all.find("CreateFile - \\\\.\\pipe\\orders handle"));
}

TEST_F(DefaultConnectionManagerTest, ManyThreadsNeverGetTheSamePipe) {
    const LogCapture log;
    std::mutex mutex;
    std::set<CvPipe*> inUse;
    const auto work = [&](int thread) {
        for (int i = 0; i < 60; ++i) {
            CvPipe* const pipe = get(thread % 2 == 0 ? "rw" : "w");
            {
                const std::lock_guard<std::mutex> lock(mutex);
                EXPECT_TRUE(inUse.insert(pipe).second);
            }
            pipe->writePipe("x", 0, 1);
            {
                const std::lock_guard<std::mutex> lock(mutex);
                inUse.erase(pipe);
            }
            if (i % 10 == 9) {
                manager.removePipe(pipe);
            } else {
                manager.returnPipe(pipe);
            }
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back(work, i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    // Each thread removed six; what was not removed is one for each thread at most, since a new one is made only
    // when all others of its key are in use.
    const std::size_t created = neededBindings(log).size();
    EXPECT_GE(created, 8u * 6u);
    EXPECT_LE(created, 8u * 6u + 8u);
}

}  // namespace Testing
}  // namespace Corvane
