// What becomes of the name of a server when the system fails at its files.

#include <gmock/gmock.h>
#include <sys/file.h>

#include <cerrno>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "tests/io/posix/FakeSystem.h"

namespace Corvane {
namespace Testing {
namespace {

using namespace Io;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

class NameClaimFaultsTest : public FaultTest {
 protected:
    /// The code of a server that cannot be made.
    static std::string codeOfFailure(bool writable = false) {
        LogCapture log;
        EXPECT_EQ(messageOf<BindException>([&] { ServerCvPipe("pipe", true, writable); }),
                  "CreateNamedPipe failed");
        const std::string label = "ERROR: CreateNamedPipe failed: ";
        const Lines lines = log.texts();
        return lines.size() == 1 && lines[0].rfind(label, 0) == 0 ? lines[0].substr(label.size()) : "other lines";
    }
    /// What a server leaves that was killed.
    void leaveFilesOfAKilledServer() {
        ChildProcess child([] {
            const ServerCvPipe server("pipe", true, false);
            ::_exit(0);
            return 0;
        });
        EXPECT_EQ(child.wait(), 0);
        ASSERT_THAT(folder.names(), UnorderedElementsAre("pipe", ".pipe.lock", ".pipe.direction"));
    }
    static void expectAFreeName() {
        ServerCvPipe server("pipe", true, false);
        CvPipe client("pipe", false, true);
        CvPipe accepted;
        server.accept(accepted);
    }
};

TEST_F(NameClaimFaultsTest, ALockFileThatCannotBeOpenedIsAFailure) {
    for (const int error : {EMFILE, ENFILE, ENOMEM, EACCES, ENOSPC, ENOENT, EROFS, EIO}) {
        FakeSystem system;
        system.on("open", {failure(error)});
        EXPECT_EQ(codeOfFailure(), std::to_string(error));
        EXPECT_THAT(folder.names(), IsEmpty());
        EXPECT_EQ(openDescriptors(), descriptorsBefore);
    }
    expectAFreeName();
}

TEST_F(NameClaimFaultsTest, ALockThatFailsIsAFailureThatLeavesNothingOpen) {
    // An empty lock file that nobody has locked is in nobody's way. It stays: whoever has no lock must not remove
    // it.
    for (const auto& [call, error, code] :
         {std::tuple("fstat", ENOMEM, "12"), std::tuple("flock", ENOLCK, "37"),
          std::tuple("flock", EWOULDBLOCK, "98"), std::tuple("flock", EIO, "5")}) {
        FakeSystem system;
        system.on(call, {failure(error)});
        EXPECT_EQ(codeOfFailure(), code);
        EXPECT_THAT(folder.names(), UnorderedElementsAre(".pipe.lock"));
        EXPECT_EQ(openDescriptors(), descriptorsBefore);
    }
    expectAFreeName();
}

TEST_F(NameClaimFaultsTest, SignalsDoNotKeepAServerFromItsName) {
    FakeSystem system;
    system.on("open", {failure(EINTR), failure(EINTR)});
    system.on("flock", {failure(EINTR), failure(EINTR)});
    ServerCvPipe server("pipe", true, true);
    EXPECT_EQ(system.madeOf("open"), Lines(3, "open(.pipe.lock)"));
    EXPECT_EQ(system.madeOf("flock"), Lines(3, "flock(" + std::to_string(LOCK_EX | LOCK_NB) + ")"));
}

TEST_F(NameClaimFaultsTest, ALockFileThatCannotBeLookedAtIsTriedAnew) {
    FakeSystem system;
    system.on("lstat", {failure(ENOENT), failure(ENOMEM)});
    ServerCvPipe server("pipe", true, true);
    EXPECT_EQ(system.madeOf("open").size(), 3u);
    // The locks that counted for nothing are open no more.
    EXPECT_EQ(system.madeOf("close").size(), 2u);
}

TEST_F(NameClaimFaultsTest, ALockFileThatNeverStaysIsNotTriedWithoutEnd) {
    FakeSystem system;
    system.on("lstat", std::vector<Answer>(1000, failure(ENOENT)));
    EXPECT_EQ(codeOfFailure(), "98");
    EXPECT_EQ(system.madeOf("flock").size(), 1000u);
    expectedFiles = {".pipe.lock"};
}

TEST_F(NameClaimFaultsTest, LeftoversThatCannotBeRemovedAreAFailure) {
    for (const int error : {EACCES, EPERM, EBUSY, EROFS, ENOMEM}) {
        leaveFilesOfAKilledServer();
        {
            FakeSystem system;
            system.on("unlink", {failure(error)});
            EXPECT_EQ(codeOfFailure(), std::to_string(error)) << "the socket";
            // All but the lock stays where it was.
            EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe", ".pipe.direction"));
        }
        {
            FakeSystem system;
            system.on("unlink", {passing(), failure(error)});
            EXPECT_EQ(codeOfFailure(), std::to_string(error)) << "the link";
            EXPECT_THAT(folder.names(), UnorderedElementsAre(".pipe.direction"));
        }
        expectAFreeName();
    }
}

TEST_F(NameClaimFaultsTest, ASocketIsAskedForItsServerAndWithoutADescriptorThatIsAFailure) {
    leaveFilesOfAKilledServer();
    {
        FakeSystem system;
        system.on("socket", {failure(EMFILE)});
        EXPECT_EQ(codeOfFailure(), "24");
        EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe", ".pipe.direction"));
        EXPECT_EQ(openDescriptors(), descriptorsBefore);
    }
    // One that nobody may connect to is a leftover all the same; a signal says nothing.
    FakeSystem system;
    system.on("connect", {failure(EINTR), failure(EACCES)});
    ServerCvPipe server("pipe", true, true);
    EXPECT_EQ(system.madeOf("connect").size(), 2u);
}

TEST_F(NameClaimFaultsTest, LeftoversThatWentBySomebodyElseAreNone) {
    leaveFilesOfAKilledServer();
    FakeSystem system;
    const Answer gone{0, std::nullopt, nullptr, 0, ENOENT};
    system.on("unlink", {gone, gone});
    ServerCvPipe server("pipe", true, false);
    EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe", ".pipe.lock", ".pipe.direction"));
}

TEST_F(NameClaimFaultsTest, LeftoversThatCannotBeLookedAtAreAFailure) {
    for (const int error : {EACCES, ENOMEM, EIO}) {
        FakeSystem system;
        system.on("lstat", {passing(), failure(error)});
        EXPECT_EQ(codeOfFailure(), std::to_string(error)) << "the socket";
        for (const bool writable : {false, true}) {
            system.on("lstat", {passing(), passing(), failure(error)});
            EXPECT_EQ(codeOfFailure(writable), std::to_string(error)) << "the link";
        }
        EXPECT_THAT(folder.names(), IsEmpty());
    }
}

TEST_F(NameClaimFaultsTest, ADirectionThatCannotBeAnnouncedIsAFailure) {
    for (const int error : {ENOSPC, EACCES, EEXIST, ENOMEM, EROFS, EIO}) {
        FakeSystem system;
        system.on("symlink", {failure(error)});
        EXPECT_EQ(codeOfFailure(), std::to_string(error));
        EXPECT_THAT(folder.names(), IsEmpty());
        EXPECT_EQ(openDescriptors(), descriptorsBefore);
    }
}

TEST_F(NameClaimFaultsTest, AFileThatWasMadeButCannotBeLookedAtGoesAgain) {
    FakeSystem system;
    const std::vector<Answer> toTheLink(3, passing());
    system.on("lstat", toTheLink);
    system.on("lstat", {failure(ENOMEM)});
    EXPECT_EQ(codeOfFailure(), "12") << "the link";
    EXPECT_EQ(system.madeOf("symlink").size(), 1u);
    EXPECT_THAT(folder.names(), IsEmpty());
    system.on("lstat", toTheLink);
    system.on("lstat", {passing(), failure(EIO)});
    EXPECT_EQ(codeOfFailure(), "5") << "the socket";
    EXPECT_EQ(system.madeOf("bind").size(), 1u);
    EXPECT_THAT(folder.names(), IsEmpty());
    EXPECT_EQ(openDescriptors(), descriptorsBefore);
}

TEST_F(NameClaimFaultsTest, WhatCannotBeRemovedAtTheEndKeepsNobodyFromTheName) {
    const Lines files = {"pipe", ".pipe.direction", ".pipe.lock"};
    for (std::size_t kept = 0; kept < files.size(); ++kept) {
        auto server = std::make_unique<ServerCvPipe>("pipe", true, false);
        {
            FakeSystem system;
            std::vector<Answer> answers(kept, passing());
            answers.push_back(failure(EACCES));
            system.on("unlink", answers);
            LogCapture log;
            server.reset();
            EXPECT_EQ(maskedTexts(log),
                      (Lines{"DEBUG: Closing server pipe: pipe", "DEBUG: Close Handles: handle=N event= -1"}));
            EXPECT_EQ(system.madeOf("unlink"),
                      (Lines{"unlink(pipe)", "unlink(.pipe.direction)", "unlink(.pipe.lock)"}));
        }
        EXPECT_THAT(folder.names(), ElementsAre(files[kept]));
        EXPECT_EQ(openDescriptors(), descriptorsBefore);
        expectAFreeName();
    }
}

TEST_F(NameClaimFaultsTest, WhatCannotBeLookedAtAtTheEndStays) {
    auto server = std::make_unique<ServerCvPipe>("pipe", true, true);
    {
        FakeSystem system;
        system.on("lstat", {failure(EIO), failure(EIO)});
        server.reset();
        EXPECT_THAT(system.madeOf("unlink"), IsEmpty());
    }
    EXPECT_THAT(folder.names(), UnorderedElementsAre("pipe", ".pipe.lock"));
    expectAFreeName();
}

TEST_F(NameClaimFaultsTest, AnUnlockThatFailsDoesNotMatterSinceTheDescriptorIsClosed) {
    auto server = std::make_unique<ServerCvPipe>("pipe", true, true);
    FakeSystem system;
    system.on("flock", {failure(EIO)});
    server.reset();
    expectAFreeName();
}

}  // namespace
}  // namespace Testing
}  // namespace Corvane
