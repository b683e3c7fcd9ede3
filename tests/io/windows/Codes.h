#pragma once

#include <cstddef>
#include <string>
#include <vector>

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

}  // namespace Testing
}  // namespace Corvane
