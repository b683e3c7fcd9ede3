#pragma once

#include <gtest/gtest.h>

#include <string>

// Which tests a system cannot hold is the system's own affair.
#ifdef _WIN32
#include "tests/support_code/windows/Skips.h"
#else
#include "tests/support_code/posix/Skips.h"
#endif

namespace Corvane {
namespace Testing {

/// Why the test that runs cannot hold on this system; null when it can.
inline const char* reasonToSkip() {
    const auto* const test = ::testing::UnitTest::GetInstance()->current_test_info();
    return reasonToSkip(std::string(test->test_suite_name()) + "." + test->name());
}

}  // namespace Testing
}  // namespace Corvane
