// Faults of handlers. Each test that ends a worker by a fault does so in a process of its own: what the abandoned
// work held stays lost, and several of them end the process.

#include "cvtp/internal/FaultGuard.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
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

/// What a process ends with that the system has ended for a fault.
ExitedWithCode endedBy(DWORD code) {
    return ExitedWithCode(static_cast<int>(code));
}

/// No other code of the process gets to see a fault that nobody handles.
void giveFaultsToTheSystem() {
    ::SetUnhandledExceptionFilter(nullptr);
}

/// Where a null pointer comes from that no compiler sees through.
volatile std::uintptr_t nowhere = 0;

void writeToNull() {
    *reinterpret_cast<volatile int*>(nowhere) = 1;
}

volatile int one = 1;
volatile int zero = 0;
volatile int quotient = 0;

void divideByZero() {
    quotient = one / zero;
}

void runNoInstruction() {
    void* const code = ::VirtualAlloc(nullptr, 4096, MEM_COMMIT | MEM_RESERVE, PAGE_EXECUTE_READWRITE);
    const unsigned char UNDEFINED[] = {0x0F, 0x0B};
    std::memcpy(code, UNDEFINED, sizeof UNDEFINED);
    reinterpret_cast<void (*)()>(code)();
}

int goDeeper(int depth);

/// No compiler sees that the function calls itself, and makes a loop of it.
int (*volatile deeper)(int) = goDeeper;

int goDeeper(int depth) {
    volatile char block[4096];
    block[0] = static_cast<char>(depth);
    return depth < 0 ? 0 : deeper(depth + 1) + block[0];
}

void useUpTheStack() {
    quotient = deeper(0);
}

/// An exception of this code that can be gone on from.
void raise(DWORD code) {
    ::RaiseException(code, 0, 0, nullptr);
}

// Filters.

std::atomic<DWORD> lastCode{0};
std::atomic<DWORD> lastRecord{0};
std::atomic<ULONG_PTR> lastAddress{1};
std::atomic<int> filterCalls{0};
std::atomic<int> filterAnswer{1};
/// What the filter leaves as the system's last error.
const DWORD FILTERS_ERROR = 4711;

int noteTyped(unsigned int code, EXCEPTION_POINTERS* info) {
    ++filterCalls;
    lastCode = code;
    lastRecord = info->ExceptionRecord->ExceptionCode;
    if (info->ExceptionRecord->NumberParameters > 1) {
        lastAddress = info->ExceptionRecord->ExceptionInformation[1];
    }
    ::SetLastError(FILTERS_ERROR);
    return filterAnswer;
}

int note(unsigned int code, void* info) {
    return noteTyped(code, static_cast<EXCEPTION_POINTERS*>(info));
}

int passOn(unsigned int, void*) {
    return 0;
}

bool runGuarded(const std::function<void()>& work) {
    return FaultGuard::run(FaultGuard::getFilter(), work);
}

/// Gives each test no filter, and a count of its own.
class FaultGuardTest : public ServerTest {
 protected:
    FaultGuardTest() {
        filterCalls = 0;
        lastCode = 0;
        lastRecord = 0;
        lastAddress = 1;
        filterAnswer = 1;
    }
    ~FaultGuardTest() override { CvtpServer::setExceptionHandler(nullptr); }
};

void expectAsked(DWORD code) {
    EXPECT_EQ(filterCalls, 1);
    EXPECT_EQ(lastCode, code);
    EXPECT_EQ(lastRecord, code);
}

TEST_F(FaultGuardTest, ANullPointerStopsTheServerInOrder) {
    EXPECT_EXIT(
        {
            CvtpServer::setExceptionHandler(noteTyped);
            expectOrderlyStop(faultInAHandler(writeToNull));
            expectAsked(EXCEPTION_ACCESS_VIOLATION);
            EXPECT_EQ(lastAddress, 0u);
            leave();
        },
        ExitedWithCode(0), "");
}

