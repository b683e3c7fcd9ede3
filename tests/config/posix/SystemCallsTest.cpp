// Lists the system calls of a process that loads a file: it must open that file and nothing else.

#include <sstream>

#include "tests/config/BadFiles.h"
#include "tests/config/ConfigTest.h"
#include "tests/support_code/StartedProcess.h"

namespace Corvane {
namespace Testing {

namespace {

using Texts = std::vector<std::string>;

std::string contentOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

class SystemCallsTest : public ConfigTest {
 protected:
    /// The calls about files, the network and processes between the two marks of the process. Those about a
    /// descriptor that is open already are left out: they have no path.
    Texts callsToLoad(const std::string& content) {
        const FileVariable variable("file.xml");
        write("file.xml", content);
        // The leak checker cannot work in a process that is watched.
        const std::unique_ptr<StartedProcess> process =
            StartedProcess::start({"/usr/bin/env", "strace", "-f", "-qq", "-E", "ASAN_OPTIONS=detect_leaks=0", "-e",
                                   "trace=%file,%network,%process", "-o", pathOf("calls"), CVTP_TEST_CONFIG_PROBE,
                                   folder.string(), "0", "get"},
                                  pathOf("errors"));
        std::string output;
        while (process->readMore(output)) {
        }
        EXPECT_EQ(process->wait(), 0) << "strace does not run here: " << contentOf(pathOf("errors"));
        EXPECT_TRUE(output == "loaded\n" || output == "not loaded\n") << output;
        return callsBetweenMarks();
    }

 private:
    Texts callsBetweenMarks() const {
        Texts calls;
        bool isBetween = false;
        bool hasEnded = false;
        std::ifstream lines(pathOf("calls"));
        for (std::string line; std::getline(lines, line);) {
            if (line.find("\"config-probe-begin\"") != std::string::npos) {
                isBetween = true;
            } else if (line.find("\"config-probe-end\"") != std::string::npos) {
                hasEnded = isBetween;
                isBetween = false;
            } else if (isBetween && line.find("AT_EMPTY_PATH") == std::string::npos) {
                calls.push_back(line);
            }
        }
        EXPECT_TRUE(hasEnded) << "the list of calls lacks the marks";
        return calls;
    }
};

/// Each call is about the file itself.
void expectOnlyTheFile(const Texts& calls) {
    EXPECT_FALSE(calls.empty());
    for (const std::string& call : calls) {
        EXPECT_NE(call.find("(AT_FDCWD, \"file.xml\", "), std::string::npos) << call;
    }
}

}  // namespace

TEST_F(SystemCallsTest, AGoodFileIsAllThatIsOpened) {
    expectOnlyTheFile(callsToLoad(
        "<!DOCTYPE any [<!ENTITY e \"5\"><!NOTATION n SYSTEM \"other\">]>\n<?xml-stylesheet href=\"other\"?>\n"
        "<any xmlns=\"http://127.0.0.1:9/a\" xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\" "
        "xsi:noNamespaceSchemaLocation=\"other\" xsi:schemaLocation=\"http://127.0.0.1:9/a other\">"
        "<x:include xmlns:x=\"http://www.w3.org/2001/XInclude\" href=\"other\"/></any>"));
}

TEST_F(SystemCallsTest, AFileThatRefersToOthersIsAllThatIsOpened) {
    for (const BadFile& file : outwardFiles(write("other", "<!ELEMENT a ANY>"))) {
        SCOPED_TRACE(file.name);
        expectOnlyTheFile(callsToLoad(file.content));
    }
}

TEST_F(SystemCallsTest, AMalformedFileIsAllThatIsOpened) {
    for (const BadFile& file : malformedFiles()) {
        SCOPED_TRACE(file.name);
        expectOnlyTheFile(callsToLoad(file.content));
    }
}

}  // namespace Testing
}  // namespace Corvane
