#pragma once

#include <gmock/gmock.h>

#include <string>
#include <thread>

#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

/// What a guarded server leaves behind after a handler has faulted.
struct FaultOutcome {
    bool stopped = false;
    std::string answer;
    Lines lines;
    /// From the fault to the return of run().
    long long stopMs = 0;
};

/// Runs a guarded server whose handler calls `fault` for a NOTIFY, until it has stopped.
inline FaultOutcome faultInAHandler(void (*fault)()) {
    FaultOutcome outcome;
    const LogCapture log;
    {
        RunningServer service("pipe");
        service.handler.onNotify = [fault](Cvtp::CvtpServerRequest&) { fault(); };
        service.start();
        RawClient client("pipe");
        // Faults when the server is back in accept.
        while (log.count("DEBUG: Calling ConnectNamedPipe.") < 2) {
            std::this_thread::yield();
        }
        const StopWatch watch;
        client.send(RawClient::notifyBytes("hello"));
        outcome.answer = client.receiveToEnd();
        service.join();
        outcome.stopMs = watch.elapsed();
        outcome.stopped = !service.server.isRunning();
    }
    outcome.lines = serverLines(log);
    return outcome;
}

inline void expectOrderlyStop(const FaultOutcome& outcome) {
    EXPECT_TRUE(outcome.stopped);
    EXPECT_EQ(outcome.answer, "");
    EXPECT_THAT(outcome.lines,
                ::testing::ElementsAre(
                    "DEBUG: CvTpServer is using Pipe pipe", "DEBUG: CvTpServer is running on Pipe pipe",
                    "DEBUG: ServerCvPipe pipe has accepted a CvPipe connection.",
                    "DEBUG: Activated worker thread pipe/Worker-1 (1).",
                    "DEBUG: Begin processing of NOTIFY request (CvtpServer/Worker-1).",
                    "DEBUG: CvtpServer pipe was interrupted. The CvtpServer will shutdown. accept aborted",
                    "DEBUG: Stopping worker CvtpServer/Worker-1",
                    // It stays busy for good, so it is waited for and given up.
                    "INFO: ************* Worker thread not deleted: Worker-1",
                    summaryLine("pipe", 0, 1, 1, 0, 0, 1), "INFO: CvtpServer pipe is stopped."));
    // 40 steps of 100 ms, each of which may end a moment early. Its thread is free, so the pool waits for nothing.
    EXPECT_GT(outcome.stopMs, 3950);
    EXPECT_LT(outcome.stopMs, 8000);
}

}  // namespace Testing
}  // namespace Corvane
