// Faults of handlers. Each test that ends a worker by a fault does so in a process of its own: what the abandoned
// work held stays lost, and several of them end the process.

#include "cvtp/internal/FaultGuard.h"

#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <thread>

#include "tests/server/FaultingServer.h"
#include "tests/server/OwnProcess.h"
#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpServer;
using Internal::Cvtp::FaultGuard;
using ::testing::ExitedWithCode;
using ::testing::KilledBySignal;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const bool SANITIZED = true;
#else
const bool SANITIZED = false;
#endif

/// Tests the process ends by have these signals ended by the system, not by a sanitizer that takes them.
void giveSignalsToTheSystem() {
    for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
        signal(number, SIG_DFL);
    }
}

/// Where a null pointer comes from that no compiler sees through.
volatile std::uintptr_t nowhere = 0;

__attribute__((no_sanitize("address", "thread", "undefined"))) void writeToNull() {
    *reinterpret_cast<volatile int*>(nowhere) = 1;
}

volatile int one = 1;
volatile int zero = 0;
volatile int quotient = 0;

__attribute__((no_sanitize("address", "thread", "undefined"))) void divideByZero() {
    quotient = one / zero;
}

__attribute__((noinline)) int useUpTheStack(volatile int* depth) {
    volatile char block[4096];
    block[0] = static_cast<char>(*depth);
    volatile int deeper = *depth + 1;
    return deeper < 0 ? 0 : useUpTheStack(&deeper) + block[0];
}

// Filters.

std::atomic<unsigned int> lastCode{0};
std::atomic<int> lastSignal{0};
std::atomic<void*> lastAddress{nullptr};
std::atomic<int> filterCalls{0};
std::atomic<int> filterAnswer{1};

int note(unsigned int code, void* info) {
    ++filterCalls;
    lastCode = code;
    const siginfo_t* const details = static_cast<siginfo_t*>(info);
    lastSignal = details->si_signo;
    lastAddress = details->si_addr;
    return filterAnswer;
}

int noteTyped(unsigned int code, siginfo_t* info) {
    return note(code, info);
}

int passOn(unsigned int, void*) {
    return 0;
}

class FaultGuardTest : public ServerTest {
 protected:
    FaultGuardTest() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
    ~FaultGuardTest() override { CvtpServer::setExceptionHandler(nullptr); }
};

TEST_F(FaultGuardTest, ANullPointerStopsTheServerInOrder) {
    EXPECT_EXIT(
        {
            CvtpServer::setExceptionHandler(noteTyped);
            expectOrderlyStop(faultInAHandler(writeToNull));
            EXPECT_EQ(filterCalls, 1);
            EXPECT_EQ(lastCode, static_cast<unsigned int>(SIGSEGV));
            EXPECT_EQ(lastSignal, SIGSEGV);
            EXPECT_EQ(lastAddress, nullptr);
            leave();
        },
        ExitedWithCode(0), "");
}

TEST_F(FaultGuardTest, ADivisionByZeroStopsTheServerInOrder) {
    EXPECT_EXIT(
        {
            CvtpServer::setExceptionHandler(note);
            expectOrderlyStop(faultInAHandler(divideByZero));
            EXPECT_EQ(lastCode, static_cast<unsigned int>(SIGFPE));
            EXPECT_EQ(lastSignal, SIGFPE);
            leave();
        },
        ExitedWithCode(0), "");
}

TEST_F(FaultGuardTest, AUsedUpStackStopsTheServerInOrder) {
    if (SANITIZED) {
        GTEST_SKIP() << "the sanitizers' own frames and red zones fault where no handler can run";
    }
    EXPECT_EXIT(
        {
            CvtpServer::setExceptionHandler(note);
            expectOrderlyStop(faultInAHandler([] {
                volatile int depth = 0;
                quotient = useUpTheStack(&depth);
            }));
            EXPECT_EQ(lastCode, static_cast<unsigned int>(SIGSEGV));
            leave();
        },
        ExitedWithCode(0), "");
}

TEST_F(FaultGuardTest, AnyPositiveAnswerStopsTheServer) {
    EXPECT_EXIT(
        {
            filterAnswer = 7;
            CvtpServer::setExceptionHandler(note);
            expectOrderlyStop(faultInAHandler(writeToNull));
            leave();
        },
        ExitedWithCode(0), "");
}

