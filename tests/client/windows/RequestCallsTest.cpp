// How many calls of the system a message takes. Both ends of the connection are in this process, so the calls of
// both are counted.

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <string>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/NotifyRequest.h"
#include "cvtp/PostRequest.h"
#include "io/platform/windows/SystemCalls.h"
#include "tests/support_code/RunningServer.h"
#include "tests/support_code/TemporaryPipeDirectory.h"

namespace Corvane {
namespace Testing {
namespace {

using Cvtp::CvtpClient;
using Cvtp::CvtpResponse;
using Cvtp::NotifyRequest;
using Cvtp::PostRequest;

std::atomic<int> reads;
std::atomic<int> writes;

BOOL WINAPI countedRead(HANDLE pipe, LPVOID buffer, DWORD length, LPDWORD count, LPOVERLAPPED record) {
    ++reads;
    return ::ReadFile(pipe, buffer, length, count, record);
}

BOOL WINAPI countedWrite(HANDLE pipe, LPCVOID buffer, DWORD length, LPDWORD count, LPOVERLAPPED record) {
    ++writes;
    return ::WriteFile(pipe, buffer, length, count, record);
}

/// Counts from its construction on, which comes before that of any pipe.
class CountedCalls {
 public:
    CountedCalls() {
        table.readFile = countedRead;
        table.writeFile = countedWrite;
        Io::Platform::substituteCalls(&table);
        reset();
    }
    ~CountedCalls() { Io::Platform::substituteCalls(nullptr); }
    CountedCalls(const CountedCalls&) = delete;
    CountedCalls& operator=(const CountedCalls&) = delete;

    static void reset() {
        reads = 0;
        writes = 0;
    }

 private:
    Io::Platform::SystemCalls table;
};

class RequestCallsTest : public ::testing::Test {
 protected:
    RequestCallsTest() { service.start(); }

    std::string post(const std::string& body) {
        PostRequest request(&client, "pipe", "/r");
        request.setBody(body.data(), body.size());
        const std::unique_ptr<CvtpResponse> response(request.execute());
        char* data = nullptr;
        std::size_t length = 0;
        response->getBody(data, length);
        const std::string text(data, length);
        std::free(data);
        return text;
    }

    TemporaryPipeDirectory directory;
    CountedCalls calls;
    RunningServer service{"pipe"};
    CvtpClient client;
};

TEST_F(RequestCallsTest, ASmallPostTakesOneWriteAndOneReadOnEachSide) {
    const int COUNT = 50;
    EXPECT_EQ(post("warm"), "warm");
    CountedCalls::reset();
    for (int i = 0; i < COUNT; ++i) {
        EXPECT_EQ(post("body"), "body");
    }
    EXPECT_EQ(writes, 2 * COUNT);
    // The server's reads each begin before their request is there: at most one more has begun, and that for the
    // first request may have been counted before.
    EXPECT_GE(reads, 2 * COUNT - 1);
    EXPECT_LE(reads, 2 * COUNT + 1);
}

TEST_F(RequestCallsTest, ASmallNotifyTakesOneWrite) {
    const int COUNT = 50;
    for (int i = 0; i < COUNT + 1; ++i) {
        NotifyRequest request(&client, "pipe", "/r");
        request.setBody("body", 4);
        request.execute();
        if (i == 0) {
            CountedCalls::reset();
        }
    }
    EXPECT_EQ(writes, COUNT);
}

TEST_F(RequestCallsTest, ALargeBodyIsWrittenInLargeBlocks) {
    const std::string body(100000, 'x');
    EXPECT_EQ(post("warm"), "warm");
    CountedCalls::reset();
    EXPECT_EQ(post(body), body);
    // Each way the head, 98,304 bytes in blocks of 16 KiB, and the rest.
    EXPECT_EQ(writes, 2 * (1 + 6 + 1));
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