TEST_F(FaultGuardTest, ADivisionByZeroStopsTheServerInOrder) {
    EXPECT_EXIT(
        {
            CvtpServer::setExceptionHandler(note);
            expectOrderlyStop(faultInAHandler(divideByZero));
            expectAsked(EXCEPTION_INT_DIVIDE_BY_ZERO);
            leave();
        },
        ExitedWithCode(0), "");
}

TEST_F(FaultGuardTest, AnIllegalInstructionStopsTheServerInOrder) {
    EXPECT_EXIT(
        {
            CvtpServer::setExceptionHandler(note);
            expectOrderlyStop(faultInAHandler(runNoInstruction));
            expectAsked(EXCEPTION_ILLEGAL_INSTRUCTION);
            leave();
        },
        ExitedWithCode(0), "");
}

TEST_F(FaultGuardTest, AUsedUpStackStopsTheServerInOrder) {
    EXPECT_EXIT(
        {
            CvtpServer::setExceptionHandler(note);
            expectOrderlyStop(faultInAHandler(useUpTheStack));
            expectAsked(EXCEPTION_STACK_OVERFLOW);
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
            giveFaultsToTheSystem();
            faultInAHandler(writeToNull);
        },
        endedBy(EXCEPTION_ACCESS_VIOLATION), "");
}

TEST_F(FaultGuardTest, AFilterThatPassesOnEndsTheProcessAsItAlwaysDid) {
    EXPECT_EXIT(
        {
            giveFaultsToTheSystem();
            CvtpServer::setExceptionHandler(passOn);
            faultInAHandler(writeToNull);
        },
        endedBy(EXCEPTION_ACCESS_VIOLATION), "");
}

TEST_F(FaultGuardTest, AFilterThatWasTakenAwayIsNotAsked) {
    EXPECT_EXIT(
        {
            giveFaultsToTheSystem();
            CvtpServer::setExceptionHandler(note);
            CvtpServer::setExceptionHandler(nullptr);
            faultInAHandler(divideByZero);
        },
        endedBy(EXCEPTION_INT_DIVIDE_BY_ZERO), "");
}

TEST_F(FaultGuardTest, AFaultOfTheFilterItselfEndsTheProcess) {
    EXPECT_EXIT(
        {
            giveFaultsToTheSystem();
            CvtpServer::setExceptionHandler([](unsigned int, EXCEPTION_POINTERS*) -> int {
                divideByZero();
                return 1;
            });
            faultInAHandler(writeToNull);
        },
        endedBy(EXCEPTION_INT_DIVIDE_BY_ZERO), "");
}

// Faults of threads that are no workers.

const int HANDLED_ELSEWHERE = 42;

/// How often the filter is to be asked before a fault gets to the old handler.
std::atomic<int> callsBefore{0};

/// What an application has for faults that nobody else handles.
LONG WINAPI oldHandler(EXCEPTION_POINTERS*) {
    std::_Exit(filterCalls == callsBefore ? HANDLED_ELSEWHERE : 1);
}

void installOldHandler() {
    ::SetUnhandledExceptionFilter(oldHandler);
}

TEST_F(FaultGuardTest, AnotherThreadsFaultGoesWhereItWentBefore) {
    EXPECT_EXIT(
        {
            installOldHandler();
            CvtpServer::setExceptionHandler(note);
            std::thread(writeToNull).join();
        },
        ExitedWithCode(HANDLED_ELSEWHERE), "");
}

TEST_F(FaultGuardTest, AnotherThreadsFaultEndsTheProcessWhereNobodyHandledIt) {
    EXPECT_EXIT(
        {
            giveFaultsToTheSystem();
            CvtpServer::setExceptionHandler(note);
            std::thread(divideByZero).join();
        },
        endedBy(EXCEPTION_INT_DIVIDE_BY_ZERO), "");
}

