#pragma once

#include <cstddef>
#include <functional>

namespace Corvane {
namespace Testing {

/// A program with the source file of this gets its memory from there, and can act at the moment at which a certain
/// block is asked for.
class WatchedMemory {
 public:
    /// Calls `action` in place of the next allocation of `from` to `to` bytes, in whatever thread; before the
    /// memory is given out, and only once. What it throws comes out of the `new`. To be called while nothing is
    /// watched for.
    static void watch(std::size_t from, std::size_t to, std::function<void()> action);
    static void forget();
    static bool isWatching();
};

}  // namespace Testing
}  // namespace Corvane
