// The signals behind faults, one by one: which are taken, where they go on to, and what the guard leaves as it was.

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "cvtp/internal/FaultGuard.h"
#include "tests/server/OwnProcess.h"
#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpServer;
using Internal::Cvtp::FaultGuard;
using ::testing::ExitedWithCode;
using ::testing::KilledBySignal;

std::atomic<int> calls{0};
std::atomic<unsigned int> lastCode{0};
std::atomic<int> lastSignal{0};
std::atomic<int> answerOfFilter{1};
/// What the filter leaves as the error number.
const int FILTERS_ERROR = 4711;
const int WORKS_ERROR = 1234;

void note(unsigned int code, int number) {
    ++calls;
    lastCode = code;
    lastSignal = number;
    errno = FILTERS_ERROR;
}

int filter(unsigned int code, void* info) {
    note(code, static_cast<siginfo_t*>(info)->si_signo);
    return answerOfFilter;
}

struct sigaction actionOf(int number) {
    struct sigaction action = {};
    sigaction(number, nullptr, &action);
    return action;
}

const std::array<int, 4> ALL = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};

/// Gives each test the four signals as they were, and no filter.
class FaultSignalsTest : public ServerTest {
 protected:
    FaultSignalsTest() {
        ::testing::FLAGS_gtest_death_test_style = "threadsafe";
        calls = 0;
        lastCode = 0;
        lastSignal = 0;
        answerOfFilter = 1;
    }
    ~FaultSignalsTest() override { CvtpServer::setExceptionHandler(nullptr); }
};

bool runGuarded(const std::function<void()>& work) {
    return FaultGuard::run(FaultGuard::getFilter(), work);
}

class EachSignalTest : public FaultSignalsTest, public ::testing::WithParamInterface<int> {};

TEST_P(EachSignalTest, IsShownToTheFilter) {
    const int number = GetParam();
    CvtpServer::setExceptionHandler(filter);
    EXPECT_FALSE(runGuarded([number] { raise(number); }));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(lastCode, static_cast<unsigned int>(number));
    EXPECT_EQ(lastSignal, number);
}

TEST_P(EachSignalTest, IsNotBlockedAfterItsFault) {
    const int number = GetParam();
    CvtpServer::setExceptionHandler(filter);
    EXPECT_FALSE(runGuarded([number] { raise(number); }));
    EXPECT_FALSE(runGuarded([number] { raise(number); }));
    EXPECT_EQ(calls, 2);
}

TEST_P(EachSignalTest, IsTakenByAFilterAndGivenBackByNull) {
    const struct sigaction before = actionOf(GetParam());
    CvtpServer::setExceptionHandler(filter);
    const struct sigaction taken = actionOf(GetParam());
    EXPECT_TRUE(taken.sa_sigaction != before.sa_sigaction);
    EXPECT_EQ(taken.sa_flags & (SA_SIGINFO | SA_ONSTACK), SA_SIGINFO | SA_ONSTACK);
    CvtpServer::setExceptionHandler(nullptr);
    const struct sigaction after = actionOf(GetParam());
    EXPECT_TRUE(after.sa_sigaction == before.sa_sigaction);
    EXPECT_EQ(after.sa_flags & SA_SIGINFO, before.sa_flags & SA_SIGINFO);
}

/// The place of a signal in ALL, above the codes that anything else ends with.
int exitCodeOf(int number) {
    return 50 + static_cast<int>(std::find(ALL.begin(), ALL.end(), number) - ALL.begin());
}

template <int Number>
void plainHandler(int number) {
    _exit(number == Number ? exitCodeOf(number) : 99);
}

void installPlainHandlers() {
    signal(SIGSEGV, plainHandler<SIGSEGV>);
    signal(SIGBUS, plainHandler<SIGBUS>);
    signal(SIGFPE, plainHandler<SIGFPE>);
    signal(SIGILL, plainHandler<SIGILL>);
}

TEST_P(EachSignalTest, OfAnotherThreadGoesToThePlainHandlerOfBefore) {
    const int number = GetParam();
    EXPECT_EXIT(
        {
            installPlainHandlers();
            CvtpServer::setExceptionHandler(filter);
            std::thread([number] { raise(number); }).join();
        },
        ExitedWithCode(exitCodeOf(number)), "");
}

void detailedHandler(int number, siginfo_t* info, void* context) {
    const bool isWhole = info->si_signo == number && info->si_pid == getpid() && context != nullptr;
    _exit(isWhole ? exitCodeOf(number) : 99);
}

