#include "micro/Support.h"

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>

namespace Corvane {
namespace Bench {

namespace {

/// Sets CVTP_PIPE_DIR for as long as the process lives.
class PipeFolder {
 public:
    PipeFolder() : path((std::filesystem::temp_directory_path() / "bench-XXXXXX").string()) {
        if (mkdtemp(&path[0]) == nullptr) {
            throw std::runtime_error("cannot make a folder for the pipes");
        }
        setenv("CVTP_PIPE_DIR", path.c_str(), 1);
    }
    ~PipeFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    PipeFolder(const PipeFolder&) = delete;
    PipeFolder& operator=(const PipeFolder&) = delete;

 private:
    std::string path;
};

}  // namespace

std::string freePipeName() {
    static const PipeFolder folder;
    static int number = 0;
    return "p" + std::to_string(++number);
}

}  // namespace Bench
}  // namespace Corvane
