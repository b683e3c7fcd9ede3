#include "io/platform/windows/PipeEnd.h"

#include <string>

#include "cvtp/internal/Logging.h"

namespace Corvane {
namespace Io {
namespace Platform {

namespace {

using Internal::Cvtp::isError;
using Internal::Cvtp::logError;

int createManualResetEvent(Handle& event) {
    event = Handle(calls().createEvent(nullptr, TRUE, FALSE, nullptr));
    if (event.isOpen()) {
        return 0;
    }
    const DWORD code = GetLastError();
    if (isError()) {
        logError("CreateEvent failed: " + std::to_string(code));
    }
    return failureCode(code);
}

}  // namespace

int PipeEnd::createEvents() {
    const int code = createManualResetEvent(event);
    return code != 0 ? code : createManualResetEvent(writeEvent);
}

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
