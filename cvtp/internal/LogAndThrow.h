#pragma once

#include <string>

#include "cvtp/internal/Logging.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// Misuse of an object and failures of the protocol go to the log and to the caller with the same text.
template <class Exception>
[[noreturn]] void logAndThrow(const std::string& message) {
    logError(message);
    throw Exception(message);
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
