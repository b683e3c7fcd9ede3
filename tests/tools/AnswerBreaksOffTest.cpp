// What the program does when a server's answer is cut short; the servers here write their bytes by hand.

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include "io/CvPipe.h"
#include "io/ServerCvPipe.h"
#include "tests/support_code/TemporaryPipeDirectory.h"

namespace {

using Corvane::Io::CvPipe;
using Corvane::Io::ServerCvPipe;

class AnswerBreaksOff : public testing::Test {
 protected:
    /// Posts an empty body to a server that answers with `answer` and closes.
    ///
    /// @return what the program ended with.
    int postTo(const std::string& answer) {
        ServerCvPipe server("cut", true, true);
        std::thread serving([&] { serve(server, answer); });
        const std::string command = std::string(CVTP_TOOL) + " post cut /a >" + path("out") + " 2>" + path("err");
        const int status = std::system(command.c_str());
        serving.join();
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string contentOf(const std::string& name) const {
        std::ifstream file(path(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }

 private:
    std::string path(const std::string& name) const { return directory.path() + "/" + name; }

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

    Corvane::Testing::TemporaryPipeDirectory directory;
};

}  // namespace

TEST_F(AnswerBreaksOff, AWholeAnswerEndsWith0) {
    EXPECT_EQ(0, postTo("CVTP/1.0 200 OK\r\nContent-Length: 3\r\n\r\nabc"));
    EXPECT_EQ("abc", contentOf("out"));
    EXPECT_EQ("", contentOf("err"));
}

TEST_F(AnswerBreaksOff, ABodyByLengthThatIsCutEndsWith3) {
    EXPECT_EQ(3, postTo("CVTP/1.0 200 OK\r\nContent-Length: 4\r\n\r\nabc"));
    EXPECT_EQ("abc", contentOf("out"));
    EXPECT_EQ("cvtp: pipe 'cut': The answer broke off after 3 bytes of its body.\n", contentOf("err"));
}

TEST_F(AnswerBreaksOff, AChunkedBodyWithoutItsLastChunkEndsWith3) {
    EXPECT_EQ(3, postTo("CVTP/1.0 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n"));
    EXPECT_EQ("abc", contentOf("out"));
    EXPECT_EQ("cvtp: pipe 'cut': The answer broke off after 3 bytes of its body.\n", contentOf("err"));
}

TEST_F(AnswerBreaksOff, NoAnswerAtAllEndsWith3) {
    EXPECT_EQ(3, postTo(""));
    EXPECT_EQ("", contentOf("out"));
    EXPECT_EQ(0u, contentOf("err").find("cvtp: pipe 'cut': "));
}
