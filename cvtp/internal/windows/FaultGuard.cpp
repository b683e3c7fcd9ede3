#include "cvtp/internal/FaultGuard.h"

#include <windows.h>

#include <malloc.h>
#include <setjmp.h>

#include <atomic>
#include <mutex>

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

std::mutex filterLock;
/// Guarded by filterLock.
FaultGuard::Filter processFilter;

/// Shows a fault to the filter. Its answers are those of the system's own exception filters: above zero to leave
/// the work, zero to look further, below zero to go on at the fault.
int ask(const FaultGuard::Filter& filter, EXCEPTION_POINTERS* info) {
    return filter.invoke(filter.function, info->ExceptionRecord->ExceptionCode, info);
}

/// Keeps a piece of the stack of this thread for the filter, which would have nothing of one that was used up.
void reserveStack() {
    ULONG size = 64 * 1024;
    SetThreadStackGuarantee(&size);
}

/// Makes a stack that was used up usable once more.
void recoverStack(DWORD code) {
    if (code == EXCEPTION_STACK_OVERFLOW) {
        _resetstkoflw();
    }
}

}  // namespace

FaultGuard::Filter FaultGuard::getFilter() {
    const std::lock_guard<std::mutex> lock(filterLock);
    return processFilter;
}

// With a compiler that knows __try, the guard is just that. The others have no frame-based handlers, so a handler
// that sees the faults of all threads takes those of guarded work, and jumps back into the guard. It sees them
// before any code within the work does that would have handled them.
#ifdef _MSC_VER

namespace {

/// Whether there is a filter. Work under way asks here, since it may fault while somebody holds filterLock.
std::atomic<bool> isFilterSet{false};

/// What the compiler raises for a throw.
const DWORD CPP_EXCEPTION = 0xE06D7363;

/// Work under way. Without a constructor that does anything, and without a destructor, as it lies beside __try.
struct Guarded {
    DWORD code;
    bool isAsking;
};

/// Answers for __except. Whatever code within the work handles has been handled before this is asked, so that any
/// exception of the system that gets here would end the process; those of C++ go on to whoever called the guard.
int filterFault(const FaultGuard::Filter& filter, EXCEPTION_POINTERS* info, Guarded& guarded) {
    const DWORD code = info->ExceptionRecord->ExceptionCode;
    // A fault of the filter itself gets here as well, and must not come back to it.
    if (code == CPP_EXCEPTION || guarded.isAsking || !isFilterSet) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    // Whoever goes on, or handles the exception elsewhere, may want to know it.
    const DWORD lastError = GetLastError();
    guarded.code = code;
    guarded.isAsking = true;
    const int answer = ask(filter, info);
    guarded.isAsking = false;
    if (answer > FaultGuard::PASS_ON) {
        return EXCEPTION_EXECUTE_HANDLER;
    }
    SetLastError(lastError);
    // Any other number below zero is not understood everywhere.
    return answer == FaultGuard::PASS_ON ? EXCEPTION_CONTINUE_SEARCH : EXCEPTION_CONTINUE_EXECUTION;
}

}  // namespace

void FaultGuard::setFilter(const Filter& filter) {
    const std::lock_guard<std::mutex> lock(filterLock);
    processFilter = filter;
    isFilterSet = static_cast<bool>(filter);
}

bool FaultGuard::run(const Filter& filter, const std::function<void()>& work) {
    reserveStack();
    // Nothing here may have a destructor: the compiler does not allow it beside __try.
    Guarded guarded = {0, false};
    __try {
        work();
    } __except (filterFault(filter, GetExceptionInformation(), guarded)) {
        recoverStack(guarded.code);
        return false;
    }
    return true;
}

#else

