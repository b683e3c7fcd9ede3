#include "io/platform/PipePlatform.h"

namespace Corvane {
namespace Io {
namespace Platform {

/// A process of Windows does not fork.
void holdWhileForking(std::mutex&) {}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
