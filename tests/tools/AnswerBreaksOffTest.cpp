// What the program does when a server's answer is cut short; the servers here write their bytes by hand.

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "io/CvPipe.h"
#include "io/ServerCvPipe.h"
#include "tests/support_code/StartedProcess.h"
#include "tests/support_code/TemporaryPipeDirectory.h"

namespace {

using Corvane::Io::CvPipe;
using Corvane::Io::ServerCvPipe;
using Corvane::Testing::StartedProcess;
using Corvane::Testing::TemporaryPipeDirectory;

class AnswerBreaksOff : public testing::Test {
 protected:
    /// Posts an empty body to a server that answers with `answer` and closes.
    ///
    /// @return what the program ended with.
    int postTo(const std::string& answer) {
        ServerCvPipe server("cut", true, true);
        const auto program = StartedProcess::start({CVTP_TOOL, "post", pipeName(), "/a"}, errorFile());
        std::thread serving([&] { serve(server, answer); });
        program->endInput();
        output.clear();
        while (program->readMore(output)) {
        }
        const int status = program->wait();
        serving.join();
        return status;
    }

    /// What it wrote to its standard error.
    std::string errors() const {
        std::ifstream file(errorFile(), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

    /// How its messages begin.
    static std::string prefix() { return "cvtp: pipe '" + pipeName() + "': "; }

    /// What it wrote to its standard output.
    std::string output;

 private:
    static std::string pipeName() { return TemporaryPipeDirectory::nameForOthers("cut"); }

    std::string errorFile() const { return directory.path() + "/err"; }

    static void serve(ServerCvPipe& server, const std::string& answer) {
        CvPipe pipe;
        server.accept(pipe);
        std::string request;
        char byte = 0;
        while (request.find("\r\n\r\n") == std::string::npos && pipe.readPipe(&byte, 0, 1, 0) == 1) {
            request.push_back(byte);
        }
        pipe.writePipe(answer.data(), 0, static_cast<int>(answer.size()));
        pipe.close();
    }

    TemporaryPipeDirectory directory;
};

}  // namespace

TEST_F(AnswerBreaksOff, AWholeAnswerEndsWith0) {
    EXPECT_EQ(0, postTo("CVTP/1.0 200 OK\r\nContent-Length: 3\r\n\r\nabc"));
    EXPECT_EQ("abc", output);
    EXPECT_EQ("", errors());
}

TEST_F(AnswerBreaksOff, ABodyByLengthThatIsCutEndsWith3) {
    EXPECT_EQ(3, postTo("CVTP/1.0 200 OK\r\nContent-Length: 4\r\n\r\nabc"));
    EXPECT_EQ("abc", output);
    EXPECT_EQ(prefix() + "The answer broke off after 3 bytes of its body.\n", errors());
}

TEST_F(AnswerBreaksOff, AChunkedBodyWithoutItsLastChunkEndsWith3) {
    EXPECT_EQ(3, postTo("CVTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n"));
    EXPECT_EQ("abc", output);
    EXPECT_EQ(prefix() + "The answer broke off after 3 bytes of its body.\n", errors());
}

TEST_F(AnswerBreaksOff, NoAnswerAtAllEndsWith3) {
    EXPECT_EQ(3, postTo(""));
    EXPECT_EQ("", output);
    EXPECT_EQ(0u, errors().find(prefix()));
}
