#include <cstddef>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/client/ClientTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpClient;
using Cvtp::CvtpResponse;
using Cvtp::NotifyRequest;
using Cvtp::PostRequest;

/// The body of a request by length, as it was read.
std::string bodyIn(const std::string& request) {
    return request.substr(request.find("\r\n\r\n") + 4);
}

void echo(ScriptedConnection& connection) {
    for (std::string request = connection.readRequest(); !request.empty(); request = connection.readRequest()) {
        connection.write(answerWith(bodyIn(request)));
    }
}

/// Closes after each third answer, so that idle pipes die all the time.
void echoThreeTimes(ScriptedConnection& connection) {
    for (int i = 0; i < 3; ++i) {
        const std::string request = connection.readRequest();
        if (!request.empty()) {
            connection.write(answerWith(bodyIn(request)));
        }
    }
}

void postManyTimes(CvtpClient& client, int thread, int count) {
    for (int i = 0; i < count; ++i) {
        const std::string body = "body " + std::to_string(thread) + "/" + std::to_string(i);
        EXPECT_EQ(post(client, "orders", body), body);
    }
}

template <class Work>
void runInThreads(int count, Work work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(work, i);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace

TEST_F(ClientTest, ManyThreadsShareOneClient) {
    ScriptedServer server("orders", {echo}, ScriptedServer::Then::REPEAT);
    CvtpClient client;
    client.getManager();
    runInThreads(8, [&client](int thread) { postManyTimes(client, thread, 40); });
    EXPECT_EQ(server.requests().size(), 8u * 40u);
    // One pipe for each thread at most; all others were reused.
    EXPECT_LE(server.connectionCount(), 8u + 1u);
}

TEST_F(ClientTest, ManyThreadsPostAndNotifyAtDebugLevel) {
    const LogCapture log(4, 3);
    {
        ScriptedServer server("orders", {echo}, ScriptedServer::Then::REPEAT);
        ScriptedServer notices("notices", {[](ScriptedConnection& connection) {
                                   while (!connection.readRequest().empty()) {
                                   }
                               }},
                               ScriptedServer::Then::REPEAT);
        CvtpClient client;
        client.getManager();
        runInThreads(4, [&client](int thread) {
            for (int i = 0; i < 10; ++i) {
                postManyTimes(client, thread, 1);
                notify(client, "notices", "n");
            }
        });
        EXPECT_TRUE(notices.waitForRequests(4u * 10u));
    }
    // No thread logs any more, and each line is whole, which taking them apart checks.
    EXPECT_EQ(log.count("DEBUG: Receive: CVTP/1.0 200 OK"), 4 * 10);
}

TEST_F(ClientTest, AServerThatClosesNowAndThenLosesNoRequest) {
    ScriptedServer server("orders", {echoThreeTimes}, ScriptedServer::Then::REPEAT);
    CvtpClient client;
    for (std::size_t i = 0; i < 30; ++i) {
        EXPECT_EQ(post(client, "orders", std::to_string(i)), std::to_string(i));
        if (i % 3 == 2) {
            ASSERT_TRUE(server.waitForEnd(i / 3));
        }
    }
    EXPECT_EQ(server.requests().size(), 30u);
}

TEST_F(ClientTest, LargeBodiesGoBothWaysByLength) {
    ScriptedServer server("orders", {echo});
    CvtpClient client;
    std::string body(5 * 1024 * 1024 + 7, ' ');
    for (std::size_t i = 0; i < body.size(); ++i) {
        body[i] = static_cast<char>(i * 31 >> 3);
    }
    EXPECT_TRUE(post(client, "orders", body) == body);
}

TEST_F(ClientTest, ALargeStreamArrivesWholeAndComesBackInChunks) {
    std::string body(3 * 1024 * 1024 + 5, ' ');
    for (std::size_t i = 0; i < body.size(); ++i) {
        body[i] = static_cast<char>(i * 13 >> 2);
    }
    ScriptedServer server("orders", {[](ScriptedConnection& connection) {
                              // The chunks go back as they came.
                              connection.write("CVTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" +
                                               bodyIn(connection.readRequest()));
                              connection.readToEnd();
                          }});
    CvtpClient client;
    PostRequest request(&client, "orders", "/r");
    std::istringstream stream(body);
    request.setBodyStream(&stream);
    const std::unique_ptr<CvtpResponse> response(request.execute());
    EXPECT_TRUE(bodyOf(*response) == body);
    EXPECT_TRUE(response->isBodyComplete());
}

}  // namespace Testing
}  // namespace Corvane
