#include "io/platform/posix/PipeDirectory.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using Io::Platform::findPipeDirectory;

class PipeDirectoryTest : public ::testing::Test {
 protected:
    PipeDirectoryTest() {
        ::unsetenv("CVTP_PIPE_DIR");
        ::unsetenv("XDG_RUNTIME_DIR");
        // Whatever the umask is; some tests run as other users.
        ::chmod(folder.getPath().c_str(), 0755);
    }
    ~PipeDirectoryTest() override {
        ::unsetenv("CVTP_PIPE_DIR");
        ::unsetenv("XDG_RUNTIME_DIR");
    }

    void makeSystem(unsigned mode) {
        std::filesystem::create_directory(system);
        ASSERT_EQ(::chmod(system.c_str(), mode), 0);
    }
    int find(bool create = false) { return findPipeDirectory(system, create, found); }

    TemporaryFolder folder;
    const std::string system = folder.file("system");
    const std::string runtime = folder.file("cvtp");
    std::string found;
};

TEST_F(PipeDirectoryTest, TheVariableComesFirstAndItsFolderIsTheCallersChoice) {
    makeSystem(0755);
    const std::string own = folder.file("own");
    std::filesystem::create_directory(own);
    ASSERT_EQ(::chmod(own.c_str(), 0777), 0);
    ::setenv("CVTP_PIPE_DIR", (own + "//").c_str(), 1);
    EXPECT_EQ(find(), 0);
    EXPECT_EQ(found, own);
    const std::string link = folder.file("link");
    std::filesystem::create_directory_symlink(own, link);
    ::setenv("CVTP_PIPE_DIR", link.c_str(), 1);
    EXPECT_EQ(find(), 0);
    EXPECT_EQ(found, link);
    ::setenv("CVTP_PIPE_DIR", "//", 1);
    EXPECT_EQ(find(), 0);
    EXPECT_EQ(found, "/");
}

TEST_F(PipeDirectoryTest, TheVariableMustNameAFolderAndNoneIsMade) {
    const std::string missing = folder.file("missing");
    ::setenv("CVTP_PIPE_DIR", missing.c_str(), 1);
    LogCapture log;
    EXPECT_EQ(find(true), ENOENT);
    EXPECT_EQ(log.texts(), Lines{"ERROR: Pipe folder " + missing + " refused: CVTP_PIPE_DIR names no folder."});
    EXPECT_FALSE(std::filesystem::exists(missing));
}

TEST_F(PipeDirectoryTest, AChosenFolderThatCannotBeReachedIsRefusedAndDeniesAccess) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const std::string chosen = folder.file("closed/chosen");
    std::filesystem::create_directories(chosen);
    ASSERT_EQ(::chmod(folder.file("closed").c_str(), 0700), 0);
    ::setenv("CVTP_PIPE_DIR", chosen.c_str(), 1);
    LogCapture log;
    ChildProcess user([&] {
        if (::setgid(NOBODY) != 0 || ::setuid(NOBODY) != 0 || find() != EACCES) {
            return 1;
        }
        return messageOf<Io::ConnectException>([] { Io::CvPipe("pipe", true, true); }) == "Access denied." ? 0 : 2;
    });
    EXPECT_EQ(user.wait(), 0);
    EXPECT_EQ(log.texts(),
              Lines(2, "ERROR: Pipe folder " + chosen + " refused: it cannot be looked at, error 13."));
}

TEST_F(PipeDirectoryTest, TheSystemFolderComesNext) {
    ::setenv("CVTP_PIPE_DIR", "", 1);
    ::setenv("XDG_RUNTIME_DIR", folder.getPath().c_str(), 1);
    makeSystem(01777);
    EXPECT_EQ(find(true), 0);
    EXPECT_EQ(found, system);
    EXPECT_FALSE(std::filesystem::exists(runtime));
}

