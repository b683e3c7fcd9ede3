#pragma once

#include "io/platform/windows/Handle.h"

namespace Corvane {
namespace Io {
namespace Platform {

/// The handle of a pipe and the events of its operations.
struct PipeEnd {
    Handle pipe;
    /// For waiting for a client and for reading. The log calls it the event of the pipe.
    Handle event;
    /// For writing. A read that has timed out stays pending, and would wake a write that waited for the same event.
    Handle writeEvent;

    /// Creates both events. Logs a failure at ERROR, and leaves the pipe open.
    ///
    /// @return 0 or the code of the system.
    int createEvents();

    bool hasEvents() const { return event.isOpen() && writeEvent.isOpen(); }
};

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
