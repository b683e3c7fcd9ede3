#pragma once

#include <windows.h>

#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace Corvane {
namespace Testing {

/// The tests that Wine cannot hold, with the reasons: the lines of tests/differences that begin with "wine".
inline std::map<std::string, std::string> readWineSkips() {
    std::map<std::string, std::string> skips;
    std::ifstream differences(CVTP_TEST_DIFFERENCES);
    std::string line;
    while (std::getline(differences, line)) {
        std::istringstream words(line);
        std::string kind;
        std::string test;
        words >> kind >> test >> std::ws;
        if (kind == "wine") {
            std::getline(words, skips[test]);
        }
    }
    return skips;
}

/// Why a test cannot hold on this system; null when it can. Only Wine has such tests.
inline const char* reasonToSkip(const std::string& test) {
    static const bool isWine = ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
    if (!isWine) {
        return nullptr;
    }
    static const std::map<std::string, std::string> SKIPS = readWineSkips();
    const auto found = SKIPS.find(test);
    return found != SKIPS.end() ? found->second.c_str() : nullptr;
}

}  // namespace Testing
}  // namespace Corvane