TEST_F(PipeDirectoryTest, AFolderThatOthersMayWriteToNeedsTheStickyBit) {
    for (const unsigned mode : {0777U, 0770U, 0702U}) {
        makeSystem(mode);
        LogCapture log;
        EXPECT_EQ(find(), EPERM);
        EXPECT_EQ(log.texts(), Lines{"ERROR: Pipe folder " + system +
                                     " refused: others may write to it and it has no sticky bit."});
    }
    makeSystem(01770);
    EXPECT_EQ(find(), 0);
}

TEST_F(PipeDirectoryTest, ALinkIsRefused) {
    makeSystem(0755);
    std::filesystem::rename(system, folder.file("target"));
    std::filesystem::create_directory_symlink(folder.file("target"), system);
    LogCapture log;
    EXPECT_EQ(find(), ELOOP);
    EXPECT_EQ(log.texts(), Lines{"ERROR: Pipe folder " + system + " refused: it is a link."});
}

TEST_F(PipeDirectoryTest, AnotherUsersFolderIsRefused) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a folder away";
    }
    makeSystem(0755);
    ChildProcess user([&] { return ::setuid(NOBODY) == 0 && find() == 0 ? 0 : 1; });
    EXPECT_EQ(user.wait(), 0) << "a folder of root is everybody's";
    ASSERT_EQ(::chown(system.c_str(), NOBODY, NOBODY), 0);
    LogCapture log;
    EXPECT_EQ(find(), EPERM);
    EXPECT_EQ(log.texts(), Lines{"ERROR: Pipe folder " + system + " refused: it belongs to another user."});
    ChildProcess owner([&] { return ::setuid(NOBODY) == 0 && find() == 0 ? 0 : 1; });
    EXPECT_EQ(owner.wait(), 0);
}

TEST_F(PipeDirectoryTest, TheRuntimeFolderIsMadeByAServerForItsUserAlone) {
    ::setenv("XDG_RUNTIME_DIR", (folder.getPath() + "/").c_str(), 1);
    LogCapture log;
    EXPECT_EQ(find(false), ENOENT);
    EXPECT_FALSE(std::filesystem::exists(runtime));
    EXPECT_EQ(find(true), 0);
    EXPECT_EQ(found, runtime);
    struct stat status {};
    ASSERT_EQ(::stat(runtime.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700U);
    EXPECT_EQ(find(false), 0);
    EXPECT_EQ(find(true), 0);
    EXPECT_EQ(log.texts(), Lines{});
    ASSERT_EQ(::chmod(runtime.c_str(), 0777), 0);
    EXPECT_EQ(find(true), EPERM);
}

TEST_F(PipeDirectoryTest, TheRuntimeFolderIsLookedAtLikeTheSystemFolder) {
    ::setenv("XDG_RUNTIME_DIR", folder.getPath().c_str(), 1);
    std::filesystem::create_directory(folder.file("target"));
    std::filesystem::create_directory_symlink(folder.file("target"), runtime);
    LogCapture log;
    EXPECT_EQ(find(true), ELOOP);
    EXPECT_EQ(find(false), ELOOP);
    std::filesystem::remove(runtime);
    std::filesystem::create_directory(runtime);
    ASSERT_EQ(::chmod(runtime.c_str(), 0777), 0);
    EXPECT_EQ(find(true), EPERM);
    ASSERT_EQ(::chmod(runtime.c_str(), 01777), 0);
    EXPECT_EQ(find(true), 0);
    const std::string refused = "ERROR: Pipe folder " + runtime + " refused: ";
    EXPECT_EQ(log.texts(), (Lines{refused + "it is a link.", refused + "it is a link.",
                                  refused + "others may write to it and it has no sticky bit."}));
}

TEST_F(PipeDirectoryTest, ARuntimeFolderInWhichOthersCouldSwapOursIsRefused) {
    // A server that runs on another user's account could be given that user's variable, for example by su.
    ::setenv("XDG_RUNTIME_DIR", folder.getPath().c_str(), 1);
    const std::string refused = "ERROR: Pipe folder " + runtime + " refused: XDG_RUNTIME_DIR cannot be trusted: ";
    LogCapture log;
    for (const unsigned mode : {0777U, 0720U, 0702U}) {
        ASSERT_EQ(::chmod(folder.getPath().c_str(), mode), 0);
        EXPECT_EQ(find(true), EPERM);
        EXPECT_EQ(find(false), EPERM);
    }
    EXPECT_EQ(log.texts(), Lines(6, refused + "others may write to it and it has no sticky bit."));
    // Nothing was put there, where its owner could not use it.
    EXPECT_FALSE(std::filesystem::exists(runtime));
    ASSERT_EQ(::chmod(folder.getPath().c_str(), 01777), 0);
    EXPECT_EQ(find(true), 0);
}

TEST_F(PipeDirectoryTest, ARuntimeFolderOfAnotherUserIsRefused) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can give a folder away";
    }
    ::setenv("XDG_RUNTIME_DIR", folder.getPath().c_str(), 1);
    ASSERT_EQ(::chown(folder.getPath().c_str(), NOBODY, NOBODY), 0);
    LogCapture log;
    EXPECT_EQ(find(true), EPERM);
    EXPECT_FALSE(std::filesystem::exists(runtime));
    EXPECT_EQ(log.texts(), Lines{"ERROR: Pipe folder " + runtime +
                                 " refused: XDG_RUNTIME_DIR cannot be trusted: it belongs to another user."});
    ChildProcess owner([&] { return ::setuid(NOBODY) == 0 && find(true) == 0 ? 0 : 1; });
    EXPECT_EQ(owner.wait(), 0);
}

