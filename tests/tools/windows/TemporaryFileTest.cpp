#include "tools/cvtp/platform/TemporaryFile.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdio>
#include <filesystem>
#include <iterator>
#include <random>
#include <string>

namespace Corvane {
namespace Tools {
namespace {

class TemporaryFileTest : public ::testing::Test {
 protected:
    void SetUp() override {
        directory = std::filesystem::temp_directory_path() / ("cvtp_" + std::to_string(std::random_device()()));
        std::filesystem::create_directory(directory);
        former = std::filesystem::temp_directory_path().string();
        SetEnvironmentVariableA("TMP", directory.string().c_str());
    }
    void TearDown() override {
        SetEnvironmentVariableA("TMP", former.c_str());
        std::filesystem::remove_all(directory);
    }
    std::ptrdiff_t fileCount() const { return std::distance(std::filesystem::directory_iterator(directory), {}); }

    std::filesystem::path directory;
    std::string former;
};

TEST_F(TemporaryFileTest, IsInTheUsersFolderForSuchAndGoneWhenItIsClosed) {
    std::FILE* const file = openTemporaryFile();
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(fileCount(), 1);
    const std::string bytes("a\n\x1a\r\nb", 6);
    EXPECT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), file), bytes.size());
    std::rewind(file);
    std::string back(100, ' ');
    back.resize(std::fread(&back[0], 1, back.size(), file));
    EXPECT_EQ(back, bytes);
    std::fclose(file);
    EXPECT_EQ(fileCount(), 0);
}

TEST_F(TemporaryFileTest, IsNoneWithoutSuchAFolder) {
    SetEnvironmentVariableA("TMP", (directory / "missing").string().c_str());
    EXPECT_EQ(openTemporaryFile(), nullptr);
}

}  // namespace
}  // namespace Tools
}  // namespace Corvane
