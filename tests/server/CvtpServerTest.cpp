#include "cvtp/CvtpServer.h"

#include <type_traits>

#include "io/ServerCvPipe.h"
#include "tests/server/ServerTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Cvtp::CvtpServer;
using Options = CvtpServer::ServerOptions;

const std::string NO_INTEGER_SET = "ERROR: Attempt to set a non integer option.";
const std::string NO_STRING_SET = "ERROR: Attempt to set a non string option.";
const std::string NO_INTEGER_GET = "ERROR: Attempt to get a non integer option.";
const std::string NO_STRING_GET = "ERROR: Attempt to get a non string option.";

static_assert(std::is_base_of<Poco::Runnable, CvtpServer>::value, "runs on any thread of Poco's");
static_assert(CvtpServer::ACCESS_MODE == 0 && CvtpServer::SERVER_NAME == 1 &&
                  CvtpServer::MAX_REQUEST_PROCESSORS == 2 && CvtpServer::ACCEPT_TIMEOUT == 3 &&
                  CvtpServer::IDLE_TIMEOUT == 4 && CvtpServer::RECEIVE_TIMEOUT == 5 && CvtpServer::BUFFER_SIZE == 6,
              "the numbers are part of the interface");

using CvtpServerTest = ServerTest;

TEST_F(CvtpServerTest, HasTheDefaultOptions) {
    const CvtpServer server("pipe", 1);
    EXPECT_EQ(server.getIntegerOption(CvtpServer::ACCESS_MODE), 1);
    EXPECT_EQ(server.getStringOption(CvtpServer::SERVER_NAME), "CvtpServer");
    EXPECT_EQ(server.getIntegerOption(CvtpServer::MAX_REQUEST_PROCESSORS), 5);
    EXPECT_EQ(server.getIntegerOption(CvtpServer::ACCEPT_TIMEOUT), 0);
    EXPECT_EQ(server.getIntegerOption(CvtpServer::IDLE_TIMEOUT), 13000);
    EXPECT_EQ(server.getIntegerOption(CvtpServer::RECEIVE_TIMEOUT), 3000);
    EXPECT_EQ(server.getIntegerOption(CvtpServer::BUFFER_SIZE), 4096);
}

TEST_F(CvtpServerTest, IsNotRunningAtFirst) {
    CvtpServer server("pipe", 1);
    EXPECT_FALSE(server.isRunning());
    EXPECT_TRUE(server.isBound());
    EXPECT_EQ(server.getHandler(), nullptr);
    EXPECT_EQ(server.idleRequestProcessors(), 0);
    EXPECT_EQ(server.totalRequestProcessors(), 0);
}

TEST_F(CvtpServerTest, KeepsTheHandlerWithoutOwningIt) {
    FunctionHandler handler;
    {
        CvtpServer server("pipe", 1);
        server.setHandler(&handler);
        EXPECT_EQ(server.getHandler(), &handler);
    }
    EXPECT_TRUE(handler.doReady());
}

TEST_F(CvtpServerTest, AccessModeCannotBeSwitchedOff) {
    CvtpServer server("pipe", 1);
    for (const int value : {0, 1, 7, -1}) {
        server.setOption(CvtpServer::ACCESS_MODE, value);
        EXPECT_EQ(server.getIntegerOption(CvtpServer::ACCESS_MODE), 1) << value;
    }
}

TEST_F(CvtpServerTest, StoresIntegerOptionsUnchecked) {
    CvtpServer server("pipe", 1);
    const std::vector<Options> all = {CvtpServer::MAX_REQUEST_PROCESSORS, CvtpServer::ACCEPT_TIMEOUT,
                                      CvtpServer::IDLE_TIMEOUT, CvtpServer::RECEIVE_TIMEOUT,
                                      CvtpServer::BUFFER_SIZE};
    for (const int sign : {1, 0, -1}) {
        for (const Options option : all) {
            server.setOption(option, sign * (100 + option));
        }
        for (const Options option : all) {
            EXPECT_EQ(server.getIntegerOption(option), sign * (100 + option)) << option;
        }
    }
}

TEST_F(CvtpServerTest, SettingAnOptionOfTheRightKindLogsNothing) {
    CvtpServer server("pipe", 1);
    const LogCapture log;
    for (const int option : {0, 2, 3, 4, 5, 6}) {
        server.setOption(static_cast<Options>(option), 1);
    }
    server.setOption(CvtpServer::SERVER_NAME, "Orders");
    EXPECT_EQ(log.log(), "");
    EXPECT_EQ(server.getStringOption(CvtpServer::SERVER_NAME), "Orders");
}

