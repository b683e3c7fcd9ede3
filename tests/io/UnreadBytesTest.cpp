// Bytes that the reader of a pipe has taken back are as if they had not come yet.

#include <gtest/gtest.h>

#include <istream>
#include <memory>
#include <string>
#include <string_view>

#include "io/PipeBufferBase.h"
#include "io/platform/PipePlatform.h"
#include "tests/io/PipeTest.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using Buffer = PipeBufferBase<char>;

class UnreadBytesTest : public PipeTest {
 protected:
    UnreadBytesTest() { in.pubsetbuf(memory, sizeof memory); }

    std::string read(std::size_t n) {
        std::string text(n, ' ');
        text.resize(static_cast<std::size_t>(in.readSome(&text[0], static_cast<std::streamsize>(n))));
        return text;
    }
    void unread(const std::string& text) {
        const std::string_view block(text);
        in.unread(nullptr, &block, &block + 1, std::make_unique<char[]>(text.size() + sizeof memory));
    }

    char memory[8];
    Connection connection;
    Buffer& in = *Buffer::from(connection.accepted.getInputStream()->rdbuf());
};

TEST_F(UnreadBytesTest, ComeAgainBeforeAllOthers) {
    writeText(connection.client, "0123456789abcdefghij");
    EXPECT_EQ(read(20), "0123456789abcdefghij");
    unread("3456789abcdefghij");
    writeText(connection.client, "klm");
    EXPECT_EQ(in.sbumpc(), '3');
    EXPECT_EQ(in.ahead(), "456789a");
    EXPECT_EQ(read(100), "456789a");
    EXPECT_EQ(read(100), "bcdefghij");
    EXPECT_EQ(read(100), "klm");
}

TEST_F(UnreadBytesTest, MayBeTakenBackAgain) {
    writeText(connection.client, "0123456789abcdefghij");
    EXPECT_EQ(read(20), "0123456789abcdefghij");
    unread("0123456789abcdefghij");
    EXPECT_EQ(read(12), "0123456789ab");
    unread("456789ab");
    EXPECT_EQ(read(3), "456");
    EXPECT_EQ(in.ahead(), "789ab");
    EXPECT_EQ(in.ahead().size(), 5u);
    unread("");
    EXPECT_EQ(read(10), "789abcdefg");
    EXPECT_EQ(read(10), "hij");
    unread("abcdefghij");
    EXPECT_EQ(read(20), "abcdefghij");
}

TEST_F(UnreadBytesTest, GoToWhoeverReadsThePipe) {
    writeText(connection.client, "0123456789");
    EXPECT_EQ(read(10), "0123456789");
    unread("456789");
    EXPECT_EQ(readSome(connection.accepted, 5, 4), "4567");
    EXPECT_EQ(readSome(connection.accepted, 5, 0), "end of data");
    EXPECT_EQ(readSome(connection.accepted, 5, 4), "89");
    EXPECT_THROW(readSome(connection.accepted, 5, 4), TimeoutException);
}

TEST_F(UnreadBytesTest, ComeBeforeTheEnd) {
    writeText(connection.client, "0123456789");
    EXPECT_EQ(read(10), "0123456789");
    connection.client.close();
    unread("789");
    EXPECT_EQ(in.sbumpc(), '7');
    EXPECT_EQ(read(8), "89");
    EXPECT_EQ(read(8), "");
}

TEST_F(UnreadBytesTest, AreNotReadFromAClosedPipe) {
    writeText(connection.client, "0123456789");
    EXPECT_EQ(read(10), "0123456789");
    unread("0123456789");
    connection.accepted.close();
    EXPECT_EQ(messageOf<InterruptedException>([&] { in.sgetc(); }), "CvPipe read aborted.");
    EXPECT_EQ(messageOf<InterruptedException>([&] { read(10); }), "CvPipe read aborted.");
    EXPECT_EQ(messageOf<InterruptedException>([&] { readSome(connection.accepted); }), "CvPipe read aborted.");
}

TEST_F(UnreadBytesTest, AreForgottenWithTheirConnection) {
    writeText(connection.accepted, "0123456789");
    Buffer& clientIn = *Buffer::from(connection.client.getInputStream()->rdbuf());
    char clientMemory[8];
    clientIn.pubsetbuf(clientMemory, sizeof clientMemory);
    char target[10];
    EXPECT_EQ(clientIn.readSome(target, 10), 10);
    const std::string_view block(target, 10);
    clientIn.unread(nullptr, &block, &block + 1, std::make_unique<char[]>(20));
    connection.client.close();
    connection.client.connect();
    CvPipe accepted;
    connection.server.accept(accepted);
    writeText(accepted, "new");
    EXPECT_EQ(clientIn.sgetc(), 'n');
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