TEST_P(EachSignalTest, OfAnotherThreadGoesToTheHandlerOfBeforeWithItsDetails) {
    const int number = GetParam();
    EXPECT_EXIT(
        {
            struct sigaction action = {};
            action.sa_sigaction = detailedHandler;
            action.sa_flags = SA_SIGINFO;
            sigaction(number, &action, nullptr);
            CvtpServer::setExceptionHandler(filter);
            std::thread([number] { raise(number); }).join();
        },
        ExitedWithCode(exitCodeOf(number)), "");
}

TEST_P(EachSignalTest, ThatTheFilterPassesOnGoesToThePlainHandlerOfBefore) {
    const int number = GetParam();
    EXPECT_EXIT(
        {
            answerOfFilter = 0;
            installPlainHandlers();
            CvtpServer::setExceptionHandler(filter);
            runGuarded([number] { raise(number); });
        },
        ExitedWithCode(exitCodeOf(number)), "");
}

TEST_P(EachSignalTest, ThatWasSentEndsTheProcessWhereNobodyHandledIt) {
    const int number = GetParam();
    EXPECT_EXIT(
        {
            signal(number, SIG_DFL);
            CvtpServer::setExceptionHandler(filter);
            kill(getpid(), number);
            // Where the signal is lost, the process goes on and ends in order.
            leave();
        },
        KilledBySignal(number), "");
}

std::string nameOf(const ::testing::TestParamInfo<int>& tested) {
    const std::array<const char*, ALL.size()> names = {"SIGSEGV", "SIGBUS", "SIGFPE", "SIGILL"};
    return names[tested.index];
}

INSTANTIATE_TEST_SUITE_P(Signals, EachSignalTest, ::testing::ValuesIn(ALL), nameOf);

/// Touches a page of a file behind the file's end.
__attribute__((no_sanitize("address", "thread", "undefined"))) void touchBehindTheEnd() {
    std::FILE* const file = std::tmpfile();
    void* const page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fileno(file), 0);
    *static_cast<volatile char*>(page) = 1;
}

TEST_F(FaultSignalsTest, AnAddressWithNothingBehindItIsShownToTheFilter) {
    EXPECT_EXIT(
        {
            CvtpServer::setExceptionHandler(filter);
            EXPECT_FALSE(runGuarded(touchBehindTheEnd));
            EXPECT_EQ(calls, 1);
            EXPECT_EQ(lastSignal, SIGBUS);
            leave();
        },
        ExitedWithCode(0), "");
}

volatile std::uintptr_t nowhere = 0;

__attribute__((no_sanitize("address", "thread", "undefined"))) void writeToNull() {
    *reinterpret_cast<volatile int*>(nowhere) = 1;
}

TEST_F(FaultSignalsTest, AFaultCannotBeIgnored) {
    EXPECT_EXIT(
        {
            signal(SIGSEGV, SIG_IGN);
            CvtpServer::setExceptionHandler(filter);
            std::thread(writeToNull).join();
        },
        KilledBySignal(SIGSEGV), "");
}

TEST_F(FaultSignalsTest, AFaultOfTheFilterIsNotShownToTheFilter) {
    EXPECT_EXIT(
        {
            signal(SIGFPE, SIG_DFL);
            CvtpServer::setExceptionHandler([](unsigned int, void*) -> int {
                if (++calls == 1) {
                    raise(SIGFPE);
                }
                return 1;
            });
            runGuarded([] { raise(SIGSEGV); });
            // Where the filter was asked a second time, the process goes on and ends in order.
            leave();
        },
        KilledBySignal(SIGFPE), "");
}

// What the work finds again.

TEST_F(FaultSignalsTest, TheErrorNumberIsThatOfBeforeTheFault) {
    answerOfFilter = -1;
    CvtpServer::setExceptionHandler(filter);
    int found = 0;
    EXPECT_TRUE(runGuarded([&found] {
        errno = WORKS_ERROR;
        raise(SIGSEGV);
        found = errno;
    }));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(found, WORKS_ERROR);
}

TEST_F(FaultSignalsTest, EachFaultOfWorkThatGoesOnIsShownToTheFilter) {
    answerOfFilter = -7;
    CvtpServer::setExceptionHandler(filter);
    EXPECT_TRUE(runGuarded([] {
        raise(SIGSEGV);
        raise(SIGFPE);
        raise(SIGSEGV);
    }));
    EXPECT_EQ(calls, 3);
}

