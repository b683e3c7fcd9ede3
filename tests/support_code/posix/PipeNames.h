#pragma once

#include <cstdlib>
#include <string>

namespace Corvane {
namespace Testing {

/// Keeps the names of pipes apart from those of other processes. Here the pipe folder does that.
class PipeNames {
 public:
    PipeNames() {}

    /// The name by which other processes know a pipe of this one, and the other way round.
    static std::string forOthers(const std::string& name) { return name; }

    /// Sets a variable of the environment. Not by Poco, which leaves a variable's former text in the environment
    /// after it has freed it; a process that is started then reads it.
    static void setVariable(const char* name, const std::string& value) { ::setenv(name, value.c_str(), 1); }
};

}  // namespace Testing
}  // namespace Corvane
