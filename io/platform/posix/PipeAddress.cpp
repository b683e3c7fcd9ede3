#include "io/platform/posix/PipeAddress.h"

#include <cerrno>
#include <cstddef>

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

int refuseName(const std::string& name) {
    if (isError()) {
        logError("Pipe name '" + StringUtils::onOneLine(name.substr(0, SHOWN_NAME_LENGTH)) +
                 "' refused: it must have 1 to 256 bytes and neither a backslash nor a NUL.");
    }
    return EINVAL;
}

int refuseLength(const std::string& directory) {
    if (isError()) {
        logError("Pipe folder " + directory + " refused: its path is too long for a socket.");
    }
    return ENAMETOOLONG;
}

}  // namespace

int findPipe(const std::string& path, bool create, PipeAddress& address) {
    const std::string name = path.substr(std::string(PIPE_PREFIX).size());
    if (!isPipeName(name)) {
        return refuseName(name);
    }
    std::string directory;
    const int code = findPipeDirectory(SYSTEM_PIPE_DIRECTORY, create, directory);
    if (code != 0) {
        return code;
    }
    directory += '/';
    const std::size_t used = directory.size();
    const std::size_t room = used < SocketCalls::MAX_SOCKET_PATH ? SocketCalls::MAX_SOCKET_PATH - used : 0;
    const std::string file = pipeFileName(name, room);
    if (file.empty()) {
        return refuseLength(directory);
    }
    address.socketFile = directory + file;
    address.lockFile = directory + "." + file + ".lock";
    address.directionFile = directory + "." + file + ".direction";
    return 0;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
