#include "cvtp/internal/ConfigOptions.h"

#include <regex>
#include <thread>
#include <xercesc/util/NumberFormatException.hpp>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpServer.h"
#include "cvtp/internal/ConfigDocument.h"
#include "tests/config/ConfigTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpClient;
using Cvtp::CvtpServer;
using Internal::Cvtp::ConfigDocument;
using xercesc::NumberFormatException;

using Options = std::vector<int>;
using Texts = std::vector<std::string>;

const Options CLIENT_DEFAULTS = {60000, 10000, 40960};
const Options SERVER_DEFAULTS = {1, 5, 0, 13000, 3000, 4096};

class ConfigOptionsTest : public ConfigTest {
 protected:
    // No pipe can have the name of the server, so none is made.
    ConfigOptionsTest() : server("\\", 1) {}

    void load(const std::string& entries) { document.load(write("file.xml", "<any>" + entries + "</any>")); }

    /// Loads a client's entry of these attributes and sets its options.
    void setClient(const std::string& attributes) {
        load("<CvtpClient function=\"f\" component=\"c\" " + attributes + "/>");
        Internal::Cvtp::setClientOptions(client, document, "f", "c");
    }

    void setServer(const std::string& attributes) {
        load("<CvtpServer function=\"f\" component=\"c\" " + attributes + "/>");
        Internal::Cvtp::setServerOptions(server, document, "f", "c");
    }

    Options clientOptions() const {
        return {client.getIntegerOption(CvtpClient::CONNECTION_TIMEOUT),
                client.getIntegerOption(CvtpClient::STALE_TIMEOUT),
                client.getIntegerOption(CvtpClient::BUFFER_SIZE)};
    }

    Options serverOptions() const {
        return {server.getIntegerOption(CvtpServer::ACCESS_MODE),
                server.getIntegerOption(CvtpServer::MAX_REQUEST_PROCESSORS),
                server.getIntegerOption(CvtpServer::ACCEPT_TIMEOUT),
                server.getIntegerOption(CvtpServer::IDLE_TIMEOUT),
                server.getIntegerOption(CvtpServer::RECEIVE_TIMEOUT),
                server.getIntegerOption(CvtpServer::BUFFER_SIZE)};
    }

    ConfigDocument document;
    CvtpClient client;
    CvtpServer server;
};

/// The line about an unknown attribute, in which an address stands in place of the name.
bool isUnrecognised(const std::string& text, const std::string& element) {
    return std::regex_match(
        text, std::regex("ERROR: Unrecognised " + element + " configuration attribute (0x)?[0-9A-Fa-f]+"));
}

}  // namespace

TEST_F(ConfigOptionsTest, SetsAllOptionsOfAClient) {
    const LogCapture log;
    setClient("connect_timeout=\"1\" stale_timeout=\"2\" buffer_size=\"3\"");
    EXPECT_EQ(clientOptions(), (Options{1, 2, 3}));
    EXPECT_EQ(client.getStringOption(CvtpClient::USER_AGENT), "CvtpClient");
    EXPECT_EQ(log.texts(), Texts());
}

TEST_F(ConfigOptionsTest, SetsAllOptionsOfAServer) {
    const LogCapture log;
    setServer(
        "max_request_processors=\"11\" accept_timeout=\"12\" idle_timeout=\"13\" receive_timeout=\"14\" "
        "buffer_size=\"15\"");
    EXPECT_EQ(serverOptions(), (Options{1, 11, 12, 13, 14, 15}));
    EXPECT_EQ(server.getStringOption(CvtpServer::SERVER_NAME), "CvtpServer");
    EXPECT_EQ(log.texts(), Texts());
}

TEST_F(ConfigOptionsTest, LeavesOptionsWithoutAnAttributeAsTheyAre) {
    client.setOption(CvtpClient::STALE_TIMEOUT, 77);
    setClient("buffer_size=\"3\"");
    EXPECT_EQ(clientOptions(), (Options{60000, 77, 3}));
    setServer("");
    EXPECT_EQ(serverOptions(), SERVER_DEFAULTS);
}

TEST_F(ConfigOptionsTest, UsesOnlyTheFirstEntryThatFits) {
    const LogCapture log;
    load(
        "<CvtpServer function=\"f\" component=\"c\" idle_timeout=\"1\"/>"
        "<CvtpServer function=\"f\" component=\"c\" idle_timeout=\"2\" receive_timeout=\"3\" unknown=\"4\"/>");
    Internal::Cvtp::setServerOptions(server, document, "f", "c");
    EXPECT_EQ(serverOptions(), (Options{1, 5, 0, 1, 3000, 4096}));
    EXPECT_EQ(log.texts(), Texts());
}

