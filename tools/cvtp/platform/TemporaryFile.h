#pragma once

#include <cstdio>

namespace Corvane {
namespace Tools {

/// A new file for reading and writing that is gone when it is closed, and that other users cannot open. Null when
/// there can be none. To be closed by the caller.
std::FILE* openTemporaryFile();

}  // namespace Tools
}  // namespace Corvane