/// Runs as a user of whom the system knows nothing but the number, and gives what became of his folder in /tmp.
int findAs(unsigned user, bool create) {
    ChildProcess child([user, create] {
        std::string found;
        return ::setgid(user) == 0 && ::setuid(user) == 0 ? findPipeDirectory("/none", create, found) : 255;
    });
    return child.wait();
}

TEST_F(PipeDirectoryTest, TheFolderInTmpIsLookedAtLikeTheSystemFolder) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const unsigned USER = 1900000000U + static_cast<unsigned>(::getpid());
    const std::string path = "/tmp/cvtp-" + std::to_string(USER);
    const std::string refused = "ERROR: Pipe folder " + path + " refused: ";
    LogCapture log;
    EXPECT_EQ(findAs(USER, false), ENOENT);
    EXPECT_EQ(findAs(USER, true), 0);
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, S_IFDIR | 0700U);
    EXPECT_EQ(status.st_uid, USER);
    EXPECT_EQ(::chmod(path.c_str(), 0722), 0);
    EXPECT_EQ(findAs(USER, true), EPERM);
    // A stranger was there first.
    EXPECT_EQ(::chmod(path.c_str(), 0700), 0);
    EXPECT_EQ(::chown(path.c_str(), NOBODY, NOBODY), 0);
    EXPECT_EQ(findAs(USER, true), EPERM);
    std::filesystem::remove(path);
    std::filesystem::create_directory_symlink(folder.getPath(), path);
    EXPECT_EQ(findAs(USER, true), ELOOP);
    std::filesystem::remove(path);
    EXPECT_EQ(log.texts(), (Lines{refused + "others may write to it and it has no sticky bit.",
                                  refused + "it belongs to another user.", refused + "it is a link."}));
}