TEST_F(ConfigOptionsTest, UsesEntriesOfTheOwnKindOnly) {
    load(
        "<CvtpServer function=\"f\" component=\"c\" buffer_size=\"1\"/>"
        "<CvtpClient function=\"f\" component=\"c\" buffer_size=\"2\"/>");
    Internal::Cvtp::setClientOptions(client, document, "f", "c");
    Internal::Cvtp::setServerOptions(server, document, "f", "c");
    EXPECT_EQ(clientOptions(), (Options{60000, 10000, 2}));
    EXPECT_EQ(serverOptions(), (Options{1, 5, 0, 13000, 3000, 1}));
}

TEST_F(ConfigOptionsTest, DoesNothingAndLogsNothingWithoutAnEntryThatFits) {
    const LogCapture log;
    load("<group><CvtpClient function=\"f\" component=\"c\" buffer_size=\"1\"/></group>");
    Internal::Cvtp::setClientOptions(client, document, "f", "c");
    Internal::Cvtp::setServerOptions(server, document, "f", "c");
    EXPECT_EQ(clientOptions(), CLIENT_DEFAULTS);
    EXPECT_EQ(serverOptions(), SERVER_DEFAULTS);
    EXPECT_EQ(log.texts(), Texts());
}

TEST_F(ConfigOptionsTest, LogsAtDebugThatThereIsNoDocument) {
    {
        const LogCapture log(4);
        Internal::Cvtp::setClientOptions(client, document, "f", "c");
        Internal::Cvtp::setServerOptions(server, document, "f", "c");
        EXPECT_EQ(log.texts(),
                  (Texts{"DEBUG: CvtpConfiguration not available.", "DEBUG: CvtpConfiguration not available."}));
    }
    const LogCapture log(3);
    Internal::Cvtp::setClientOptions(client, document, "f", "c");
    EXPECT_EQ(log.texts(), Texts());
    EXPECT_EQ(clientOptions(), CLIENT_DEFAULTS);
}

TEST_F(ConfigOptionsTest, WarnsOfTheReadTimeoutOfAClient) {
    {
        const LogCapture log(2);
        setClient("read_timeout=\"5\"");
        // With a blank at its end.
        EXPECT_EQ(log.texts(), Texts{"WARN: Unsupported C++ CvtpClient option: read_timeout "});
    }
    EXPECT_EQ(clientOptions(), CLIENT_DEFAULTS);
    const LogCapture log(1);
    Internal::Cvtp::setClientOptions(client, document, "f", "c");
    EXPECT_EQ(log.texts(), Texts());
}

TEST_F(ConfigOptionsTest, DoesNotParseTheReadTimeout) {
    const LogCapture log;
    setClient("read_timeout=\"no number\"");
    EXPECT_EQ(log.texts(), Texts{"WARN: Unsupported C++ CvtpClient option: read_timeout "});
}

TEST_F(ConfigOptionsTest, TakesTheReadTimeoutOfAServerForUnknown) {
    const LogCapture log;
    setServer("read_timeout=\"5\"");
    ASSERT_EQ(log.texts().size(), 1u);
    EXPECT_TRUE(isUnrecognised(log.texts()[0], "CvtpServer")) << log.texts()[0];
}

TEST_F(ConfigOptionsTest, LogsTheAddressOfTheNameOfAnUnknownAttributeAndGoesOn) {
    const LogCapture log(1);
    setClient("apple=\"1\" zebra=\"x\" idle_timeout=\"2\" connect_timeout=\"3\"");
    EXPECT_EQ(clientOptions(), (Options{3, 10000, 40960}));
    const Texts texts = log.texts();
    ASSERT_EQ(texts.size(), 3u);
    for (const std::string& text : texts) {
        EXPECT_TRUE(isUnrecognised(text, "CvtpClient")) << text;
    }
    EXPECT_NE(texts[0], texts[1]);
}

TEST_F(ConfigOptionsTest, LogsNoUnknownAttributeWhenTheLogIsOff) {
    const LogCapture log(0);
    setServer("unknown=\"1\"");
    EXPECT_EQ(log.texts(), Texts());
}

TEST_F(ConfigOptionsTest, ComparesTheNamesOfAttributesExactly) {
    const LogCapture log;
    setServer("Idle_Timeout=\"1\" idle_timeouts=\"2\" xmlns:x=\"u\" x:idle_timeout=\"3\" x:function=\"4\"");
    EXPECT_EQ(serverOptions(), SERVER_DEFAULTS);
    EXPECT_EQ(log.texts().size(), 5u);
}