TEST_F(FaultGuardTest, AFaultBehindGuardedWorkIsNotGuarded) {
    EXPECT_EXIT(
        {
            installOldHandler();
            CvtpServer::setExceptionHandler(note);
            std::thread([] {
                EXPECT_TRUE(runGuarded([] {}));
                writeToNull();
            }).join();
        },
        ExitedWithCode(HANDLED_ELSEWHERE), "");
}

TEST_F(FaultGuardTest, AFaultBehindAbandonedWorkIsNotGuarded) {
    EXPECT_EXIT(
        {
            installOldHandler();
            CvtpServer::setExceptionHandler(note);
            std::thread([] {
                EXPECT_FALSE(runGuarded(writeToNull));
                callsBefore = 1;
                writeToNull();
            }).join();
        },
        ExitedWithCode(HANDLED_ELSEWHERE), "");
}

/// Runs guarded work far down the stack, where nothing of a later fault writes over what it has left behind.
void runGuardedFarDown(const std::function<void()>& work) {
    volatile char space[65536];
    space[0] = 1;
    runGuarded(work);
    space[1] = space[0];
}

/// No compiler puts it into the frame of its caller.
void (*volatile farDown)(const std::function<void()>&) = runGuardedFarDown;

TEST_F(FaultGuardTest, AFaultBehindWorkThatThrewIsNotGuarded) {
    EXPECT_EXIT(
        {
            installOldHandler();
            CvtpServer::setExceptionHandler(note);
            std::thread([] {
                EXPECT_THROW(farDown([] { throw 42; }), int);
                writeToNull();
            }).join();
        },
        ExitedWithCode(HANDLED_ELSEWHERE), "");
}

// The guard alone.

TEST_F(FaultGuardTest, TellsWhetherTheWorkReturned) {
    CvtpServer::setExceptionHandler(note);
    EXPECT_TRUE(runGuarded([] {}));
    EXPECT_FALSE(runGuarded([] { writeToNull(); }));
    EXPECT_TRUE(runGuarded([] {}));
    EXPECT_FALSE(runGuarded([] { divideByZero(); }));
    EXPECT_EQ(filterCalls, 2);
}

TEST_F(FaultGuardTest, AStackMayBeUsedUpMoreThanOnce) {
    CvtpServer::setExceptionHandler(note);
    std::thread([] {
        for (int i = 0; i < 3; ++i) {
            EXPECT_FALSE(runGuarded(useUpTheStack));
            EXPECT_EQ(lastCode, EXCEPTION_STACK_OVERFLOW);
        }
    }).join();
    EXPECT_EQ(filterCalls, 3);
}

TEST_F(FaultGuardTest, LetsExceptionsPass) {
    CvtpServer::setExceptionHandler(note);
    EXPECT_THROW(runGuarded([] { throw 42; }), int);
    EXPECT_FALSE(runGuarded([] { writeToNull(); }));
    EXPECT_EQ(filterCalls, 1);
}

TEST_F(FaultGuardTest, ExceptionsWithinTheWorkAreItsOwn) {
    CvtpServer::setExceptionHandler(note);
    int caught = 0;
    EXPECT_TRUE(runGuarded([&caught] {
        try {
            throw 42;
        } catch (int value) {
            caught = value;
        }
    }));
    EXPECT_EQ(caught, 42);
    EXPECT_EQ(filterCalls, 0);
}

TEST_F(FaultGuardTest, GoesOnAtTheFaultWhenTheFilterSaysSo) {
    filterAnswer = -1;
    CvtpServer::setExceptionHandler(note);
    bool wentOn = false;
    EXPECT_TRUE(runGuarded([&wentOn] {
        raise(EXCEPTION_ACCESS_VIOLATION);
        wentOn = true;
    }));
    EXPECT_TRUE(wentOn);
    EXPECT_EQ(filterCalls, 1);
}

