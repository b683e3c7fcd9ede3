#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <system_error>
#include <vector>

#include "cvtp/internal/XmlText.h"
#include "tests/support_code/LogCapture.h"

namespace Corvane {
namespace Testing {

/// Tests that write files into a folder of their own.
class ConfigTest : public ::testing::Test {
 protected:
    ConfigTest() {
        static const bool isXmlReady = (Internal::Cvtp::initializeXml(), true);
        EXPECT_TRUE(isXmlReady);
        std::random_device random;
        do {
            folder = std::filesystem::temp_directory_path() / ("cvtp_config_" + std::to_string(random()));
        } while (!std::filesystem::create_directory(folder));
    }
    ~ConfigTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    std::string pathOf(const std::string& name) const { return (folder / name).string(); }

    /// @return the path of the file.
    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(pathOf(name), std::ios::binary) << content;
        return pathOf(name);
    }

    std::filesystem::path folder;
};

/// The variable that names the file, for this process and those that it starts. It is gone again at the end.
class FileVariable {
 public:
    FileVariable() { unset(); }
    explicit FileVariable(const std::string& path) { set(path.c_str()); }
    ~FileVariable() { unset(); }
    FileVariable(const FileVariable&) = delete;
    FileVariable& operator=(const FileVariable&) = delete;

 private:
    static constexpr const char* NAME = "CvtpConfigurationFile";

    // The systems have no common way to do this.
#ifdef _WIN32
    static void set(const char* path) {
        ::_putenv_s(NAME, path);
    }
    static void unset() {
        set("");
    }
#else
    static void set(const char* path) {
        ::setenv(NAME, path, 1);
    }
    static void unset() {
        ::unsetenv(NAME);
    }
#endif
};

}  // namespace Testing
}  // namespace Corvane