TEST_F(FaultSignalsTest, TheStackOfSignalsIsThatOfBefore) {
    std::thread([] {
        CvtpServer::setExceptionHandler(filter);
        stack_t before = {};
        sigaltstack(nullptr, &before);
        stack_t within = {};
        EXPECT_TRUE(runGuarded([&within] { sigaltstack(nullptr, &within); }));
        EXPECT_EQ(within.ss_flags & SS_DISABLE, 0);
        stack_t after = {};
        sigaltstack(nullptr, &after);
        EXPECT_EQ(after.ss_flags, before.ss_flags);
        EXPECT_EQ(after.ss_sp, before.ss_sp);
    }).join();
}

TEST_F(FaultSignalsTest, AThreadThatHasAStackOfSignalsKeepsIt) {
    std::thread([] {
        CvtpServer::setExceptionHandler(filter);
        stack_t before = {};
        sigaltstack(nullptr, &before);
        const std::size_t size = 128 * 1024;
        const std::unique_ptr<char[]> memory(new char[size]);
        stack_t own = {};
        own.ss_sp = memory.get();
        own.ss_size = size;
        sigaltstack(&own, nullptr);
        stack_t within = {};
        EXPECT_TRUE(runGuarded([&within] { sigaltstack(nullptr, &within); }));
        EXPECT_EQ(within.ss_sp, own.ss_sp);
        stack_t after = {};
        sigaltstack(nullptr, &after);
        EXPECT_EQ(after.ss_sp, own.ss_sp);
        EXPECT_EQ(after.ss_flags & SS_DISABLE, 0);
        sigaltstack(&before, nullptr);
    }).join();
}

TEST_F(FaultSignalsTest, ASignalThatAnotherProcessSendsToTheThreadIsNoFaultOfTheWork) {
    EXPECT_EXIT(
        {
            installPlainHandlers();
            CvtpServer::setExceptionHandler(filter);
            runGuarded([] {
                const long thread = syscall(SYS_gettid);
                const pid_t process = getpid();
                if (fork() == 0) {
                    syscall(SYS_tgkill, process, thread, SIGILL);
                    _exit(0);
                }
                wait(nullptr);
                std::this_thread::sleep_for(std::chrono::seconds(60));
            });
        },
        ExitedWithCode(exitCodeOf(SIGILL)), "");
}

// The kinds of filters.

/// Takes the guard away again, so that the next kind of filter is not mistaken for the one before it.
void expectToBeAsked(int number) {
    calls = 0;
    EXPECT_FALSE(runGuarded([number] { raise(number); }));
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(lastCode, static_cast<unsigned int>(number));
    EXPECT_EQ(lastSignal, number);
    CvtpServer::setExceptionHandler(nullptr);
}

TEST_F(FaultSignalsTest, ALambdaIsAFilter) {
    CvtpServer::setExceptionHandler([](unsigned int code, void* info) -> int {
        note(code, static_cast<siginfo_t*>(info)->si_signo);
        return 1;
    });
    expectToBeAsked(SIGFPE);
}

TEST_F(FaultSignalsTest, ALambdaThatNamesTheTypeOfTheDetailsIsAFilter) {
    CvtpServer::setExceptionHandler([](unsigned int code, siginfo_t* info) -> int {
        note(code, info->si_signo);
        return 1;
    });
    expectToBeAsked(SIGILL);
}

TEST_F(FaultSignalsTest, ALambdaThatTakesTheCodeAsAnIntIsAFilter) {
    CvtpServer::setExceptionHandler([](int code, const siginfo_t* info) -> int {
        note(static_cast<unsigned int>(code), info->si_signo);
        return 1;
    });
    expectToBeAsked(SIGBUS);
}

TEST_F(FaultSignalsTest, TheAnswerOfALambdaCounts) {
    CvtpServer::setExceptionHandler([](unsigned int code, siginfo_t* info) -> int {
        note(code, info->si_signo);
        return -1;
    });
    EXPECT_TRUE(runGuarded([] { raise(SIGSEGV); }));
    EXPECT_EQ(calls, 1);
}

TEST_F(FaultSignalsTest, ANullPointerToATypedFilterIsNoFilter) {
    CvtpServer::setExceptionHandler(filter);
    EXPECT_TRUE(FaultGuard::getFilter());
    CvtpServer::setExceptionHandler(static_cast<int (*)(unsigned int, siginfo_t*)>(nullptr));
    EXPECT_FALSE(FaultGuard::getFilter());
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
