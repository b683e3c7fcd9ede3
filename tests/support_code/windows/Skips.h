#pragma once

#include <windows.h>

#include <map>
#include <string>

namespace Corvane {
namespace Testing {

/// Why a test cannot hold on this system; null when it can. Only Wine has such tests, and these are all of them.
/// Those whose names begin with "Tool." belong to the script cvtp-test, which looks for them in this text.
inline const char* reasonToSkip(const std::string& test) {
    static const char* const FIRST_INSTANCE = "Wine ignores FILE_FLAG_FIRST_PIPE_INSTANCE";
    static const std::map<std::string, const char*> SKIPPED = {
        {"ServerCvPipeTest.ASecondServerIsRefused", FIRST_INSTANCE},
        {"ServerCvPipeTest.AcceptOnAServerThatCouldNotBeBoundFails", FIRST_INSTANCE},
        {"CvtpServerTest.ExistsWithoutAPipeWhoseNameIsTaken", FIRST_INSTANCE},
        {"EndToEndTest.ASecondServerOnTheSameNameIsRefused", FIRST_INSTANCE},
        {"Tool.a_second_server_of_a_name_ends_with_3", FIRST_INSTANCE},
        {"Tool.list_shows_pipes_that_have_a_server", "Wine does not list the pipes that exist"},
    };
    static const bool isWine = ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
    const auto found = SKIPPED.find(test);
    return isWine && found != SKIPPED.end() ? found->second : nullptr;
}

}  // namespace Testing
}  // namespace Corvane
