#include "io/platform/windows/SystemCalls.h"

#include <atomic>

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

const SystemCalls& ownCalls() {
    static const SystemCalls table;
    return table;
}

/// Null: the system's own.
std::atomic<const SystemCalls*> substitute{nullptr};

}  // namespace

const SystemCalls& calls() {
    const SystemCalls* const table = substitute.load(std::memory_order_acquire);
    return table == nullptr ? ownCalls() : *table;
}

void substituteCalls(const SystemCalls* table) {
    substitute.store(table, std::memory_order_release);
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
