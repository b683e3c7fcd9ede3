#include "tests/support_code/WatchedMemory.h"

#include <atomic>
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

void* allocate(std::size_t size) {
    std::size_t from = watchedFrom;
    if (from != 0 && size >= from && size <= watchedTo && watchedFrom.compare_exchange_strong(from, 0)) {
        onWatched();
    }
    void* const block = std::malloc(size == 0 ? 1 : size);
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
