#include "io/platform/posix/PipeDirectory.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "cvtp/internal/Logging.h"
#include "io/platform/PipePlatform.h"
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

std::string fromEnvironment(const char* variable) {
    return environmentVariable(variable).value_or(std::string());
}

void stripSlashes(std::string& directory) {
    while (directory.size() > 1 && directory.back() == '/') {
        directory.pop_back();
    }
}

/// Whether others than the owner may write there, and so replace what belongs to somebody else.
bool isOpenToOthers(const struct stat& status) {
    return (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (status.st_mode & S_ISVTX) == 0;
}

/// Why somebody else could put things of his into that folder, or swap what is in it; null when he could not.
const char* findDistrust(const struct stat& status) {
    if (status.st_uid != 0 && status.st_uid != ::geteuid()) {
        return "it belongs to another user";
    }
    return isOpenToOthers(status) ? "others may write to it and it has no sticky bit" : nullptr;
}

int checkTrust(const std::string& directory, const struct stat& status) {
    if (S_ISLNK(status.st_mode)) {
        return refuse(directory, "it is a link", ELOOP);
    }
    if (!S_ISDIR(status.st_mode)) {
        return refuse(directory, "it is not a folder", ENOTDIR);
    }
    const char* const distrust = findDistrust(status);
    return distrust == nullptr ? 0 : refuse(directory, distrust, EPERM);
}

/// The folder of the user's own, which need not be there.
///
/// @return 0 or the code of the system when it would not be safe there.
int chooseOwnDirectory(std::string& directory) {
    std::string runtime = fromEnvironment("XDG_RUNTIME_DIR");
    stripSlashes(runtime);
    struct stat status {};
    if (runtime.empty() || runtime.front() != '/' || calls().stat(runtime.c_str(), &status) != 0 ||
        !S_ISDIR(status.st_mode)) {
        directory = "/tmp/cvtp-" + std::to_string(::geteuid());
        return 0;
    }
    directory = runtime + "/cvtp";
    // The variable may be that of another user, who could swap a folder of ours in his; su keeps it.
    const char* const distrust = findDistrust(status);
    return distrust == nullptr
               ? 0
               : refuse(directory, std::string("XDG_RUNTIME_DIR cannot be trusted: ") + distrust, EPERM);
}

int findOwnDirectory(bool create, std::string& directory) {
    const int unsafe = chooseOwnDirectory(directory);
    if (unsafe != 0) {
        return unsafe;
    }
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

/// The caller's own choice is not checked, but it must be there.
int checkChosen(const std::string& directory) {
    struct stat status {};
    const int code = calls().stat(directory.c_str(), &status) == 0 ? 0 : errno;
    if (code == 0 && S_ISDIR(status.st_mode)) {
        return 0;
    }
    if (code == 0 || code == ENOENT || code == ENOTDIR) {
        return refuse(directory, "CVTP_PIPE_DIR names no folder", ENOENT);
    }
    return refuse(directory, "it cannot be looked at, error " + std::to_string(code), code);
}

}  // namespace

std::string chosenPipeDirectory() {
    std::string directory = fromEnvironment("CVTP_PIPE_DIR");
    stripSlashes(directory);
    return directory;
}

int findPipeDirectory(const std::string& systemDirectory, bool create, std::string& directory) {
    directory = chosenPipeDirectory();
    if (!directory.empty()) {
        return checkChosen(directory);
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
