#pragma once

namespace Corvane {
namespace Tools {

/// Makes standard input, output and error pass all bytes on as they are. Called first of all.
void passBytesThrough();

}  // namespace Tools
}  // namespace Corvane
