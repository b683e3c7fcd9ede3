#include "tools/cvtp/platform/TemporaryFile.h"

#include <wchar.h>

#include <windows.h>

namespace Corvane {
namespace Tools {

std::FILE* openTemporaryFile() {
    // Not std::tmpfile(), which takes the root of the drive, where ordinary users may not write.
    wchar_t directory[MAX_PATH + 1];
    wchar_t file[MAX_PATH + 1];
    const DWORD length = GetTempPathW(MAX_PATH + 1, directory);
    if (length == 0 || length > MAX_PATH || GetTempFileNameW(directory, L"cvt", 0, file) == 0) {
        return nullptr;
    }
    // T: kept in memory as far as that goes; D: gone when it is closed.
    std::FILE* const opened = _wfopen(file, L"w+bTD");
    if (opened == nullptr) {
        DeleteFileW(file);
    }
    return opened;
}

}  // namespace Tools
}  // namespace Corvane