TEST_F(CvtpServerTest, RefusesAnOptionOfTheOtherKind) {
    CvtpServer server("pipe", 1);
    const LogCapture log(1);
    server.setOption(CvtpServer::SERVER_NAME, 7);
    EXPECT_EQ(log.texts(), Lines({NO_INTEGER_SET}));
    EXPECT_EQ(server.getStringOption(CvtpServer::SERVER_NAME), "CvtpServer");

    server.setOption(CvtpServer::IDLE_TIMEOUT, "7");
    EXPECT_EQ(log.texts(), Lines({NO_INTEGER_SET, NO_STRING_SET}));
    EXPECT_EQ(server.getIntegerOption(CvtpServer::IDLE_TIMEOUT), 13000);
    EXPECT_EQ(server.getStringOption(CvtpServer::SERVER_NAME), "CvtpServer");

    EXPECT_EQ(server.getIntegerOption(CvtpServer::SERVER_NAME), -1);
    EXPECT_EQ(server.getStringOption(CvtpServer::IDLE_TIMEOUT), "");
    EXPECT_EQ(log.texts(), Lines({NO_INTEGER_SET, NO_STRING_SET, NO_INTEGER_GET, NO_STRING_GET}));
}

TEST_F(CvtpServerTest, RefusesAStringForEachIntegerOption) {
    CvtpServer server("pipe", 1);
    for (const int option : {0, 2, 3, 4, 5, 6}) {
        const LogCapture log;
        const int before = server.getIntegerOption(static_cast<Options>(option));
        server.setOption(static_cast<Options>(option), "9");
        EXPECT_EQ(server.getIntegerOption(static_cast<Options>(option)), before);
        EXPECT_EQ(server.getStringOption(static_cast<Options>(option)), "");
        EXPECT_EQ(log.texts(), Lines({NO_STRING_SET, NO_STRING_GET})) << option;
        EXPECT_EQ(server.getStringOption(CvtpServer::SERVER_NAME), "CvtpServer") << option;
    }
}

TEST_F(CvtpServerTest, RefusesOptionsThatDoNotExist) {
    CvtpServer server("pipe", 1);
    for (const int number : {7, 1000, -1, -2147483647}) {
        const LogCapture log;
        const Options option = static_cast<Options>(number);
        server.setOption(option, 1);
        server.setOption(option, "text");
        EXPECT_EQ(server.getIntegerOption(option), -1);
        EXPECT_EQ(server.getStringOption(option), "");
        EXPECT_EQ(log.texts(), Lines({NO_INTEGER_SET, NO_STRING_SET, NO_INTEGER_GET, NO_STRING_GET})) << number;
    }
}

TEST_F(CvtpServerTest, TellsWhichPipeItUses) {
    const LogCapture log;
    const CvtpServer server("orders.rw", 1);
    EXPECT_EQ(serverLines(log), Lines({"DEBUG: CvTpServer is using Pipe orders.rw"}));
}

TEST_F(CvtpServerTest, ExistsWithoutAPipeWhoseNameIsTaken) {
    const Io::ServerCvPipe taken("orders", true, true);
    const LogCapture log(3);
    CvtpServer server("orders", 1);
    EXPECT_FALSE(server.isBound());
    ASSERT_EQ(log.texts().size(), 2u);
    EXPECT_EQ(log.texts().front().rfind("ERROR: CreateNamedPipe failed: ", 0), 0u);
    EXPECT_EQ(log.texts().back(),
              "ERROR: Failed to create the CvtpServer with the named pipe orders. CreateNamedPipe failed");
    server.shutdown();
    EXPECT_EQ(log.texts().size(), 2u);
}

TEST_F(CvtpServerTest, DoesNotSayThatItUsesAPipeThatItHasNot) {
    const LogCapture log;
    const CvtpServer server("no\\pipe", 1);
    EXPECT_FALSE(log.has("DEBUG: CvTpServer is using Pipe no\\pipe"));
}

TEST_F(CvtpServerTest, PipeIsWritableOnlyForAnAccessModeOfExactlyOne) {
    for (const int accessMode : {0, 2, -1}) {
        const CvtpServer server("pipe", accessMode);
        EXPECT_EQ(server.getIntegerOption(CvtpServer::ACCESS_MODE), 1);
        Io::CvPipe reader;
        EXPECT_THROW(reader.connect("pipe", true, true), Io::ConnectException) << accessMode;
        Io::CvPipe writer;
        EXPECT_NO_THROW(writer.connect("pipe", false, true)) << accessMode;
    }
    const CvtpServer server("pipe", 1);
    Io::CvPipe both;
    EXPECT_NO_THROW(both.connect("pipe", true, true));
}

TEST_F(CvtpServerTest, GivesTheNameBack) {
    { const CvtpServer first("pipe", 1); }
    const CvtpServer second("pipe", 1);
    EXPECT_TRUE(second.isBound());
}

TEST_F(CvtpServerTest, ShutdownBeforeRunDoesNothing) {
    RunningServer service("pipe");
    const LogCapture log;
    service.server.shutdown();
    EXPECT_EQ(log.log(), "");
    EXPECT_FALSE(service.server.isRunning());
    service.start();
    EXPECT_EQ(RawClient("pipe").post("hello"), "hello");
}

}  // namespace

}  // namespace Testing
}  // namespace Corvane
