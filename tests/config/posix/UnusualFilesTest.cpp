#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cvtp/internal/ConfigDocument.h"
#include "tests/config/ConfigTest.h"

namespace Corvane {
namespace Testing {

namespace {

using Internal::Cvtp::ConfigDocument;

using Texts = std::vector<std::string>;

class UnusualFilesTest : public ConfigTest {
 protected:
    static Texts load(const std::string& path) {
        const LogCapture log;
        ConfigDocument document;
        document.load(path);
        EXPECT_FALSE(document.isLoaded());
        return log.texts();
    }
};

}  // namespace

TEST_F(UnusualFilesTest, AFileThatMayNotBeReadIsRefused) {
    const std::string path = write("file.xml", "<any/>");
    ::chmod(path.c_str(), 0);
    std::filesystem::permissions(folder, std::filesystem::perms::all);
    const uid_t user = ::geteuid();
    if (user == 0) {
        // Root may read everything, so this thread is somebody else for a while.
        ASSERT_EQ(::seteuid(65534), 0);
    }
    const Texts texts = load(path);
    if (user == 0) {
        ASSERT_EQ(::seteuid(0), 0);
    }
    EXPECT_EQ(texts, Texts{"ERROR: Cannot open the cvtp configuration file: " + path});
}

// It can be opened, and its first page is not there.
TEST_F(UnusualFilesTest, AFileThatCannotBeReadFromIsRefused) {
    EXPECT_EQ(load("/proc/self/mem"), Texts{"ERROR: Cannot read the cvtp configuration file: /proc/self/mem"});
}

TEST_F(UnusualFilesTest, APipeIsRefusedAndNotWaitedFor) {
    const std::string path = pathOf("pipe");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_EQ(load(path), Texts{"ERROR: The cvtp configuration file is not a regular file: " + path});
}

TEST_F(UnusualFilesTest, ADeviceIsRefused) {
    EXPECT_EQ(load("/dev/zero"), Texts{"ERROR: The cvtp configuration file is not a regular file: /dev/zero"});
}

TEST_F(UnusualFilesTest, ALinkToAFileIsFollowed) {
    const std::string path = pathOf("link");
    std::filesystem::create_symlink(write("file.xml", "<any/>"), path);
    const LogCapture log;
    ConfigDocument document;
    document.load(path);
    EXPECT_TRUE(document.isLoaded());
    EXPECT_EQ(log.texts(), Texts());
}

TEST_F(UnusualFilesTest, APathWithAnyBytesIsOpened) {
    ConfigDocument document;
    document.load(write("\xe4\xff %41&#65; \"x\".xml", "<any/>"));
    EXPECT_TRUE(document.isLoaded());
}

}  // namespace Testing
}  // namespace Corvane