TEST_F(PipeDirectoryTest, AServerInARefusedFolderDoesNotStartAndAClientDoesNotConnect) {
    ::setenv("XDG_RUNTIME_DIR", folder.getPath().c_str(), 1);
    if (std::filesystem::exists(Io::Platform::SYSTEM_PIPE_DIRECTORY)) {
        GTEST_SKIP() << "the folder of the system comes before the user's own";
    }
    std::filesystem::create_directory(runtime);
    ASSERT_EQ(::chmod(runtime.c_str(), 0777), 0);
    const std::string refused =
        "ERROR: Pipe folder " + runtime + " refused: others may write to it and it has no sticky bit.";
    LogCapture log;
    EXPECT_EQ(messageOf<Io::BindException>([] { Io::ServerCvPipe("pipe", true, true); }), "CreateNamedPipe failed");
    EXPECT_EQ(messageOf<Io::ConnectException>([] { Io::CvPipe("pipe", true, true); }),
              "Could not connect to pipe.");
    EXPECT_EQ(log.texts(),
              (Lines{refused, "ERROR: CreateNamedPipe failed: 1", refused, "ERROR: Could not open pipe. GLE=1"}));
    EXPECT_TRUE(std::filesystem::is_empty(runtime));
}

TEST_F(PipeDirectoryTest, SomethingElseInItsPlaceIsRefused) {
    ::setenv("XDG_RUNTIME_DIR", folder.getPath().c_str(), 1);
    std::FILE* const file = std::fopen(runtime.c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    LogCapture log;
    EXPECT_EQ(find(true), ENOTDIR);
    EXPECT_EQ(log.texts(), Lines{"ERROR: Pipe folder " + runtime + " refused: it is not a folder."});
}

TEST_F(PipeDirectoryTest, WithoutARuntimeFolderItLiesInTmp) {
    const std::string expected = "/tmp/cvtp-" + std::to_string(::geteuid());
    const bool wasThere = std::filesystem::exists(expected);
    for (const std::string& unusable : {std::string("relative"), std::string("."), folder.file("missing")}) {
        ::setenv("XDG_RUNTIME_DIR", unusable.c_str(), 1);
        find(false);
        EXPECT_EQ(found, expected);
    }
    ::unsetenv("XDG_RUNTIME_DIR");
    EXPECT_EQ(find(true), 0);
    EXPECT_EQ(found, expected);
    if (!wasThere) {
        std::filesystem::remove(expected);
    }
}

TEST_F(PipeDirectoryTest, AFolderThatCannotBeMadeIsRefused) {
    ::setenv("XDG_RUNTIME_DIR", folder.getPath().c_str(), 1);
    for (const int error : {EACCES, ENOSPC, EROFS, ENOMEM, EMLINK}) {
        FakeSystem system;
        system.on("mkdir", {failure(error)});
        LogCapture log;
        EXPECT_EQ(find(true), error);
        EXPECT_EQ(log.texts(), Lines{"ERROR: Pipe folder " + runtime + " refused: it cannot be created, error " +
                                     std::to_string(error) + "."});
    }
    // Another server made it in the same moment.
    FakeSystem system;
    system.on("mkdir", {Answer{0, std::nullopt, nullptr, 0, EEXIST}});
    EXPECT_EQ(find(true), 0);
}

TEST_F(PipeDirectoryTest, AFolderThatCannotBeLookedAtHasNoPipes) {
    ::setenv("XDG_RUNTIME_DIR", folder.getPath().c_str(), 1);
    makeSystem(0755);
    LogCapture log;
    {
        // The system's folder may be there, but it is of no use; the user's own comes next.
        FakeSystem system;
        system.on("lstat", {failure(EACCES)});
        EXPECT_EQ(find(true), 0);
        EXPECT_EQ(found, runtime);
    }
    for (const int error : {EACCES, ENOMEM, EIO}) {
        FakeSystem system;
        system.on("lstat", {failure(ENOENT), failure(error)});
        EXPECT_EQ(find(true), error);
    }
    {
        // A runtime folder that cannot be looked at is none.
        FakeSystem system;
        system.on("stat", {failure(EACCES)});
        system.on("lstat", {failure(ENOENT)});
        find(false);
        EXPECT_EQ(found, "/tmp/cvtp-" + std::to_string(::geteuid()));
    }
    EXPECT_EQ(log.texts(), Lines{});
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
