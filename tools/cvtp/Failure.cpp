#include "tools/cvtp/Failure.h"

#include <iostream>

#include "io/Exceptions.h"
#include "tools/cvtp/Text.h"

namespace Corvane {
namespace Tools {

namespace {

void complainAboutPipe(const std::string& pipeName, const std::string& cause) {
    complain("pipe '" + pipeName + "': " + cause);
}

}  // namespace

void complain(const std::string& text) {
    // What was already written to standard output comes first where both go to one terminal.
    std::cout.flush();
    std::cerr << "cvtp: " << printable(text) << std::endl;
}

int runWithPipe(const std::string& pipeName, const std::function<int()>& command) {
    try {
        return command();
    } catch (const UsageError& error) {
        complain(error.what());
        return EXIT_USAGE;
    } catch (Io::CvPipeException& error) {
        complainAboutPipe(pipeName, error.getMessage());
        return EXIT_TRANSPORT;
    } catch (const Io::IllegalStateException& error) {
        complainAboutPipe(pipeName, error.getMessage());
        return EXIT_USAGE;
    } catch (const Io::IllegalArgumentException&) {
        complainAboutPipe(pipeName, "The library refuses an argument.");
        return EXIT_USAGE;
    } catch (const std::exception& error) {
        complainAboutPipe(pipeName, error.what());
        return EXIT_TRANSPORT;
    }
}

}  // namespace Tools
}  // namespace Corvane
