#include "cvtp/CvtpClient.h"

#include <limits>
#include <memory>
#include <string>
#include <type_traits>

#include "cvtp/Version.h"
#include "cvtp/internal/DefaultConnectionManager.h"
#include "tests/client/ClientTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpClient;
using Internal::Cvtp::DefaultConnectionManager;
using Io::CvPipe;

using ClientOptions = CvtpClient::ClientOptions;

const ClientOptions INTEGER_OPTIONS[] = {CvtpClient::CONNECTION_TIMEOUT, CvtpClient::STALE_TIMEOUT,
                                         CvtpClient::BUFFER_SIZE};

class CvtpClientTest : public ClientTest {
 protected:
    CvtpClient client;
};

/// A server that reads all that comes and answers nothing.
ScriptedServer::Script listen() {
    return [](ScriptedConnection& connection) { connection.readToEnd(); };
}

}  // namespace

TEST_F(CvtpClientTest, HasAVirtualDestructorAndCannotBeCopied) {
    EXPECT_TRUE(std::has_virtual_destructor<CvtpClient>::value);
    EXPECT_FALSE(std::is_copy_constructible<CvtpClient>::value);
    EXPECT_FALSE(std::is_copy_assignable<CvtpClient>::value);
}

TEST_F(CvtpClientTest, TheNumbersOfTheOptionsAreFixed) {
    EXPECT_EQ(CvtpClient::CONNECTION_TIMEOUT, 0);
    EXPECT_EQ(CvtpClient::STALE_TIMEOUT, 1);
    EXPECT_EQ(CvtpClient::USER_AGENT, 2);
    EXPECT_EQ(CvtpClient::BUFFER_SIZE, 3);
}

TEST_F(CvtpClientTest, StartsWithTheDefaultsOfItsOptions) {
    EXPECT_EQ(client.getIntegerOption(CvtpClient::CONNECTION_TIMEOUT), 60000);
    EXPECT_EQ(client.getIntegerOption(CvtpClient::STALE_TIMEOUT), 10000);
    EXPECT_EQ(client.getIntegerOption(CvtpClient::BUFFER_SIZE), 40960);
    EXPECT_EQ(client.getStringOption(CvtpClient::USER_AGENT), "CvtpClient");
}

