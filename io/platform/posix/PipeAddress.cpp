#include "io/platform/posix/PipeAddress.h"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "cvtp/internal/Logging.h"
#include "io/platform/PipePlatform.h"
#include "io/platform/posix/PipeDirectory.h"
#include "io/platform/posix/PipeName.h"
#include "io/platform/posix/SocketCalls.h"
#include "support/StringUtils.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using Internal::Cvtp::isError;
using Internal::Cvtp::logError;

/// More of a wrong name than this does not help anybody who reads the log.
const std::size_t SHOWN_NAME_LENGTH = 256;

int refuseName(std::string_view name) {
    if (isError()) {
        logError("Pipe name '" + StringUtils::onOneLine(std::string(name.substr(0, SHOWN_NAME_LENGTH))) +
                 "' refused: it must have 1 to 256 bytes and neither a backslash nor a NUL.");
    }
    return EINVAL;
}

int refuseLength(const std::string& directory) {
    if (isError()) {
        logError("Pipe folder " + directory + "/ refused: its path is too long for a socket.");
    }
    return ENAMETOOLONG;
}

int findDirectory(PipeSearch search, std::string& directory) {
    if (search == PipeSearch::TO_CONNECT) {
        directory = chosenPipeDirectory();
        if (!directory.empty()) {
            return 0;
        }
    }
    return findPipeDirectory(SYSTEM_PIPE_DIRECTORY, search == PipeSearch::TO_CREATE, directory);
}

}  // namespace

int findPipe(const std::string& path, PipeSearch search, PipeAddress& address) {
    const std::string_view name = std::string_view(path).substr(std::strlen(PIPE_PREFIX));
    if (!isPipeName(name)) {
        return refuseName(name);
    }
    std::string directory;
    const int code = findDirectory(search, directory);
    if (code != 0) {
        return code;
    }
    const std::size_t used = directory.size() + 1;
    const std::size_t room = used < SocketCalls::MAX_SOCKET_PATH ? SocketCalls::MAX_SOCKET_PATH - used : 0;
    const std::string file = pipeFileName(name, room);
    if (file.empty()) {
        return refuseLength(directory);
    }
    address.socketFile = StringUtils::joined({directory, "/", file});
    address.directionFile = StringUtils::joined({directory, "/.", file, ".direction"});
    if (search == PipeSearch::TO_CREATE) {
        address.lockFile = StringUtils::joined({directory, "/.", file, ".lock"});
    }
    return 0;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
