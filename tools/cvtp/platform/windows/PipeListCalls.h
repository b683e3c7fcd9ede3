#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "tools/cvtp/platform/PipeList.h"
#include "tools/cvtp/platform/windows/PipeUser.h"

namespace Corvane {
namespace Tools {

/// What the list of pipes is made of. A test puts others in their place. A call of the system that fails leaves its
/// reason in GetLastError().
struct PipeListCalls {
    decltype(&::FindFirstFileA) findFirstFile = &::FindFirstFileA;
    decltype(&::FindNextFileA) findNextFile = &::FindNextFileA;
    decltype(&::FindClose) findClose = &::FindClose;
    decltype(&Tools::userOfPipe) userOfPipe = &Tools::userOfPipe;
};

/// See the function of that name without the calls.
std::vector<ListedPipe> listPipes(bool mayConnect, const PipeListCalls& calls);

}  // namespace Tools
}  // namespace Corvane
