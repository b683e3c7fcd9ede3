// Tells what a program finds in its environment, for a test that runs it with more rights than its caller has.

#include <sys/auxv.h>
#include <unistd.h>

#include <iostream>
#include <string>

#include "io/platform/posix/PipeDirectory.h"
#include "io/platform/posix/PipeSecurity.h"

int main() {
    using namespace Corvane::Io::Platform;
    std::string folder;
    findPipeDirectory("/none", false, folder);
    std::cout << (::getauxval(AT_SECURE) != 0 ? "privileged" : "ordinary") << ", " << folder << ", "
              << (PipeSecurity().isDefault() ? "default access" : "other access") << std::flush;
    // The leak sanitizer cannot look into a process with such rights.
    ::_exit(0);
}
