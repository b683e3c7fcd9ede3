// A handler that does not come back until the server is gone. In a process of its own: the worker that was given up
// is never deleted, on purpose.

#include <memory>
#include <optional>

#include "io/Exceptions.h"
#include "tests/server/OwnProcess.h"
#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpServer;
using Cvtp::CvtpServerRequest;
using Cvtp::CvtpServerResponse;
using ::testing::ElementsAre;
using ::testing::ExitedWithCode;

class StuckHandlerTest : public ServerTest {
 protected:
    StuckHandlerTest() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

/// Two connections: one whose handler is stuck, one that waits for a request.
struct StuckServer {
    StuckServer() {
        service->handler.onPost = [this](CvtpServerRequest& request, CvtpServerResponse& response) {
            if (request.getResource() == "/stuck") {
                beStuck(request, response);
            } else {
                FunctionHandler::echo(request, response);
            }
        };
        service->start();
        stuckClient.emplace("pipe");
        stuckClient->send("POST /stuck CVTP/1.0\r\nContent-Length: 5\r\n\r\nhel");
        quietClient.emplace("pipe");
        EXPECT_EQ(quietClient->post("hello"), "hello");
        entered.wait();
        while (service->server.totalRequestProcessors() < 2) {
            std::this_thread::yield();
        }
    }

    void beStuck(CvtpServerRequest& request, CvtpServerResponse& response) {
        entered.open();
        released.wait();
        // Everything that a handler may still do then. The pipe is closed, so it fails, but in order.
        EXPECT_EQ(request.getStartLine(), "POST /stuck CVTP/1.0");
        EXPECT_THROW(FunctionHandler::bodyText(request), Io::CvPipeException);
        response.setStatusCode(200);
        response.setBody("too late", 8);
        response.send();
    }

    Gate entered;
    Gate released;
    std::unique_ptr<RunningServer> service = std::make_unique<RunningServer>("pipe");
    std::optional<RawClient> stuckClient;
    std::optional<RawClient> quietClient;
};

void destroyAStuckServer() {
    const LogCapture log;
    // Never destroyed: the handler uses it until the process ends.
    StuckServer& tested = *new StuckServer;
    const StopWatch watch;
    tested.service->stop();
    // Ten seconds until the pool gives the thread up, and 40 steps of 100 ms.
    EXPECT_GE(watch.elapsed(), 13900);
    Lines lines = linesOfThread(log, "DEBUG: CvTpServer is running on Pipe pipe");
    lines.erase(lines.begin(), std::find(lines.begin(), lines.end(), "DEBUG: Stopping worker CvtpServer/Worker-1"));
    EXPECT_THAT(lines, ElementsAre("DEBUG: Stopping worker CvtpServer/Worker-1",
                                   "DEBUG: Stopping worker CvtpServer/Worker-2",
                                   "INFO: ************* Worker thread not deleted: Worker-1",
                                   "DEBUG: Deleting worker CvtpServer/Worker-2",
                                   summaryLine("pipe", 2, 0, 2, 0, 0, 2), "INFO: CvtpServer pipe is stopped."));
    EXPECT_EQ(tested.service->server.totalRequestProcessors(), 0);
    tested.service.reset();
    // The handler comes back into a world without its server.
    tested.released.open();
    EXPECT_THAT(
        workerLines(log),
        ElementsAre("DEBUG: Begin processing of POST request (CvtpServer/Worker-1).",
                    "ERROR: InterruptedException - CvtpServer/Worker-1. Pipe write aborted.", closingLine()));
    // Its thread ends a moment after its last line.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
}

TEST_F(StuckHandlerTest, IsNamedGivenUpAndOutlivesItsServer) {
    EXPECT_EXIT(
        {
            destroyAStuckServer();
            leave();
        },
        ExitedWithCode(0), "");
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
