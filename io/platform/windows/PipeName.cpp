#include "io/platform/windows/PipeName.h"

#include <windows.h>

#include <cstddef>

#include "cvtp/internal/Logging.h"
#include "io/platform/PipePlatform.h"
#include "support/StringUtils.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using Internal::Cvtp::isError;
using Internal::Cvtp::logError;

const std::size_t MAX_NAME_LENGTH = 256;

/// More of a wrong name than this does not help anybody who reads the log.
const std::size_t SHOWN_NAME_LENGTH = 256;

}  // namespace

int checkPipeName(const std::string& path) {
    const std::string name = path.substr(std::string(PIPE_PREFIX).size());
    const bool isFitting = !name.empty() && name.size() <= MAX_NAME_LENGTH;
    // A NUL would end the name for the system, which would then open another pipe.
    if (isFitting && name.find_first_of(std::string("\\\0", 2)) == std::string::npos) {
        return 0;
    }
    if (isError()) {
        logError("Pipe name '" + StringUtils::onOneLine(name.substr(0, SHOWN_NAME_LENGTH)) +
                 "' refused: it must have 1 to 256 bytes and neither a backslash nor a NUL.");
    }
    return ERROR_INVALID_NAME;
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
