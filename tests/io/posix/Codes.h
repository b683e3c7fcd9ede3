#pragma once

#include <string>
#include <vector>

// What the system says in the log lines that tests compare.
namespace Corvane {
namespace Testing {
namespace Codes {

const std::string NO_HANDLE = "9";
const std::string NAME_TAKEN = "98";
const std::string NOT_ALLOWED = "13";
const std::string WRONG_NAME = "22";

/// How maskedTexts() shows the event of an open pipe.
const std::string EVENT = "-1";

/// Of so many reads at the end of data.
inline std::vector<std::string> linesAtTheEnd(std::size_t) {
    return {};
}

}  // namespace Codes

}  // namespace Testing
}  // namespace Corvane
