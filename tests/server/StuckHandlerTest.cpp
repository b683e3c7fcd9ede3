// A handler that does not come back until the server is gone. It has a program of its own: the worker that was
// given up is never deleted and its thread never joined, on purpose.

#include <memory>
#include <optional>

#include "io/Exceptions.h"
#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpServer;
using Cvtp::CvtpServerRequest;
using Cvtp::CvtpServerResponse;
using ::testing::ElementsAre;

using StuckHandlerTest = ServerTest;

/// Two connections: one whose handler is stuck, one that waits for a request.
struct StuckServer {
    StuckServer() {
        handler.onReady = [this] {
            ready.open();
            return true;
        };
        handler.onPost = [this](CvtpServerRequest& request, CvtpServerResponse& response) {
            if (request.getResource() == "/stuck") {
                beStuck(request, response);
            } else {
                FunctionHandler::echo(request, response);
            }
        };
        server->setHandler(&handler);
        thread = std::thread([this] { server->run(); });
        ready.wait();
        stuckClient.emplace("pipe");
        stuckClient->send("POST /stuck CVTP/1.0\r\nContent-Length: 5\r\n\r\nhel");
        quietClient.emplace("pipe");
        EXPECT_EQ(quietClient->post("hello"), "hello");
        entered.wait();
        while (server->totalRequestProcessors() < 2) {
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

    Gate ready;
    Gate entered;
    Gate released;
    FunctionHandler handler;
    std::unique_ptr<CvtpServer> server = std::make_unique<CvtpServer>("pipe", 1);
    std::thread thread;
    std::optional<RawClient> stuckClient;
    std::optional<RawClient> quietClient;
};

TEST_F(StuckHandlerTest, IsNamedGivenUpAndOutlivesItsServer) {
    const LogCapture log;
    // Never destroyed: the handler uses it until the process ends.
    StuckServer& tested = *new StuckServer;
    const StopWatch watch;
    tested.server->shutdown();
    tested.thread.join();
    // Ten seconds until the pool gives the thread up, and 40 steps of 100 ms.
    const long long elapsed = watch.elapsed();
    EXPECT_GE(elapsed, 13900);
    EXPECT_LT(elapsed, 19000);
    Lines lines = linesOfThread(log, "DEBUG: CvTpServer is running on Pipe pipe");
    lines.erase(lines.begin(), std::find(lines.begin(), lines.end(), "DEBUG: Stopping worker CvtpServer/Worker-1"));
    EXPECT_THAT(lines, ElementsAre("DEBUG: Stopping worker CvtpServer/Worker-1",
                                   "DEBUG: Stopping worker CvtpServer/Worker-2",
                                   "INFO: ************* Worker thread not deleted: Worker-1",
                                   "DEBUG: Deleting worker CvtpServer/Worker-2",
                                   summaryLine("pipe", 2, 0, 2, 0, 0, 2), "INFO: CvtpServer pipe is stopped."));
    EXPECT_EQ(tested.server->totalRequestProcessors(), 0);
    tested.server.reset();
    // The handler comes back into a world without its server.
    tested.released.open();
    EXPECT_THAT(
        workerLines(log),
        ElementsAre("DEBUG: Begin processing of POST request (CvtpServer/Worker-1).",
                    "ERROR: InterruptedException - CvtpServer/Worker-1. Pipe write aborted.", closingLine()));
    // Its thread ends a moment after its last line.
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
