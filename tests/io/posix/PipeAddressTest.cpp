#include "io/platform/posix/PipeAddress.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/io/posix/NameClaimTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::IsEmpty;

using PipeAddressTest = NameClaimTest;

TEST_F(PipeAddressTest, NamesThatDifferByTheCaseOfLettersAreOne) {
    ServerCvPipe server("MyService", true, true);
    CvPipe client("mYsERVICE", true, true);
    CvPipe accepted;
    server.accept(accepted);
    EXPECT_FALSE(canBind("myservice"));
}

TEST_F(PipeAddressTest, EveryNameWorks) {
    std::string all;
    for (int c = 1; c < 256; ++c) {
        all += c == '\\' ? std::string() : std::string(1, static_cast<char>(c));
    }
    const std::string LONG(255, 'n');
    const std::vector<std::string> names = {all,
                                            "../x",
                                            "..",
                                            ".",
                                            "/",
                                            "/etc/x",
                                            "a/../../b",
                                            LONG + "1",
                                            LONG + "2",
                                            " ",
                                            " a b ",
                                            "x",
                                            std::string(100, 'n'),
                                            std::string(100, '/'),
                                            "Gr\xC3\xBC\xC3\x9F"
                                            "e \xE6\x97\xA5",
                                            "SERVICE",
                                            "service"};
    for (const std::string& name : names) {
        ServerCvPipe server(name, true, true);
        CvPipe client(name, true, true);
        CvPipe accepted;
        server.accept(accepted);
        EXPECT_EQ(folder.names().size(), 2u);
        EXPECT_THROW(CvPipe(LONG + "3", true, true), ConnectException);
    }
}

TEST_F(PipeAddressTest, AWrongNameIsRefusedAndLogged) {
    const std::string REASON = "' refused: it must have 1 to 256 bytes and neither a backslash nor a NUL.";
    LogCapture log;
    Lines expected;
    const std::vector<std::pair<std::string, std::string>> namesAndHowTheyAreShown = {
        {std::string("a\0\nb", 4), "a  b"},
        {"a\\b", "a\\b"},
        {"\\", "\\"},
        {std::string(257, 'x'), std::string(256, 'x')}};
    for (const auto& [name, shown] : namesAndHowTheyAreShown) {
        EXPECT_FALSE(canBind(name));
        EXPECT_EQ(messageOf<ConnectException>([&, &name = name] { CvPipe(name, true, true); }),
                  "Could not connect to pipe.");
        expected.insert(expected.end(),
                        {"ERROR: Pipe name '" + shown + REASON, "ERROR: CreateNamedPipe failed: 22",
                         "ERROR: Pipe name '" + shown + REASON, "ERROR: Could not open pipe. GLE=22"});
    }
    // A client without a name is not even bound.
    EXPECT_FALSE(canBind(""));
    expected.insert(expected.end(), {"ERROR: Pipe name '" + REASON, "ERROR: CreateNamedPipe failed: 22"});
    EXPECT_EQ(log.texts(), expected);
    EXPECT_THAT(folder.names(), IsEmpty());
}

TEST_F(PipeAddressTest, AFolderWithoutRoomForASocketIsRefused) {
    const std::string deep = folder.file(std::string(100, 'd'));
    std::filesystem::create_directory(deep);
    ::setenv("CVTP_PIPE_DIR", deep.c_str(), 1);
    LogCapture log;
    EXPECT_FALSE(canBind());
    EXPECT_EQ(log.texts(), (Lines{"ERROR: Pipe folder " + deep + "/ refused: its path is too long for a socket.",
                                  "ERROR: CreateNamedPipe failed: 36"}));
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
