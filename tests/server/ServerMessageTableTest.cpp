// Every message of the table, sent to a server.

#include <atomic>

#include "io/Exceptions.h"
#include "tests/cvtp/MessageSupport.h"
#include "tests/cvtp/MessageTable.h"
#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpServerRequest;
using Cvtp::CvtpServerResponse;

/// What a handler saw of one request.
struct Seen {
    int requests = 0;
    std::string startLine;
    Headers headers;
    std::string body;
    bool bodyWhole = false;
};

class ServerMessageTableTest : public ServerTest, public ::testing::WithParamInterface<IncomingCase> {
 protected:
    void SetUp() override {
        service.handler.onNotify = [this](CvtpServerRequest& request) { look(request); };
        service.handler.onPost = [this](CvtpServerRequest& request, CvtpServerResponse& response) {
            look(request);
            response.sendError(200, "OK");
        };
        service.start();
    }

    /// Sends the bytes in pieces of `size`, closes the connection, and waits until the server has done so too.
    void deliver(const std::string& bytes, std::size_t size) {
        {
            RawClient client("pipe");
            for (std::size_t at = 0; at < bytes.size(); at += size) {
                try {
                    client.send(bytes.substr(at, size));
                } catch (const Io::BrokenPipeException&) {
                    // The server has seen enough.
                    break;
                }
            }
            // On some systems a client that goes before it was accepted takes its bytes along.
            ASSERT_TRUE(log.waitFor("DEBUG: ServerCvPipe pipe has accepted a CvPipe connection."));
        }
        ASSERT_TRUE(log.waitFor(closingLine()));
        service.stop();
    }

    /// Requests that follow in the same bytes are not looked at: only the first counts.
    void look(CvtpServerRequest& request) {
        if (++seen.requests > 1) {
            return;
        }
        seen.startLine = request.getStartLine();
        seen.headers = headersOf(request);
        std::istream& stream = *request.getBodyStream();
        seen.body.assign(std::istreambuf_iterator<char>(stream), {});
        seen.bodyWhole = request.isBodyComplete();
    }

    void expectSeen() {
        const IncomingCase& message = GetParam();
        const std::string method = message.startLine.substr(0, message.startLine.find(' '));
        const bool known = method == "POST" || method == "NOTIFY";
        const bool head = message.ending != Ending::HEAD_CUT && message.ending != Ending::NO_FRAMING;
        ASSERT_EQ(seen.requests > 0, known && head);
        if (seen.requests == 0) {
            return;
        }
        EXPECT_EQ(seen.startLine, message.startLine);
        EXPECT_EQ(seen.headers, message.headers);
        EXPECT_EQ(seen.bodyWhole, message.ending == Ending::COMPLETE);
        if (seen.bodyWhole) {
            EXPECT_EQ(seen.body, message.body);
        } else {
            // How much is given of a broken body depends on how its bytes arrive.
            const std::string& longest = message.longestBody.empty() ? message.body : message.longestBody;
            EXPECT_EQ(longest.substr(0, seen.body.size()), seen.body);
        }
        if (!message.log.empty() && message.log.rfind("WARN", 0) != 0) {
            EXPECT_TRUE(log.has(message.log));
        }
    }

    LogCapture log;
    Seen seen;
    RunningServer service{"pipe"};
};

TEST_P(ServerMessageTableTest, ArrivesWhole) {
    deliver(GetParam().bytes, GetParam().bytes.size() + 1);
    expectSeen();
}

TEST_P(ServerMessageTableTest, ArrivesByteByByte) {
    deliver(GetParam().bytes, 1);
    expectSeen();
}

INSTANTIATE_TEST_SUITE_P(Messages, ServerMessageTableTest, ::testing::ValuesIn(incomingMessages()),
                         [](const ::testing::TestParamInfo<IncomingCase>& message) { return message.param.name; });

}  // namespace

}  // namespace Testing
}  // namespace Corvane
