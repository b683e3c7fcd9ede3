#pragma once

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdio>
#include <string>

#include "io/platform/posix/SocketCalls.h"
#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {

/// A test of who has the name of a pipe, and of the files by which that is known.
class NameClaimTest : public PipeTest {
 protected:
    void makeFile(const std::string& name) {
        std::FILE* const file = std::fopen(folder.file(name).c_str(), "w");
        ASSERT_NE(file, nullptr);
        std::fclose(file);
    }
    void makeSocket(const std::string& name) {
        const Io::Platform::FileDescriptor socket = Io::Platform::SocketCalls::createSocket();
        ASSERT_EQ(Io::Platform::SocketCalls::bindTo(socket.get(),
                                                    Io::Platform::SocketCalls::socketAddress(folder.file(name))),
                  0);
    }
    ino_t inodeOf(const std::string& name) {
        struct stat status {};
        EXPECT_EQ(::lstat(folder.file(name).c_str(), &status), 0) << name;
        return status.st_ino;
    }
    static bool canBind(const std::string& name = "pipe", bool readable = true, bool writable = true) {
        try {
            Io::ServerCvPipe server(name, readable, writable);
            return true;
        } catch (Io::BindException&) {
            return false;
        }
    }
    /// `name` is in the way of a server: it fails, says so and leaves it as it is.
    void expectInTheWay(const std::string& name, const std::string& expected, int code, bool writable = true) {
        expectRefusal(name, "it is not " + expected + " of this user", code, writable);
    }
    void expectRefusal(const std::string& name, const std::string& reason, int code, bool writable = true) {
        const ino_t inode = inodeOf(name);
        LogCapture log;
        EXPECT_FALSE(canBind("pipe", true, writable));
        EXPECT_EQ(log.texts(),
                  (Lines{"ERROR: Pipe file " + folder.file(name) + " is in the way and left alone: " + reason + ".",
                         "ERROR: CreateNamedPipe failed: " + std::to_string(code)}));
        EXPECT_EQ(inodeOf(name), inode);
        EXPECT_THAT(folder.names(), ::testing::UnorderedElementsAre(name));
    }
    static void connectAndAccept(Io::ServerCvPipe& server, bool readsToo = true) {
        Io::CvPipe client("pipe", readsToo, true);
        Io::CvPipe accepted;
        server.accept(accepted);
    }
};

}  // namespace Testing
}  // namespace Corvane
