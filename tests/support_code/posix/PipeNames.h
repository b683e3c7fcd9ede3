#pragma once

#include <string>

namespace Corvane {
namespace Testing {

/// Keeps the names of pipes apart from those of other processes. Here the pipe folder does that.
class PipeNames {
 public:
    PipeNames() {}

    /// The name by which other processes know a pipe of this one, and the other way round.
    static std::string forOthers(const std::string& name) { return name; }
};

}  // namespace Testing
}  // namespace Corvane
