#include <fcntl.h>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

#include "io/platform/posix/FileDescriptor.h"
#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using Platform::FileDescriptor;

using PipeListenerTest = PipeTest;

/// Leaves the process without a free descriptor until it is destroyed.
class FullDescriptorTable {
 public:
    FullDescriptorTable() {
        ::getrlimit(RLIMIT_NOFILE, &before);
        rlimit small = before;
        small.rlim_cur = 200;
        ::setrlimit(RLIMIT_NOFILE, &small);
        for (;;) {
            FileDescriptor filler(::open("/dev/null", O_RDONLY | O_CLOEXEC));
            if (!filler.isOpen()) {
                return;
            }
            fillers.push_back(std::move(filler));
        }
    }
    ~FullDescriptorTable() { ::setrlimit(RLIMIT_NOFILE, &before); }
    FullDescriptorTable(const FullDescriptorTable&) = delete;
    FullDescriptorTable& operator=(const FullDescriptorTable&) = delete;

 private:
    rlimit before{};
    std::vector<FileDescriptor> fillers;
};

/// One accept for which there is no descriptor.
void expectFailureAfterAPause(ServerCvPipe& server) {
    CvPipe accepted;
    StopWatch watch;
    EXPECT_EQ(messageOf<CvPipeException>([&] { server.accept(accepted); }), "acceptPipe failed");
    EXPECT_GE(watch.elapsed(), 100);
    EXPECT_FALSE(accepted.isBound());
}

TEST_F(PipeListenerTest, AFullDescriptorTableMakesAcceptPauseAndLosesNoClient) {
    ServerCvPipe server("pipe", true, true);
    CvPipe client("pipe", true, true);
    writeText(client, "patient");
    LogCapture log;
    {
        // The undefined behaviour sanitizer needs descriptors to look at a class for the first time. It gets its
        // look here.
        FakeSystem system;
        system.on("accept4", {failure(EMFILE)});
        expectFailureAfterAPause(server);
    }
    {
        FullDescriptorTable full;
        expectFailureAfterAPause(server);
        expectFailureAfterAPause(server);
    }
    const Lines attempt = {"DEBUG: Calling ConnectNamedPipe.", "DEBUG: ServerCvPipe_acceptPipe error = 24",
                           "ERROR: Connect error: 24", "DEBUG: ServerCvPipe_acceptPipe retval = 3",
                           "DEBUG: bindPipe: handle=N event=-1"};
    Lines expected;
    for (int i = 0; i < 3; ++i) {
        expected.insert(expected.end(), attempt.begin(), attempt.end());
    }
    EXPECT_EQ(maskedTexts(log), expected);
    CvPipe accepted;
    server.accept(accepted);
    EXPECT_EQ(readSome(accepted), "patient");
}

TEST_F(PipeListenerTest, CloseEndsThePauseAfterAFailure) {
    ServerCvPipe server("pipe", true, true);
    FakeSystem system;
    system.always("accept4", ENFILE);
    LogCapture log(1);
    std::string message;
    std::thread accepting([&] {
        // Round after round, as a server does.
        while (message.empty() || message == "acceptPipe failed") {
            try {
                CvPipe accepted;
                server.accept(accepted);
                message = "accepted";
            } catch (CvPipeException& e) {
                message = e.getMessage();
            } catch (IllegalStateException& e) {
                message = e.getMessage();
            }
        }
    });
    EXPECT_TRUE(log.waitFor("ERROR: Connect error: 23"));
    server.close();
    accepting.join();
    EXPECT_TRUE(message == "accept aborted" || message == "Pipe is closed.") << message;
}

TEST_F(PipeListenerTest, SignalsNeitherShortenNorLengthenAnAcceptTimeout) {
    ServerCvPipe server("pipe", true, true);
    server.setAcceptTimeout(300);
    SignalStorm storm(::pthread_self());
    CvPipe accepted;
    StopWatch watch;
    EXPECT_THROW(server.accept(accepted), TimeoutException);
    EXPECT_GE(watch.elapsed(), 300);
    EXPECT_LT(watch.elapsed(), 300 + 8000);
    EXPECT_GT(storm.getSent(), 3);
}

TEST_F(PipeListenerTest, AClientThatHasGoneAgainIsAcceptedAndAtItsEnd) {
    ServerCvPipe server("pipe", true, true);
    {
        CvPipe client("pipe", true, true);
        writeText(client, "farewell");
    }
    CvPipe accepted;
    server.accept(accepted);
    EXPECT_EQ(readSome(accepted), "farewell");
    EXPECT_EQ(readSome(accepted), "end of data");
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