TEST_F(FaultGuardTest, WithoutAFilterTheProcessEndsAsItAlwaysDid) {
    EXPECT_EXIT(
        {
            giveSignalsToTheSystem();
            faultInAHandler(writeToNull);
        },
        KilledBySignal(SIGSEGV), "");
}

TEST_F(FaultGuardTest, AFilterThatPassesOnEndsTheProcessAsItAlwaysDid) {
    EXPECT_EXIT(
        {
            giveSignalsToTheSystem();
            CvtpServer::setExceptionHandler(passOn);
            faultInAHandler(writeToNull);
        },
        KilledBySignal(SIGSEGV), "");
}

TEST_F(FaultGuardTest, AFilterThatWasTakenAwayIsNotAsked) {
    EXPECT_EXIT(
        {
            giveSignalsToTheSystem();
            CvtpServer::setExceptionHandler(note);
            CvtpServer::setExceptionHandler(nullptr);
            faultInAHandler(divideByZero);
        },
        KilledBySignal(SIGFPE), "");
}

TEST_F(FaultGuardTest, AFaultOfTheFilterItselfEndsTheProcess) {
    EXPECT_EXIT(
        {
            giveSignalsToTheSystem();
            CvtpServer::setExceptionHandler([](unsigned int, siginfo_t*) -> int {
                // Not blocked by the fault that is being handled.
                divideByZero();
                return 1;
            });
            faultInAHandler(writeToNull);
        },
        KilledBySignal(SIGFPE), "");
}

// Faults of threads that are no workers.

std::atomic<int> oldHandlerCalls{0};

void oldHandler(int number, siginfo_t*, void*) {
    ++oldHandlerCalls;
    _exit(number == SIGSEGV ? 42 : 43);
}

void installOldHandler() {
    struct sigaction action = {};
    action.sa_sigaction = oldHandler;
    action.sa_flags = SA_SIGINFO;
    for (const int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL}) {
        sigaction(number, &action, nullptr);
    }
}

TEST_F(FaultGuardTest, AnotherThreadsFaultGoesWhereItWentBefore) {
    EXPECT_EXIT(
        {
            installOldHandler();
            CvtpServer::setExceptionHandler(note);
            std::thread(writeToNull).join();
        },
        ExitedWithCode(42), "");
}

TEST_F(FaultGuardTest, AnotherThreadsFaultEndsTheProcessWhereNobodyHandledIt) {
    EXPECT_EXIT(
        {
            giveSignalsToTheSystem();
            CvtpServer::setExceptionHandler(note);
            std::thread(divideByZero).join();
        },
        KilledBySignal(SIGFPE), "");
}

TEST_F(FaultGuardTest, AFaultBehindGuardedWorkIsNotGuarded) {
    EXPECT_EXIT(
        {
            installOldHandler();
            CvtpServer::setExceptionHandler(note);
            EXPECT_TRUE(FaultGuard::run(FaultGuard::getFilter(), [] {}));
            writeToNull();
        },
        ExitedWithCode(42), "");
}

TEST_F(FaultGuardTest, ASignalThatSomebodySentIsNoFaultOfTheWork) {
    EXPECT_EXIT(
        {
            installOldHandler();
            CvtpServer::setExceptionHandler(note);
            FaultGuard::run(FaultGuard::getFilter(), [] {
                kill(getpid(), SIGSEGV);
                std::this_thread::sleep_for(std::chrono::seconds(60));
            });
        },
        ExitedWithCode(42), "");
}

TEST_F(FaultGuardTest, ASignalThatWasIgnoredStaysIgnored) {
    EXPECT_EXIT(
        {
            signal(SIGBUS, SIG_IGN);
            CvtpServer::setExceptionHandler(note);
            kill(getpid(), SIGBUS);
            kill(getpid(), SIGBUS);
            // The guard has not let go of it.
            EXPECT_FALSE(FaultGuard::run(FaultGuard::getFilter(), [] { raise(SIGBUS); }));
            leave();
        },
        ExitedWithCode(0), "");
}

// The guard alone.

