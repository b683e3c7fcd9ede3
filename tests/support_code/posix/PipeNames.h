#pragma once

namespace Corvane {
namespace Testing {

/// Keeps the names of pipes apart from those of other processes. Here the pipe folder does that.
class PipeNames {
 public:
    PipeNames() {}
};

}  // namespace Testing
}  // namespace Corvane
