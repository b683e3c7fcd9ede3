#pragma once

#include <filesystem>
#include <random>
#include <string>
#include <system_error>

// Windows has no folder of pipes: there a test keeps to itself by the names of its pipes.
#ifdef _WIN32
#include "tests/support_code/windows/PipeNames.h"
#else
#include "tests/support_code/posix/PipeNames.h"
#endif

namespace Corvane {
namespace Testing {

/// While it lives, the pipes of this process and of those it starts lie in a folder of their own, which is removed
/// at the end. One at a time, made and destroyed while no other thread works with pipes. Where the system itself
/// keeps the pipes, the folder stays empty, and this process's pipes alone get names of their own.
class TemporaryPipeDirectory {
 public:
    TemporaryPipeDirectory() {
        std::random_device random;
        do {
            // Short, since the paths of sockets are limited.
            directory = std::filesystem::temp_directory_path() / ("cvtp_" + std::to_string(random()));
        } while (!std::filesystem::create_directory(directory));
        PipeNames::setVariable(VARIABLE, directory.string());
    }
    ~TemporaryPipeDirectory() {
        // Empty is the same as not set.
        PipeNames::setVariable(VARIABLE, "");
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }
    TemporaryPipeDirectory(const TemporaryPipeDirectory&) = delete;
    TemporaryPipeDirectory& operator=(const TemporaryPipeDirectory&) = delete;

    std::string path() const { return directory.string(); }

    /// The name by which other processes know a pipe of this one, and the other way round.
    static std::string nameForOthers(const std::string& name) { return PipeNames::forOthers(name); }

 private:
    static constexpr const char* VARIABLE = "CVTP_PIPE_DIR";

    std::filesystem::path directory;
    PipeNames names;
};

}  // namespace Testing
}  // namespace Corvane