TEST_F(ConfigOptionsTest, GoesThroughTheAttributesInTheOrderOfTheirNames) {
    const LogCapture log;
    setClient("zebra=\"1\" read_timeout=\"2\" apple=\"3\"");
    const Texts texts = log.texts();
    ASSERT_EQ(texts.size(), 3u);
    EXPECT_TRUE(isUnrecognised(texts[0], "CvtpClient"));
    EXPECT_EQ(texts[1], "WARN: Unsupported C++ CvtpClient option: read_timeout ");
    EXPECT_TRUE(isUnrecognised(texts[2], "CvtpClient"));
}

TEST_F(ConfigOptionsTest, TakesAnyIntegerAsItIs) {
    setServer(
        "max_request_processors=\" -1 \" accept_timeout=\"+007\" idle_timeout=\"2147483647\" "
        "receive_timeout=\"-2147483648\" buffer_size=\"0\"");
    EXPECT_EQ(serverOptions(), (Options{1, -1, 7, 2147483647, -2147483647 - 1, 0}));
}

TEST_F(ConfigOptionsTest, LogsAValueThatIsNoNumberAndPassesTheExceptionOn) {
    const LogCapture log(1);
    EXPECT_THROW(setServer("buffer_size=\"12\" idle_timeout=\"1O\" receive_timeout=\"13\""), NumberFormatException);
    EXPECT_EQ(log.texts(),
              Texts{"ERROR: The attribute idle_timeout of the cvtp configuration file is not a number: "
                    "\"1O\""});
    // What comes before it is set, what comes after it is not.
    EXPECT_EQ(serverOptions(), (Options{1, 5, 0, 13000, 3000, 12}));
}

TEST_F(ConfigOptionsTest, PassesTheExceptionOnWhenTheLogIsOff) {
    const LogCapture log(0);
    EXPECT_THROW(setClient("connect_timeout=\"x\""), NumberFormatException);
    EXPECT_EQ(log.texts(), Texts());
    EXPECT_EQ(clientOptions(), CLIENT_DEFAULTS);
}

TEST_F(ConfigOptionsTest, TakesNothingElseForANumber) {
    for (const char* const value :
         {"", " ", "1 2", "0x10", "1.5", "1e3", "--1", "five", "\xc3\xa4", "2147483648", "-2147483649",
          "4294967301", "9223372036854775808", "-99999999999999999999", "1&#10;ERROR"}) {
        ConfigDocument other;
        other.load(write("other.xml", "<any><CvtpClient stale_timeout=\"" + std::string(value) + "\"/></any>"));
        const LogCapture log(1);
        EXPECT_THROW(Internal::Cvtp::setClientOptions(client, other, "", ""), NumberFormatException) << value;
        ASSERT_EQ(log.texts().size(), 1u) << value;
        const std::string shown = value == std::string("1&#10;ERROR") ? "1 ERROR" : value;
        EXPECT_EQ(
            log.texts()[0],
            "ERROR: The attribute stale_timeout of the cvtp configuration file is not a number: \"" + shown + "\"");
    }
    EXPECT_EQ(clientOptions(), CLIENT_DEFAULTS);
}

TEST_F(ConfigOptionsTest, MayBeUsedByManyThreadsAtOnce) {
    const LogCapture log(0);
    load(
        "<CvtpClient function=\"e\"/><CvtpClient function=\"f\" component=\"c\" connect_timeout=\"1\" "
        "unknown=\"x\" "
        "buffer_size=\"3\" read_timeout=\"\"/><CvtpClient function=\"g\" component=\"c\" buffer_size=\"x\"/>");
    std::vector<std::thread> threads;
    std::vector<int> sums(4);
    for (int& sum : sums) {
        threads.emplace_back([&sum, this] {
            for (int i = 0; i < 100; ++i) {
                CvtpClient own;
                Internal::Cvtp::setClientOptions(own, document, "f", "c");
                EXPECT_THROW(Internal::Cvtp::setClientOptions(own, document, "g", "c"), NumberFormatException);
                sum += own.getIntegerOption(CvtpClient::CONNECTION_TIMEOUT) +
                       own.getIntegerOption(CvtpClient::BUFFER_SIZE);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(sums, (std::vector<int>{400, 400, 400, 400}));
}

}  // namespace Testing
}  // namespace Corvane
