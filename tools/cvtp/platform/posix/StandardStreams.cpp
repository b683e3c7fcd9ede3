#include "tools/cvtp/platform/StandardStreams.h"

namespace Corvane {
namespace Tools {

void passBytesThrough() {
    // They always do.
}

}  // namespace Tools
}  // namespace Corvane
