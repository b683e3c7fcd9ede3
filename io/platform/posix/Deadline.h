#pragma once

#include <chrono>

#include "io/platform/posix/SystemCalls.h"

namespace Corvane {
namespace Io {
namespace Platform {

/// The moment at which a call gives up, on a clock that nobody sets.
class Deadline {
 public:
    using Moment = std::chrono::steady_clock::time_point;

    /// @param timeoutMs milliseconds from now; 0 and below mean never.
    explicit Deadline(int timeoutMs)
        : unlimited(timeoutMs <= 0),
          end(unlimited ? Clock::time_point() : calls().now() + std::chrono::milliseconds(timeoutMs)) {}

    bool isUnlimited() const { return unlimited; }

    /// Milliseconds that are left, rounded up, so that a wait of that length does not end too early; 0 when the
    /// moment has passed. Of no use without a limit.
    int remaining() const {
        using std::chrono::milliseconds;
        const Clock::duration left = end - calls().now();
        if (left <= Clock::duration::zero()) {
            return 0;
        }
        return static_cast<int>(std::chrono::ceil<milliseconds>(left).count());
    }

    /// The same in the form that poll() takes: -1 without a limit.
    int forPoll() const { return unlimited ? -1 : remaining(); }

 private:
    using Clock = std::chrono::steady_clock;

    bool unlimited;
    Clock::time_point end;
};

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
