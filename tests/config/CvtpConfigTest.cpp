#include "cvtp/CvtpConfig.h"

#include <sstream>

#include "tests/config/ConfigTest.h"
#include "tests/support_code/StartedProcess.h"

namespace Corvane {
namespace Testing {

namespace {

using Texts = std::vector<std::string>;

/// The configuration of a process is read once, so each use of it is a process of its own.
class CvtpConfigTest : public ConfigTest {
 protected:
    /// What the process printed; of lines of the log, level and message.
    Texts run(int level, const Texts& actions) {
        Texts command = {CVTP_TEST_CONFIG_PROBE, folder.string(), std::to_string(level)};
        command.insert(command.end(), actions.begin(), actions.end());
        const std::unique_ptr<StartedProcess> process = StartedProcess::start(command);
        std::string output;
        while (process->readMore(output)) {
        }
        EXPECT_EQ(process->wait(), 0);
        Texts texts;
        std::istringstream lines(output);
        for (std::string line; std::getline(lines, line);) {
            texts.push_back(withoutTime(line));
        }
        return texts;
    }

    static const std::string& entries() {
        static const std::string text =
            "<any><CvtpClient function=\"f\" component=\"c\" connect_timeout=\"1\" stale_timeout=\"2\" "
            "buffer_size=\"3\"/><CvtpServer function=\"f\" component=\"c\" idle_timeout=\"30000\" "
            "max_request_processors=\"10\"/></any>";
        return text;
    }

 private:
    static std::string withoutTime(std::string line) {
        while (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        const std::string::size_type message = line.find(":  - ");
        const std::string::size_type end = line.rfind("- Corvane.SOA.Cvtp");
        if (message == std::string::npos || end == std::string::npos) {
            return line;
        }
        return line.substr(0, line.find(" - ")) + ": " + line.substr(message + 5, end - message - 5);
    }
};

}  // namespace

TEST_F(CvtpConfigTest, ReadsTheFileInTheCurrentFolder) {
    const FileVariable unset;
    write("CvtpConfig.xml", entries());
    EXPECT_EQ(run(4, {"get", "client", "f", "c"}),
              (Texts{"INFO: Found cvtp configuration file: CvtpConfig.xml", "loaded", "client 1 2 3"}));
}

TEST_F(CvtpConfigTest, SetsTheOptionsOfAServer) {
    const FileVariable unset;
    write("CvtpConfig.xml", entries());
    EXPECT_EQ(run(0, {"server", "f", "c", "server", "c", "f"}),
              (Texts{"server 10 0 30000 3000 4096", "server 5 0 13000 3000 4096"}));
}

TEST_F(CvtpConfigTest, ReadsTheFileThatTheVariableNames) {
    write("CvtpConfig.xml", "<any/>");
    const FileVariable variable(write("other file.xml", entries()));
    EXPECT_EQ(
        run(3, {"get", "client", "f", "c"}),
        (Texts{"INFO: Found cvtp configuration file: " + pathOf("other file.xml"), "loaded", "client 1 2 3"}));
}

TEST_F(CvtpConfigTest, TakesARelativePathFromTheCurrentFolder) {
    write("other.xml", entries());
    const FileVariable variable("other.xml");
    EXPECT_EQ(run(3, {"client", "f", "c"}),
              (Texts{"INFO: Found cvtp configuration file: other.xml", "client 1 2 3"}));
}

TEST_F(CvtpConfigTest, DoesNotTryTheCurrentFolderWhenTheVariableNamesAMissingFile) {
    write("CvtpConfig.xml", entries());
    const FileVariable variable("missing.xml");
    EXPECT_EQ(run(4, {"get", "client", "f", "c"}),
              (Texts{"ERROR: Cannot find cvtp Configuration file: missing.xml", "not loaded",
                     "DEBUG: CvtpConfiguration not available.", "client 60000 10000 40960"}));
}

TEST_F(CvtpConfigTest, LogsThatTheFileIsMissing) {
    const FileVariable unset;
    EXPECT_EQ(run(1, {"get"}), (Texts{"ERROR: Cannot find cvtp Configuration file: CvtpConfig.xml", "not loaded"}));
    EXPECT_EQ(run(0, {"get"}), Texts{"not loaded"});
}

// On Windows an empty variable is none.
#ifndef _WIN32
TEST_F(CvtpConfigTest, TakesAnEmptyVariableForAPath) {
    write("CvtpConfig.xml", entries());
    const FileVariable variable("");
    EXPECT_EQ(run(4, {"get"}), (Texts{"ERROR: Cannot find cvtp Configuration file: ", "not loaded"}));
}
#endif

TEST_F(CvtpConfigTest, LogsAtInfoThatItFoundTheFile) {
    const FileVariable unset;
    write("CvtpConfig.xml", "<any/>");
    EXPECT_EQ(run(2, {"get"}), Texts{"loaded"});
    EXPECT_EQ(run(3, {"get"}), (Texts{"INFO: Found cvtp configuration file: CvtpConfig.xml", "loaded"}));
}

TEST_F(CvtpConfigTest, LogsThatTheFileIsNotInOrder) {
    const FileVariable unset;
    write("CvtpConfig.xml", "<any>" + entries());
    EXPECT_EQ(run(4, {"get", "client", "f", "c"}),
              (Texts{"INFO: Found cvtp configuration file: CvtpConfig.xml",
                     "ERROR: input ended before all started tags were ended; last tag started is 'any' (line 1, "
                     "column 200)",
                     "not loaded", "DEBUG: CvtpConfiguration not available.", "client 60000 10000 40960"}));
}

TEST_F(CvtpConfigTest, IsMadeOnceWhenManyThreadsAskForIt) {
    const FileVariable unset;
    write("CvtpConfig.xml", entries());
    EXPECT_EQ(run(3, {"threads"}),
              (Texts{"INFO: Found cvtp configuration file: CvtpConfig.xml", "instances 1", "client 1 2 3"}));
}

TEST_F(CvtpConfigTest, ReadsTheFileOnceForAllUses) {
    const FileVariable unset;
    write("CvtpConfig.xml", entries());
    EXPECT_EQ(run(3, {"client", "f", "c", "client", "f", "", "get"}),
              (Texts{"INFO: Found cvtp configuration file: CvtpConfig.xml", "client 1 2 3",
                     "client 60000 10000 40960", "loaded"}));
}

// What the application gets to see of it without knowing what is in the library.
TEST_F(CvtpConfigTest, PassesOnAnExceptionThatIsNoStandardOne) {
    const FileVariable unset;
    write("CvtpConfig.xml",
          "<any><CvtpClient buffer_size=\"1\" connect_timeout=\"2s\" stale_timeout=\"3\"/></any>");
    EXPECT_EQ(run(1, {"client", "", ""}),
              (Texts{"ERROR: The attribute connect_timeout of the cvtp configuration file is not a number: \"2s\"",
                     "exception", "client 60000 10000 1"}));
}

// An URL that is also the path of a file: the library opens the file.
TEST_F(CvtpConfigTest, TakesAnUrlForAPath) {
    std::filesystem::create_directories(folder / "file:" / "x");
    write("file:/x/other.xml", entries());
    const FileVariable variable("file:///x/other.xml");
    EXPECT_EQ(run(3, {"client", "f", "c"}),
              (Texts{"INFO: Found cvtp configuration file: file:///x/other.xml", "client 1 2 3"}));
}

}  // namespace Testing
}  // namespace Corvane