TEST_F(FaultGuardTest, TellsWhetherTheWorkReturned) {
    CvtpServer::setExceptionHandler(note);
    const FaultGuard::Filter filter = FaultGuard::getFilter();
    EXPECT_TRUE(FaultGuard::run(filter, [] {}));
    EXPECT_FALSE(FaultGuard::run(filter, [] { writeToNull(); }));
    EXPECT_TRUE(FaultGuard::run(filter, [] {}));
    EXPECT_FALSE(FaultGuard::run(filter, [] { divideByZero(); }));
}

TEST_F(FaultGuardTest, LetsExceptionsPass) {
    CvtpServer::setExceptionHandler(note);
    EXPECT_THROW(FaultGuard::run(FaultGuard::getFilter(), [] { throw 42; }), int);
    EXPECT_FALSE(FaultGuard::run(FaultGuard::getFilter(), [] { writeToNull(); }));
}

TEST_F(FaultGuardTest, GoesOnAtTheFaultWhenTheFilterSaysSo) {
    CvtpServer::setExceptionHandler(+[](unsigned int, void*) -> int { return -1; });
    // Sent by the thread itself, so that it does not come back.
    std::atomic<bool> wentOn{false};
    EXPECT_TRUE(FaultGuard::run(FaultGuard::getFilter(), [&wentOn] {
        raise(SIGSEGV);
        wentOn = true;
    }));
    EXPECT_TRUE(wentOn);
}

TEST_F(FaultGuardTest, GuardsEachThreadForItself) {
    CvtpServer::setExceptionHandler(note);
    const FaultGuard::Filter filter = FaultGuard::getFilter();
    std::array<std::thread, 8> threads;
    std::atomic<int> abandoned{0};
    for (std::thread& thread : threads) {
        thread = std::thread([&filter, &abandoned] {
            for (int i = 0; i < 100; ++i) {
                abandoned += FaultGuard::run(filter, [] { writeToNull(); }) ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(abandoned, 800);
}

/// The handlers of the four signals, as bytes that can be compared.
std::array<struct sigaction, 4> installedHandlers() {
    std::array<struct sigaction, 4> actions = {};
    const std::array<int, 4> numbers = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        sigaction(numbers[i], nullptr, &actions[i]);
    }
    return actions;
}

/// The C library adds flags of its own.
const int OWN_FLAGS = SA_SIGINFO | SA_ONSTACK;

bool areSame(const std::array<struct sigaction, 4>& left, const std::array<struct sigaction, 4>& right) {
    return std::equal(
        left.begin(), left.end(), right.begin(), [](const struct sigaction& a, const struct sigaction& b) {
            return a.sa_sigaction == b.sa_sigaction && (a.sa_flags & OWN_FLAGS) == (b.sa_flags & OWN_FLAGS);
        });
}

TEST_F(FaultGuardTest, NullGivesTheSignalsBack) {
    const auto before = installedHandlers();
    CvtpServer::setExceptionHandler(note);
    EXPECT_FALSE(areSame(installedHandlers(), before));
    CvtpServer::setExceptionHandler(noteTyped);
    CvtpServer::setExceptionHandler(nullptr);
    EXPECT_TRUE(areSame(installedHandlers(), before));
    CvtpServer::setExceptionHandler(nullptr);
    EXPECT_TRUE(areSame(installedHandlers(), before));
}

TEST_F(FaultGuardTest, LeavesTheSignalsToWhoeverTookThemSince) {
    EXPECT_EXIT(
        {
            giveSignalsToTheSystem();
            CvtpServer::setExceptionHandler(note);
            installOldHandler();
            const auto taken = installedHandlers();
            CvtpServer::setExceptionHandler(nullptr);
            EXPECT_TRUE(areSame(installedHandlers(), taken));
            CvtpServer::setExceptionHandler(note);
            EXPECT_TRUE(areSame(installedHandlers(), taken));
            leave();
        },
        ExitedWithCode(0), "");
}

TEST_F(FaultGuardTest, AnUnusedFilterCostsTheServerNothing) {
    const LogCapture log(3);
    filterCalls = 0;
    CvtpServer::setExceptionHandler(noteTyped);
    RunningServer service("pipe");
    service.start();
    EXPECT_EQ(RawClient("pipe").post("hello"), "hello");
    service.stop();
    EXPECT_EQ(filterCalls, 0);
    EXPECT_EQ(serverLines(log), Lines({"INFO: CvtpServer pipe is stopped."}));
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