namespace {

/// A fault of processor or system. C++ exceptions, messages to debuggers and whatever an application raises are
/// none, and must get to those who want to catch them: the handler below is asked before they are.
bool isFault(DWORD code) {
    const DWORD SEVERITY_AND_CUSTOMER_BITS = 0xE0000000;
    const DWORD SYSTEM_ERROR = 0xC0000000;
    return (code & SEVERITY_AND_CUSTOMER_BITS) == SYSTEM_ERROR;
}

/// Guarded work under way in a thread: where to go on after it was abandoned.
struct Frame {
    FaultGuard::Filter filter;
    jmp_buf resume;
    DWORD code;
};

/// Guarded by filterLock. Null while no filter is set.
void* vectoredHandler = nullptr;
/// How often the handler was left by a jump. The system counts who is inside it, and takes one who has jumped for
/// somebody who still is.
std::atomic<unsigned long> jumps{0};

/// The place where each thread keeps its frame. Not thread_local, for which this compiler allocates memory when a
/// thread first asks, and the thread that asks may be one that has just faulted inside the allocator.
DWORD frameSlot() {
    static const DWORD slot = TlsAlloc();
    return slot;
}

/// Makes a frame the current one for the length of a block, however it is left.
class CurrentFrame {
 public:
    explicit CurrentFrame(Frame& frame) { TlsSetValue(frameSlot(), &frame); }
    ~CurrentFrame() { TlsSetValue(frameSlot(), nullptr); }
    CurrentFrame(const CurrentFrame&) = delete;
    CurrentFrame& operator=(const CurrentFrame&) = delete;
};

LONG CALLBACK onException(EXCEPTION_POINTERS* info) {
    if (!isFault(info->ExceptionRecord->ExceptionCode)) {
        return EXCEPTION_CONTINUE_SEARCH;
    }
    // Asking for the frame changes this, and whoever handles the exception may want to know it.
    const DWORD lastError = GetLastError();
    Frame* const frame = static_cast<Frame*>(TlsGetValue(frameSlot()));
    if (frame == nullptr) {
        SetLastError(lastError);
        return EXCEPTION_CONTINUE_SEARCH;
    }
    // A fault of the filter itself must not come back to it.
    TlsSetValue(frameSlot(), nullptr);
    SetLastError(lastError);
    const int answer = ask(frame->filter, info);
    if (answer > FaultGuard::PASS_ON) {
        frame->code = info->ExceptionRecord->ExceptionCode;
        ++jumps;
        longjmp(frame->resume, 1);
    }
    TlsSetValue(frameSlot(), frame);
    SetLastError(lastError);
    return answer == FaultGuard::PASS_ON ? EXCEPTION_CONTINUE_SEARCH : EXCEPTION_CONTINUE_EXECUTION;
}

/// Removes the handler as often as the system wants that to be done before it lets go of it.
void removeHandler() {
    unsigned long left = jumps.exchange(0) + 1;
    while (left > 0 && RemoveVectoredExceptionHandler(vectoredHandler) != 0) {
        --left;
    }
    vectoredHandler = nullptr;
}

}  // namespace

void FaultGuard::setFilter(const Filter& filter) {
    const std::lock_guard<std::mutex> lock(filterLock);
    processFilter = filter;
    if (filter && vectoredHandler == nullptr) {
        // Now, and not when a thread faults.
        frameSlot();
        vectoredHandler = AddVectoredExceptionHandler(1, onException);
    } else if (!filter && vectoredHandler != nullptr) {
        removeHandler();
    }
}

bool FaultGuard::run(const Filter& filter, const std::function<void()>& work) {
    reserveStack();
    Frame frame;
    frame.filter = filter;
    frame.code = 0;
    // With null as its second argument, longjmp() restores the registers and does nothing else. Otherwise it would
    // unwind the stack, over the frames of the system that lie between the handler and the fault.
    if (_setjmp(frame.resume, nullptr) != 0) {
        recoverStack(frame.code);
        return false;
    }
    const CurrentFrame current(frame);
    work();
    return true;
}

#endif

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
