// The helper of the other tests: it must not let a failure of run() go by.

#include "tests/support_code/RunningServer.h"

#include <Poco/Exception.h>
#include <gtest/gtest-spi.h>

#include <stdexcept>

#include "io/Exceptions.h"
#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using RunningServerTest = ServerTest;

TEST_F(RunningServerTest, WhatComesOutOfRunFailsTheTestThatStopsIt) {
    RunningServer service("pipe");
    service.handler.onReady = []() -> bool { throw std::runtime_error("no disk"); };
    service.start();
    EXPECT_NONFATAL_FAILURE(service.stop(), "run() ended with: no disk");
    // Told once.
    service.stop();
}

TEST_F(RunningServerTest, WhateverItsClassIs) {
    RunningServer illegal("illegal");
    illegal.handler.onReady = []() -> bool { throw Io::IllegalStateException("not now"); };
    illegal.start();
    EXPECT_NONFATAL_FAILURE(illegal.stop(), "run() ended with: not now");

    RunningServer system("system");
    system.handler.onReady = []() -> bool { throw Poco::SystemException("no thread"); };
    system.start();
    EXPECT_NONFATAL_FAILURE(system.stop(), "run() ended with: System exception: no thread");

    RunningServer number("number");
    number.handler.onReady = []() -> bool { throw 42; };
    number.start();
    EXPECT_NONFATAL_FAILURE(number.stop(), "run() ended with an exception of an unknown class");
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