TEST_F(FaultGuardTest, EachFaultOfWorkThatGoesOnIsShownToTheFilter) {
    filterAnswer = -7;
    CvtpServer::setExceptionHandler(note);
    EXPECT_TRUE(runGuarded([] {
        raise(EXCEPTION_ACCESS_VIOLATION);
        raise(EXCEPTION_INT_DIVIDE_BY_ZERO);
        raise(EXCEPTION_ACCESS_VIOLATION);
    }));
    EXPECT_EQ(filterCalls, 3);
}

TEST_F(FaultGuardTest, TheLastErrorIsThatOfBeforeTheFault) {
    filterAnswer = -1;
    CvtpServer::setExceptionHandler(note);
    DWORD found = 0;
    EXPECT_TRUE(runGuarded([&found] {
        ::SetLastError(1234);
        raise(EXCEPTION_ACCESS_VIOLATION);
        found = ::GetLastError();
    }));
    EXPECT_EQ(filterCalls, 1);
    EXPECT_EQ(found, 1234u);
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

// Taking the guard away.

TEST_F(FaultGuardTest, NullTakesTheGuardFromWorkUnderWay) {
    EXPECT_EXIT(
        {
            installOldHandler();
            CvtpServer::setExceptionHandler(note);
            std::thread([] {
                // Work that was abandoned before must not keep the guard in place.
                EXPECT_FALSE(runGuarded(writeToNull));
                EXPECT_FALSE(runGuarded(writeToNull));
                callsBefore = 2;
                runGuarded([] {
                    CvtpServer::setExceptionHandler(nullptr);
                    writeToNull();
                });
                std::_Exit(1);
            }).join();
        },
        ExitedWithCode(HANDLED_ELSEWHERE), "");
}

TEST_F(FaultGuardTest, AFilterIsAskedOnceHoweverOftenOneWasSet) {
    for (int i = 0; i < 3; ++i) {
        CvtpServer::setExceptionHandler(note);
        EXPECT_FALSE(runGuarded(writeToNull));
        CvtpServer::setExceptionHandler(noteTyped);
        CvtpServer::setExceptionHandler(nullptr);
        CvtpServer::setExceptionHandler(nullptr);
    }
    CvtpServer::setExceptionHandler(note);
    filterCalls = 0;
    filterAnswer = -1;
    EXPECT_TRUE(runGuarded([] { raise(EXCEPTION_ACCESS_VIOLATION); }));
    EXPECT_EQ(filterCalls, 1);
}

// What faults are, and where they go on to.

/// Not all: the C runtime makes threads go on behind some of the others, if nobody else handles them.
const std::array<DWORD, 8> FAULTS = {EXCEPTION_ACCESS_VIOLATION,      EXCEPTION_IN_PAGE_ERROR,
                                     EXCEPTION_ILLEGAL_INSTRUCTION,   EXCEPTION_PRIV_INSTRUCTION,
                                     EXCEPTION_INT_DIVIDE_BY_ZERO,    EXCEPTION_FLT_DIVIDE_BY_ZERO,
                                     EXCEPTION_FLT_INVALID_OPERATION, EXCEPTION_NONCONTINUABLE_EXCEPTION};

class EachFaultTest : public FaultGuardTest, public ::testing::WithParamInterface<DWORD> {};

TEST_P(EachFaultTest, IsShownToTheFilter) {
    const DWORD code = GetParam();
    CvtpServer::setExceptionHandler(note);
    EXPECT_FALSE(runGuarded([code] { raise(code); }));
    expectAsked(code);
}

TEST_P(EachFaultTest, OfAnotherThreadGoesWhereItWentBefore) {
    const DWORD code = GetParam();
    EXPECT_EXIT(
        {
            installOldHandler();
            CvtpServer::setExceptionHandler(note);
            std::thread([code] { raise(code); }).join();
        },
        ExitedWithCode(HANDLED_ELSEWHERE), "");
}

TEST_P(EachFaultTest, ThatTheFilterPassesOnGoesWhereItWentBefore) {
    const DWORD code = GetParam();
    EXPECT_EXIT(
        {
            installOldHandler();
            CvtpServer::setExceptionHandler(passOn);
            std::thread([code] { runGuarded([code] { raise(code); }); }).join();
        },
        ExitedWithCode(HANDLED_ELSEWHERE), "");
}

std::string hexadecimal(DWORD code) {
    std::ostringstream text;
    text << std::hex << code;
    return text.str();
}

INSTANTIATE_TEST_SUITE_P(Codes, EachFaultTest, ::testing::ValuesIn(FAULTS),
                         [](const ::testing::TestParamInfo<DWORD>& code) { return hexadecimal(code.param); });

/// What an application may raise for its own purposes, and handle somewhere: a success, a message, a warning, and
/// an error with the bit of applications.
const std::array<DWORD, 4> NO_FAULTS = {0x00000042, 0x40000042, 0x80000042, 0xE0000042};

std::atomic<int> handledByApplication{0};

/// Handles them in their order.
LONG CALLBACK handleOwnCodes(EXCEPTION_POINTERS* info) {
    if (info->ExceptionRecord->ExceptionCode != NO_FAULTS.at(static_cast<std::size_t>(handledByApplication))) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    ++handledByApplication;
    return EXCEPTION_CONTINUE_EXECUTION;
}

TEST_F(FaultGuardTest, AnExceptionThatIsNoFaultGoesWhereItWentBefore) {
    // The last one to be asked.
    void* const handler = ::AddVectoredExceptionHandler(0, handleOwnCodes);
    handledByApplication = 0;
    CvtpServer::setExceptionHandler(note);
    EXPECT_TRUE(runGuarded([] {
        for (const DWORD code : NO_FAULTS) {
            raise(code);
        }
    }));
    EXPECT_EQ(handledByApplication, 4);
    EXPECT_EQ(filterCalls, 0);
    ::RemoveVectoredExceptionHandler(handler);
}

// The kinds of filters.

/// Takes the guard away again, so that the next kind of filter is not mistaken for the one before it.
void expectToBeAskedFor(DWORD code) {
    EXPECT_FALSE(runGuarded([code] { raise(code); }));
    expectAsked(code);
    CvtpServer::setExceptionHandler(nullptr);
}

TEST_F(FaultGuardTest, ALambdaIsAFilter) {
    CvtpServer::setExceptionHandler([](unsigned int code, void* info) -> int { return note(code, info); });
    expectToBeAskedFor(EXCEPTION_INT_DIVIDE_BY_ZERO);
}

TEST_F(FaultGuardTest, ALambdaThatThrowsNothingIsAFilter) {
    CvtpServer::setExceptionHandler([](unsigned int code, void* info) noexcept -> int { return note(code, info); });
    expectToBeAskedFor(EXCEPTION_ACCESS_VIOLATION);
}

TEST_F(FaultGuardTest, ALambdaThatNamesTheTypeOfTheDetailsIsAFilter) {
    CvtpServer::setExceptionHandler(
        [](unsigned int code, EXCEPTION_POINTERS* info) -> int { return noteTyped(code, info); });
    expectToBeAskedFor(EXCEPTION_ILLEGAL_INSTRUCTION);
}

TEST_F(FaultGuardTest, ALambdaThatTakesTheSystemsTypeOfCodesIsAFilter) {
    CvtpServer::setExceptionHandler(
        [](DWORD code, struct _EXCEPTION_POINTERS* info) -> int { return noteTyped(code, info); });
    expectToBeAskedFor(EXCEPTION_ACCESS_VIOLATION);
}

TEST_F(FaultGuardTest, ANullPointerToATypedFilterIsNoFilter) {
    CvtpServer::setExceptionHandler(noteTyped);
    EXPECT_TRUE(FaultGuard::getFilter());
    CvtpServer::setExceptionHandler(static_cast<int (*)(unsigned int, EXCEPTION_POINTERS*)>(nullptr));
    EXPECT_FALSE(FaultGuard::getFilter());
}

TEST_F(FaultGuardTest, AnUnusedFilterCostsTheServerNothing) {
    const LogCapture log(3);
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
