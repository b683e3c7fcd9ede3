#include "io/platform/windows/SecurityCalls.h"

#include <atomic>

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

const SecurityCalls& ownCalls() {
    static const SecurityCalls table;
    return table;
}

/// Null: the system's own.
std::atomic<const SecurityCalls*> substitute{nullptr};

}  // namespace

const SecurityCalls& securityCalls() {
    const SecurityCalls* const table = substitute.load(std::memory_order_acquire);
    return table == nullptr ? ownCalls() : *table;
}

void substituteSecurityCalls(const SecurityCalls* table) {
    substitute.store(table, std::memory_order_release);
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
