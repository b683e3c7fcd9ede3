#include "io/platform/posix/PipeDirectory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "cvtp/internal/Logging.h"
#include "io/platform/posix/SystemCalls.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using Internal::Cvtp::isError;
using Internal::Cvtp::logError;

int refuse(const std::string& directory, const std::string& reason, int code) {
    if (isError()) {
        logError("Pipe folder " + directory + " refused: " + reason + ".");
    }
    return code;
}

/// What the environment says. A program that runs with more rights than its caller does not listen to it.
std::string fromEnvironment(const char* variable) {
    const char* const value = ::secure_getenv(variable);
    return value == nullptr ? std::string() : std::string(value);
}

void stripSlashes(std::string& directory) {
    while (directory.size() > 1 && directory.back() == '/') {
        directory.pop_back();
    }
}

bool isDirectory(const std::string& path) {
    struct stat status {};
    return calls().stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// Whether others than the owner may write there, and so replace what belongs to somebody else.
bool isOpenToOthers(const struct stat& status) {
    return (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (status.st_mode & S_ISVTX) == 0;
}

int checkTrust(const std::string& directory, const struct stat& status) {
    if (S_ISLNK(status.st_mode)) {
        return refuse(directory, "it is a link", ELOOP);
    }
    if (!S_ISDIR(status.st_mode)) {
        return refuse(directory, "it is not a folder", ENOTDIR);
    }
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
        return refuse(directory, "it belongs to another user", EPERM);
    }
    if (isOpenToOthers(status)) {
        return refuse(directory, "others may write to it and it has no sticky bit", EPERM);
    }
    return 0;
}

std::string ownDirectory() {
    std::string runtime = fromEnvironment("XDG_RUNTIME_DIR");
    stripSlashes(runtime);
    if (!runtime.empty() && runtime.front() == '/' && isDirectory(runtime)) {
        return runtime + "/cvtp";
    }
    return "/tmp/cvtp-" + std::to_string(::geteuid());
}

int findOwnDirectory(bool create, std::string& directory) {
    directory = ownDirectory();
    if (create && calls().mkdir(directory.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
        const int code = errno;
        return refuse(directory, "it cannot be created, error " + std::to_string(code), code);
    }
    struct stat status {};
    if (calls().lstat(directory.c_str(), &status) != 0) {
        // A client finds no pipe in a folder that is not there; that is not the folder's fault.
        return errno;
    }
    return checkTrust(directory, status);
}

}  // namespace

int findPipeDirectory(const std::string& systemDirectory, bool create, std::string& directory) {
    directory = fromEnvironment("CVTP_PIPE_DIR");
    if (!directory.empty()) {
        stripSlashes(directory);
        return isDirectory(directory) ? 0 : refuse(directory, "CVTP_PIPE_DIR names no folder", ENOENT);
    }
    struct stat status {};
    if (calls().lstat(systemDirectory.c_str(), &status) == 0) {
        directory = systemDirectory;
        return checkTrust(directory, status);
    }
    return findOwnDirectory(create, directory);
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
