#include "tools/cvtp/platform/PipeList.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <type_traits>

#include "tools/cvtp/platform/windows/PipeListCalls.h"

namespace Corvane {
namespace Tools {

namespace {

const std::string PREFIX = "\\\\.\\pipe\\";

using Find = std::unique_ptr<std::remove_pointer_t<HANDLE>, decltype(&::FindClose)>;

/// To be called before any other call of the system.
void failUnless(DWORD expected) {
    const DWORD code = ::GetLastError();
    if (code != expected) {
        throw std::runtime_error("the pipes cannot be listed, error " + std::to_string(code));
    }
}

/// The system lists each pipe once, however many instances it has, and in an order of its own.
std::vector<std::string> findNames(const PipeListCalls& calls) {
    std::vector<std::string> names;
    WIN32_FIND_DATAA entry = {};
    const HANDLE first = calls.findFirstFile((PREFIX + "*").c_str(), &entry);
    if (first == INVALID_HANDLE_VALUE) {
        // Says that there is nothing to be found; everything else is a failure.
        failUnless(ERROR_FILE_NOT_FOUND);
        return names;
    }
    const Find find(first, calls.findClose);
    do {
        names.emplace_back(entry.cFileName);
    } while (calls.findNextFile(find.get(), &entry));
    failUnless(ERROR_NO_MORE_FILES);
    return names;
}

}  // namespace

std::vector<ListedPipe> listPipes(bool mayConnect, const PipeListCalls& calls) {
    std::vector<ListedPipe> pipes;
    for (const std::string& name : findNames(calls)) {
        // The system removes a pipe with the last handle of its server, so there is no pipe without one.
        pipes.push_back({name, ListedPipe::Server::LIVES, mayConnect ? calls.userOfPipe(PREFIX + name) : ""});
    }
    std::sort(pipes.begin(), pipes.end(),
              [](const ListedPipe& left, const ListedPipe& right) { return left.name < right.name; });
    return pipes;
}

std::vector<ListedPipe> listPipes(bool mayConnect) {
    return listPipes(mayConnect, PipeListCalls());
}

}  // namespace Tools
}  // namespace Corvane