TEST_F(CvtpClientTest, StoresAnyIntegerAsItIsAndWithoutALineInTheLog) {
    const LogCapture log;
    for (const ClientOptions option : INTEGER_OPTIONS) {
        for (const int value : {8192, 0, -1, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
            client.setOption(option, value);
            EXPECT_EQ(client.getIntegerOption(option), value) << option;
        }
    }
    EXPECT_EQ(log.log(), "");
}

TEST_F(CvtpClientTest, EachIntegerOptionIsAValueOfItsOwn) {
    client.setOption(CvtpClient::CONNECTION_TIMEOUT, 1);
    client.setOption(CvtpClient::STALE_TIMEOUT, 2);
    client.setOption(CvtpClient::BUFFER_SIZE, 3);
    EXPECT_EQ(client.getIntegerOption(CvtpClient::CONNECTION_TIMEOUT), 1);
    EXPECT_EQ(client.getIntegerOption(CvtpClient::STALE_TIMEOUT), 2);
    EXPECT_EQ(client.getIntegerOption(CvtpClient::BUFFER_SIZE), 3);
}

TEST_F(CvtpClientTest, TheUserAgentIsStoredWithoutALineInTheLog) {
    const LogCapture log;
    client.setOption(CvtpClient::USER_AGENT, "Counter/2.1");
    EXPECT_EQ(client.getStringOption(CvtpClient::USER_AGENT), "Counter/2.1");
    EXPECT_EQ(log.log(), "");
}

TEST_F(CvtpClientTest, AStringForAnyOtherOptionIsLoggedAndChangesNothing) {
    const LogCapture log;
    for (const ClientOptions option : INTEGER_OPTIONS) {
        client.setOption(option, "17");
    }
    client.setOption(static_cast<ClientOptions>(4), "17");
    client.setOption(static_cast<ClientOptions>(-1), "17");
    EXPECT_EQ(log.texts(), Lines(5, "ERROR: Attempt to set an invalid string option"));
    EXPECT_EQ(client.getIntegerOption(CvtpClient::BUFFER_SIZE), 40960);
    EXPECT_EQ(client.getStringOption(CvtpClient::USER_AGENT), "CvtpClient");
}

TEST_F(CvtpClientTest, AnIntegerForAnyOtherOptionIsLoggedTwiceAtDebug) {
    const LogCapture log;
    client.setOption(CvtpClient::USER_AGENT, 17);
    client.setOption(static_cast<ClientOptions>(4), 17);
    const std::string debug = "DEBUG: Setting CvtpClient option unrecognized.";
    const std::string error = "ERROR: Attempt to set an invalid integer option";
    EXPECT_EQ(log.texts(), (Lines{debug, error, debug, error}));
    EXPECT_EQ(client.getStringOption(CvtpClient::USER_AGENT), "CvtpClient");
}

TEST_F(CvtpClientTest, AnIntegerForAnyOtherOptionIsLoggedOnceBelowDebug) {
    const LogCapture log(3);
    client.setOption(CvtpClient::USER_AGENT, 17);
    EXPECT_EQ(log.texts(), (Lines{"ERROR: Attempt to set an invalid integer option"}));
}

TEST_F(CvtpClientTest, TheStringOfAnyOtherOptionIsEmptyAndLogged) {
    const LogCapture log;
    for (const ClientOptions option : INTEGER_OPTIONS) {
        EXPECT_EQ(client.getStringOption(option), "");
    }
    EXPECT_EQ(client.getStringOption(static_cast<ClientOptions>(4)), "");
    EXPECT_EQ(log.texts(), Lines(4, "ERROR: Attempt to retrieve an invalid string option"));
}

TEST_F(CvtpClientTest, TheIntegerOfAnyOtherOptionIsMinusOneAndLogged) {
    const LogCapture log;
    EXPECT_EQ(client.getIntegerOption(CvtpClient::USER_AGENT), -1);
    EXPECT_EQ(client.getIntegerOption(static_cast<ClientOptions>(4)), -1);
    EXPECT_EQ(log.texts(), Lines(2, "ERROR: Attempt to retrieve an invalid integer option"));
}

TEST_F(CvtpClientTest, SpeaksTheCurrentVersion) {
    EXPECT_EQ(client.getCvtpVersion(), Cvtp::Version::CURRENT_VERSION);
    EXPECT_EQ(client.getCvtpVersion().toString(), "CVTP/1.0");
}

TEST_F(CvtpClientTest, MakesItsManagerOnce) {
    Cvtp::CvtpConnectionManager* const manager = client.getManager();
    EXPECT_NE(dynamic_cast<DefaultConnectionManager*>(manager), nullptr);
    EXPECT_EQ(client.getManager(), manager);
}

TEST_F(CvtpClientTest, UsesTheManagerItIsGivenAndDoesNotDeleteIt) {
    bool deleted = false;
    FakeManager manager(nullptr, &deleted);
    {
        CvtpClient other(&manager);
        EXPECT_EQ(other.getManager(), &manager);
        EXPECT_EQ(other.getIntegerOption(CvtpClient::CONNECTION_TIMEOUT), 60000);
    }
    EXPECT_FALSE(deleted);
}

TEST_F(CvtpClientTest, WithANullManagerMakesItsOwn) {
    CvtpClient other(nullptr);
    EXPECT_NE(dynamic_cast<DefaultConnectionManager*>(other.getManager()), nullptr);
}

TEST_F(CvtpClientTest, ClosesThePipesOfItsOwnManagerWithIt) {
    ScriptedServer server("orders", {listen()}, ScriptedServer::Then::REPEAT);
    {
        CvtpClient other;
        other.getManager()->getPipe("orders", "rw");
        other.getManager()->returnPipe(other.getManager()->getPipe("orders", "w"));
    }
    EXPECT_TRUE(server.waitForEnd(0));
    EXPECT_TRUE(server.waitForEnd(1));
}

TEST_F(CvtpClientTest, ItsTimeoutsReachTheManagerWhenThatIsMade) {
    ScriptedServer server("orders", {listen()}, ScriptedServer::Then::REPEAT);
    client.setOption(CvtpClient::CONNECTION_TIMEOUT, 1234);
    // An idle pipe is stale at once.
    client.setOption(CvtpClient::STALE_TIMEOUT, -1);
    CvPipe* const pipe = client.getManager()->getPipe("orders", "rw");
    EXPECT_EQ(pipe->getConnectTimeout(), 1234);
    client.getManager()->returnPipe(pipe);
    client.getManager()->getPipe("orders", "rw");
    EXPECT_TRUE(server.waitForEnd(0));
}

TEST_F(CvtpClientTest, TimeoutsSetAfterARequestHasRunDoNotReachTheManager) {
    ScriptedServer server("orders", {[](ScriptedConnection& connection) { connection.answerAll(answerWith("a")); }},
                          ScriptedServer::Then::REPEAT);
    EXPECT_EQ(post(client, "orders", "q"), "a");
    client.setOption(CvtpClient::CONNECTION_TIMEOUT, 1234);
    client.setOption(CvtpClient::STALE_TIMEOUT, -1);
    const LogCapture log;
    CvPipe* const idle = client.getManager()->getPipe("orders", "rw");
    EXPECT_EQ(ownLines(log).size(), 1u) << "the idle pipe was taken for stale: " << log.log();
    CvPipe* const fresh = client.getManager()->getPipe("orders", "rw");
    EXPECT_NE(fresh, idle);
    EXPECT_EQ(fresh->getConnectTimeout(), 60000);
}

}  // namespace Testing
}  // namespace Corvane
