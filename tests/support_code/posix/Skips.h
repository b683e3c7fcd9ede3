#pragma once

#include <string>

namespace Corvane {
namespace Testing {

/// Why a test cannot hold on this system; null when it can. Here there is none.
inline const char* reasonToSkip(const std::string&) {
    return nullptr;
}

}  // namespace Testing
}  // namespace Corvane
