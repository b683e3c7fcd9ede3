#include "tools/cvtp/platform/TemporaryFile.h"

namespace Corvane {
namespace Tools {

std::FILE* openTemporaryFile() {
    return std::tmpfile();
}

}  // namespace Tools
}  // namespace Corvane
