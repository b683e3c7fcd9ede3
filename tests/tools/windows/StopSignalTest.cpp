#include "tools/cvtp/platform/StopSignal.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <future>
#include <string>

namespace Corvane {
namespace Tools {
namespace {

/// The event that another program has, of whatever process had this one's id when it opened it.
class StopSignalTest : public ::testing::Test {
 protected:
    StopSignalTest()
        : event(::CreateEventA(nullptr, TRUE, TRUE,
                               ("cvtp-stop-" + std::to_string(::GetCurrentProcessId())).c_str())) {
        EXPECT_NE(event, nullptr);
    }
    ~StopSignalTest() override { ::CloseHandle(event); }

    const HANDLE event;
};

TEST_F(StopSignalTest, AnEventThatWasSetBeforehandStopsNothing) {
    const StopSignal signal;
    EXPECT_EQ(::WaitForSingleObject(event, 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST_F(StopSignalTest, TheEventCallsTheAction) {
    std::promise<void> called;
    StopSignal signal;
    signal.whenAsked([&called] { called.set_value(); });
    ::SetEvent(event);
    called.get_future().wait();
}

}  // namespace
}  // namespace Tools
}  // namespace Corvane
