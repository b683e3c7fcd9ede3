#include "tools/cvtp/RequestOptions.h"

#include <gtest/gtest.h>

#include <CLI/CLI.hpp>

#include "cvtp/CvtpClient.h"
#include "tests/config/ConfigTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpClient;

class RequestOptionsTest : public ConfigTest {
 protected:
    /// The connect and the stale timeout of a client with the options of a command line. The configuration file is
    /// read once in a process, so it is the same for all of them.
    std::vector<int> timeoutsWith(const std::vector<std::string>& more) {
        const FileVariable variable(write(
            "file.xml",
            "<any><CvtpClient function=\"f\" component=\"c\" connect_timeout=\"7\" stale_timeout=\"8\"/></any>"));
        CLI::App app;
        app.allow_windows_style_options(false);
        Tools::RequestOptions options;
        options.addTo(app);
        std::vector<std::string> words = {"pipe", "/resource"};
        words.insert(words.end(), more.begin(), more.end());
        app.parse(std::vector<std::string>(words.rbegin(), words.rend()));
        CvtpClient client;
        options.setOptionsOf(client);
        return {client.getIntegerOption(CvtpClient::CONNECTION_TIMEOUT),
                client.getIntegerOption(CvtpClient::STALE_TIMEOUT)};
    }
};

}  // namespace

TEST_F(RequestOptionsTest, WinOverTheConfigurationFile) {
    EXPECT_EQ(timeoutsWith({}), (std::vector<int>{60000, 10000}));
    EXPECT_EQ(timeoutsWith({"--connect-timeout", "9"}), (std::vector<int>{9, 10000}));
    EXPECT_EQ(timeoutsWith({"--config", "f/c"}), (std::vector<int>{7, 8}));
    EXPECT_EQ(timeoutsWith({"--config", "f/c", "--connect-timeout", "9"}), (std::vector<int>{9, 8}));
    EXPECT_EQ(timeoutsWith({"--connect-timeout", "9", "--config", "f/c"}), (std::vector<int>{9, 8}));
}

}  // namespace Testing
}  // namespace Corvane
