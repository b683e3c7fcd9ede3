#include "tools/cvtp/platform/StandardStreams.h"

#include <fcntl.h>
#include <io.h>
#include <stdio.h>

namespace Corvane {
namespace Tools {

void passBytesThrough() {
    // Otherwise the C library puts a CR before each LF, takes it away from what is read, and ends at a Ctrl+Z.
    _setmode(_fileno(stdin), _O_BINARY);
    _setmode(_fileno(stdout), _O_BINARY);
    _setmode(_fileno(stderr), _O_BINARY);
}

}  // namespace Tools
}  // namespace Corvane
