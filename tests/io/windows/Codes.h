#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "io/platform/windows/WindowsHeader.h"

// What the system says in the log lines that tests compare.
namespace Corvane {
namespace Testing {
namespace Codes {

const std::string NO_HANDLE = "6";
const std::string NAME_TAKEN = "5";
const std::string NOT_ALLOWED = "5";
const std::string WRONG_NAME = "123";

/// How maskedTexts() shows the event of an open pipe.
const std::string EVENT = "N";

/// Of so many reads at the end of data.
inline std::vector<std::string> linesAtTheEnd(std::size_t reads) {
    return std::vector<std::string>(reads, "WARN: ReadFile error: 109");
}

}  // namespace Codes

/// Why a test cannot hold on this system; null when it can. Only Wine has such tests, and these are all of them.
inline const char* reasonToSkip(const std::string& test) {
    static const char* const FIRST_INSTANCE = "Wine ignores FILE_FLAG_FIRST_PIPE_INSTANCE";
    static const std::map<std::string, const char*> SKIPPED = {
        {"ServerCvPipeTest.ASecondServerIsRefused", FIRST_INSTANCE},
        {"ServerCvPipeTest.AcceptOnAServerThatCouldNotBeBoundFails", FIRST_INSTANCE},
    };
    static const bool isWine = ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
    const auto found = SKIPPED.find(test);
    return isWine && found != SKIPPED.end() ? found->second : nullptr;
}

}  // namespace Testing
}  // namespace Corvane
