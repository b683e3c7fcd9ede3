#include "tools/cvtp/platform/PipeList.h"

#include <windows.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <type_traits>

#include "tools/cvtp/platform/windows/PipeUser.h"

namespace Corvane {
namespace Tools {

namespace {

const std::string PREFIX = "\\\\.\\pipe\\";

struct FindCloser {
    void operator()(HANDLE handle) const { ::FindClose(handle); }
};
using Find = std::unique_ptr<std::remove_pointer_t<HANDLE>, FindCloser>;

}  // namespace

std::vector<ListedPipe> listPipes(bool mayConnect) {
    WIN32_FIND_DATAA entry = {};
    const HANDLE first = ::FindFirstFileA((PREFIX + "*").c_str(), &entry);
    if (first == INVALID_HANDLE_VALUE) {
        throw std::runtime_error("the pipes cannot be listed, error " + std::to_string(::GetLastError()));
    }
    const Find find(first);
    std::vector<ListedPipe> pipes;
    do {
        // The system removes a pipe with the last handle of its server, so there is no pipe without one.
        pipes.push_back({entry.cFileName, ListedPipe::Server::LIVES, std::string()});
    } while (::FindNextFileA(find.get(), &entry));
    for (ListedPipe& pipe : pipes) {
        pipe.user = mayConnect ? userOfPipe(PREFIX + pipe.name) : std::string();
    }
    std::sort(pipes.begin(), pipes.end(),
              [](const ListedPipe& left, const ListedPipe& right) { return left.name < right.name; });
    return pipes;
}

}  // namespace Tools
}  // namespace Corvane
