#include "tests/support_code/WatchedMemory.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

namespace Corvane {
namespace Testing {

namespace {

/// Nothing is watched for while the first is 0.
std::atomic<std::size_t> watchedFrom{0};
std::atomic<std::size_t> watchedTo{0};
std::function<void()> onWatched;

void* allocate(std::size_t size, std::size_t alignment = alignof(std::max_align_t)) {
    std::size_t from = watchedFrom;
    if (from != 0 && size >= from && size <= watchedTo && watchedFrom.compare_exchange_strong(from, 0)) {
        onWatched();
    }
    // Whole multiples of the alignment, as the call demands.
    const std::size_t multiple = (std::max<std::size_t>(size, 1) + alignment - 1) / alignment * alignment;
    void* const block = std::aligned_alloc(alignment, multiple);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

}  // namespace

void WatchedMemory::watch(std::size_t from, std::size_t to, std::function<void()> action) {
    onWatched = std::move(action);
    watchedTo = to;
    watchedFrom = from;
}

void WatchedMemory::forget() {
    watchedFrom = 0;
}

bool WatchedMemory::isWatching() {
    return watchedFrom != 0;
}

}  // namespace Testing
}  // namespace Corvane

// All forms, since those that a sanitizer brings do not come to one another.

void* operator new(std::size_t size) {
    return Corvane::Testing::allocate(size);
}

void* operator new[](std::size_t size) {
    return Corvane::Testing::allocate(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return Corvane::Testing::allocate(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    return Corvane::Testing::allocate(size, static_cast<std::size_t>(alignment));
}

void* operator new(std::size_t size, std::align_val_t alignment, const std::nothrow_t&) noexcept {
    try {
        return Corvane::Testing::allocate(size, static_cast<std::size_t>(alignment));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void operator delete(void* block, std::align_val_t) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    std::free(block);
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete[](void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

void operator delete[](void* block, std::size_t) noexcept {
    std::free(block);
}
