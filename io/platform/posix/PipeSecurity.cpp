#include "io/platform/posix/PipeSecurity.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "cvtp/internal/Logging.h"
#include "io/platform/AccessSettings.h"
#include "io/platform/posix/FileDescriptor.h"
#include "io/platform/posix/SystemCalls.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using namespace Internal::Cvtp;

const mode_t USER_ALONE = S_IRUSR | S_IWUSR;
const mode_t USER_AND_GROUP = USER_ALONE | S_IRGRP | S_IWGRP;
const mode_t ALL_BITS = 07777;

/// What is known of a group comes with all of its members.
const std::size_t GROUP_SIZE = 1024;
const std::size_t MAX_GROUP_SIZE = 16 * 1024 * 1024;

/// Guards `common`.
std::mutex mutex;

/// What all pipes of the process get; none until a pipe could be given it, then never changed.
std::optional<PipeAccess> common;

/// The texts name calls of another system, deliberately: who searches logs for them finds the step that failed on
/// every system.
void logFailure(const char* text, int code) {
    if (isError()) {
        logError(text + std::to_string(code));
    }
}

std::optional<gid_t> lookUpGroup(const std::string& name) {
    // The doubled colon is deliberate.
    const char* failure = "LookupAccountName to get buffer size failed. GetLastError returned:: ";
    std::vector<char> buffer(GROUP_SIZE);
    for (;;) {
        GroupEntry entry{};
        GroupEntry* found = nullptr;
        const int code = calls().getgrnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found);
        if (code == 0 && found != nullptr) {
            return found->gr_gid;
        }
        if (code == ERANGE && buffer.size() < MAX_GROUP_SIZE) {
            failure = "LookupAccountName to get group SID - Error: ";
            buffer.resize(buffer.size() * 4);
        } else if (code != EINTR) {
            logFailure(failure, code == 0 ? ENOENT : code);
            return std::nullopt;
        }
    }
}

std::optional<gid_t> findGroup(const AccessSettings& settings) {
    if (!settings.group.empty()) {
        return lookUpGroup(settings.group);
    }
    return settings.groupHasAccess ? std::optional<gid_t>(::getegid()) : std::nullopt;
}

PipeAccess buildAccess(const AccessSettings& settings) {
    PipeAccess access;
    access.group = findGroup(settings);
    access.mode = settings.groupHasAccess && access.group ? USER_AND_GROUP : USER_ALONE;
    return access;
}

/// Opens the file itself, without following a link, and only when it is a socket of the user and has no other name:
/// in a folder that somebody else rules, another file may have taken its place, of another service of the user's
/// for example.
FileDescriptor openSocketFile(const std::string& file, FileStatus& status) {
    FileDescriptor descriptor(calls().open(file.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!descriptor.isOpen() || calls().fstat(descriptor.get(), &status) != 0) {
        return FileDescriptor();
    }
    if (!S_ISSOCK(status.st_mode) || status.st_uid != ::geteuid() || status.st_nlink != 1) {
        errno = EPERM;
        return FileDescriptor();
    }
    return descriptor;
}

int changeMode(int descriptor, mode_t mode) {
    // fchmod() takes no descriptor that was opened in this way.
    return calls().chmod(("/proc/self/fd/" + std::to_string(descriptor)).c_str(), mode);
}

bool giveAccess(const std::string& file, const PipeAccess& access) {
    FileStatus status{};
    const FileDescriptor descriptor = openSocketFile(file, status);
    if (!descriptor.isOpen()) {
        logFailure("Initialize a security descriptor. Error: ", errno);
        return false;
    }
    // The group before the mode: until then the file's group may be another one.
    if (access.group && status.st_gid != *access.group &&
        calls().fchownat(descriptor.get(), "", static_cast<uid_t>(-1), *access.group, AT_EMPTY_PATH) != 0) {
        logFailure("SetSecurityDescriptorGroup Error: ", errno);
        return false;
    }
    if ((status.st_mode & ALL_BITS) != access.mode && changeMode(descriptor.get(), access.mode) != 0) {
        logFailure("SetSecurityDescriptorDacl Error: ", errno);
        return false;
    }
    return true;
}

}  // namespace

PipeSecurity::PipeSecurity() : building(mutex) {
    if (common) {
        access = common;
        building.unlock();
        return;
    }
    const AccessSettings settings = readAccessSettings();
    if (settings.areDefault()) {
        building.unlock();
        return;
    }
    if (isDebug()) {
        logDebug("Create SecurityDescriptor.");
    }
    access = buildAccess(settings);
}

bool PipeSecurity::narrow(int socket) const {
    if (calls().fchmod(socket, USER_ALONE) == 0) {
        return true;
    }
    logFailure("SetEntriesInAcl Error: ", errno);
    return false;
}

bool PipeSecurity::grant(const std::string& socketFile) {
    if (!giveAccess(socketFile, *access)) {
        return false;
    }
    if (building.owns_lock()) {
        common = access;
    }
    return true;
}

void forgetPipeAccess() {
    const std::lock_guard<std::mutex> lock(mutex);
    common.reset();
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
