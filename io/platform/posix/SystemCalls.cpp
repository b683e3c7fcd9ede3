#include "io/platform/posix/SystemCalls.h"

#include <atomic>

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

constexpr SystemCalls OWN_CALLS{};

std::atomic<const SystemCalls*> inUse{&OWN_CALLS};

}  // namespace

const SystemCalls& calls() {
    return *inUse.load(std::memory_order_acquire);
}

void substituteCalls(const SystemCalls* table) {
    inUse.store(table == nullptr ? &OWN_CALLS : table, std::memory_order_release);
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
