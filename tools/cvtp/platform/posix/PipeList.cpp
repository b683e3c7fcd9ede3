#include "tools/cvtp/platform/PipeList.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "io/platform/PipePlatform.h"
#include "io/platform/posix/FileDescriptor.h"
#include "io/platform/posix/PipeDirectory.h"
#include "io/platform/posix/PipeName.h"

namespace Corvane {
namespace Tools {

namespace {

/// The files that somebody has locked, each as the kernel lists it: the device's two numbers and the file's.
using LockedFiles = std::set<std::string>;

/// The kernel's list is read instead of trying the locks: to have a lock for a moment would keep a server that
/// starts in that moment from its name, and another user's file cannot be opened.
LockedFiles readLockedFiles() {
    std::ifstream list("/proc/locks");
    LockedFiles files;
    std::string line;
    while (std::getline(list, line)) {
        std::istringstream words(line);
        std::string number, kind, strength, access, process, file;
        words >> number >> kind >> strength >> access >> process >> file;
        if (kind == "FLOCK" && access == "WRITE") {
            files.insert(file);
        }
    }
    return files;
}

/// The number of the mount that the folder is on; empty when it cannot be known.
std::string mountOf(const std::string& directory) {
    const Io::Platform::FileDescriptor opened(::open(directory.c_str(), O_PATH | O_CLOEXEC));
    std::ifstream properties("/proc/self/fdinfo/" + std::to_string(opened.get()));
    std::string key, value;
    while (properties >> key >> value) {
        if (key == "mnt_id:") {
            return value;
        }
    }
    return std::string();
}

/// The device of the folder as the kernel lists it with a lock; empty when it cannot be known. That is the number
/// of the file system, while stat() gives another one for some, such as btrfs.
std::string deviceOf(const std::string& directory) {
    const std::string mount = mountOf(directory);
    std::ifstream list("/proc/self/mountinfo");
    std::string line;
    while (std::getline(list, line)) {
        std::istringstream words(line);
        std::string number, parent;
        unsigned majorNumber = 0;
        unsigned minorNumber = 0;
        char colon = ' ';
        if (words >> number >> parent >> majorNumber >> colon >> minorNumber && number == mount) {
            char text[32];
            std::snprintf(text, sizeof text, "%02x:%02x", majorNumber, minorNumber);
            return text;
        }
    }
    return std::string();
}

struct Socket {
    std::filesystem::path file;
    uid_t user;
};

std::vector<Socket> findSockets(const std::string& directory) {
    std::vector<Socket> sockets;
    std::error_code error;
    std::filesystem::directory_iterator entry(directory, error);
    for (const std::filesystem::directory_iterator end; !error && entry != end; entry.increment(error)) {
        struct stat status {};
        // One that has gone meanwhile is none.
        if (::lstat(entry->path().c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) {
            sockets.push_back({entry->path(), status.st_uid});
        }
    }
    if (error) {
        throw std::runtime_error("the pipe folder '" + directory + "' cannot be read: " + error.message());
    }
    return sockets;
}

/// Knows of each pipe of a folder whether a server lives behind it.
class ServerFinder {
 public:
    explicit ServerFinder(const std::string& directory)
        : device(deviceOf(directory)), locked(readLockedFiles()), canRead(::access("/proc/locks", R_OK) == 0) {}

    ListedPipe::Server find(const std::filesystem::path& socket) const {
        const std::filesystem::path lock = socket.parent_path() / ("." + socket.filename().string() + ".lock");
        struct stat status {};
        if (!canRead || device.empty() || ::lstat(lock.c_str(), &status) != 0) {
            return ListedPipe::Server::UNKNOWN;
        }
        return locked.count(device + ":" + std::to_string(status.st_ino)) != 0 ? ListedPipe::Server::LIVES
                                                                               : ListedPipe::Server::NONE;
    }

 private:
    const std::string device;
    const LockedFiles locked;
    const bool canRead;
};

/// The user's name, or his number if he has none.
std::string nameOfUser(uid_t user) {
    const struct passwd* const entry = ::getpwuid(user);
    return entry == nullptr ? std::to_string(user) : entry->pw_name;
}

/// @return empty when there is no folder yet, and so no pipe.
std::string findDirectory() {
    std::string directory;
    const int code = Io::Platform::findPipeDirectory(Io::Platform::SYSTEM_PIPE_DIRECTORY, false, directory);
    const bool isChosen = !Io::Platform::environmentVariable("CVTP_PIPE_DIR").value_or(std::string()).empty();
    if (code == ENOENT && !isChosen) {
        return std::string();
    }
    if (code != 0) {
        throw std::runtime_error("the pipe folder '" + directory +
                                 "' cannot be used: " + std::generic_category().message(code));
    }
    return directory;
}

}  // namespace

std::vector<ListedPipe> listPipes(bool) {
    std::vector<ListedPipe> pipes;
    const std::string directory = findDirectory();
    if (directory.empty()) {
        return pipes;
    }
    const std::vector<Socket> sockets = findSockets(directory);
    // After the sockets: whoever has made one has locked its name before.
    const ServerFinder servers(directory);
    for (const Socket& socket : sockets) {
        const std::string name = Io::Platform::pipeNameOf(socket.file.filename().string());
        pipes.push_back({name, servers.find(socket.file), nameOfUser(socket.user)});
    }
    std::sort(pipes.begin(), pipes.end(),
              [](const ListedPipe& left, const ListedPipe& right) { return left.name < right.name; });
    return pipes;
}

}  // namespace Tools
}  // namespace Corvane
