#pragma once

#include <functional>

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// Keeps the process alive when a thread faults (a null pointer, a division by zero, an address that is not there)
/// inside guarded work, if the application's filter says so. What the abandoned work held is not released: memory
/// and locks of its stack frames are lost.
class FaultGuard {
 public:
    /// What the filter answers. Only the sign counts.
    enum Answer : int { GO_ON_AT_THE_FAULT = -1, PASS_ON = 0, ABANDON_THE_WORK = 1 };

    /// The application's function, kept without its type, and how to call it. Both null: no filter.
    struct Filter {
        using Function = void (*)();

        Function function = nullptr;
        int (*invoke)(Function function, unsigned int code, void* info) = nullptr;

        explicit operator bool() const { return function != nullptr; }
    };

    /// The filter of the process. Setting one takes the fault signals over; faults outside of guarded work go where
    /// they went before. Setting none gives the signals back.
    static void setFilter(const Filter& filter);
    static Filter getFilter();

    /// Runs `work`, with the faults of this thread shown to `filter`.
    ///
    /// @return true when the work returned, false when it was abandoned after a fault.
    static bool run(const Filter& filter, const std::function<void()>& work);
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
