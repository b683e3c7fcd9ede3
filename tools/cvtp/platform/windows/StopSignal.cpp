#include "tools/cvtp/platform/StopSignal.h"

#include <windows.h>

#include <atomic>
#include <string>
#include <system_error>
#include <utility>

namespace Corvane {
namespace Tools {

// The wish comes in one of two ways: as one of the console's control signals (Ctrl+C, Ctrl+Break, the window is
// closed, the user logs off, the system shuts down), or by the event `cvtp-stop-` and the process id in decimal,
// which any program of the same user and session may set. The event is for a program without a console, which gets
// no signals.

namespace {

/// Not members: the system calls the handler without any argument of ours, and there is one object at a time.
HANDLE askedEvent = nullptr;
HANDLE endingEvent = nullptr;
std::atomic<bool> wasSignalled{false};

HANDLE createEvent(const char* name) {
    const HANDLE event = CreateEventA(nullptr, TRUE, FALSE, name);
    const DWORD error = GetLastError();
    if (event == nullptr) {
        throw std::system_error(static_cast<int>(error), std::system_category(), "CreateEvent");
    }
    if (error == ERROR_ALREADY_EXISTS) {
        // Somebody has it open from a process that had this id before, and may have set it then. It was not for us.
        ResetEvent(event);
    }
    return event;
}

/// Runs in a thread that the system makes for it.
BOOL WINAPI onControlSignal(DWORD signal) {
    if (wasSignalled.exchange(true)) {
        // A second one, for a program that hangs while it stops: the system ends the program.
        return FALSE;
    }
    SetEvent(askedEvent);
    if (signal != CTRL_C_EVENT && signal != CTRL_BREAK_EVENT) {
        // Window or session go away: the system ends the program as soon as this returns, or after some seconds.
        // Until then it has time to stop.
        Sleep(INFINITE);
    }
    return TRUE;
}

}  // namespace

StopSignal::StopSignal() {
    wasSignalled = false;
    askedEvent = createEvent(("cvtp-stop-" + std::to_string(GetCurrentProcessId())).c_str());
    endingEvent = createEvent(nullptr);
    // A program that was started by one that ignores Ctrl+C ignores it as well, until it says otherwise.
    SetConsoleCtrlHandler(nullptr, FALSE);
    SetConsoleCtrlHandler(onControlSignal, TRUE);
}

StopSignal::~StopSignal() {
    SetConsoleCtrlHandler(onControlSignal, FALSE);
    SetEvent(endingEvent);
    if (waiter.joinable()) {
        waiter.join();
    }
    // The events stay until the process ends: a thread of the handler may still be using them.
}

void StopSignal::whenAsked(std::function<void()> action) {
    waiter = std::thread([this, wanted = std::move(action)] { wait(wanted); });
}

void StopSignal::wait(const std::function<void()>& action) {
    // The first one counts if both are set.
    const HANDLE events[] = {endingEvent, askedEvent};
    if (WaitForMultipleObjects(2, events, FALSE, INFINITE) == WAIT_OBJECT_0 + 1) {
        action();
    }
}

}  // namespace Tools
}  // namespace Corvane
