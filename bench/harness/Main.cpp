// What the program of each peer does: `server ADDRESS WORKLOAD` or `client ADDRESS WORKLOAD SECONDS SERVER-ID`.

#include <unistd.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "harness/Measure.h"
#include "harness/Peer.h"
#include "harness/Process.h"

using namespace Corvane::Bench;

namespace {

constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;
constexpr int EXIT_NOT_OFFERED = 3;

Workload workloadOf(const std::string& name) {
    if (name.size() != 2 || name[0] != 'W' || name[1] < '1' || name[1] > '7') {
        throw std::invalid_argument("There is no workload " + name);
    }
    return static_cast<Workload>(name[1] - '1');
}

/// The end of standard input is how a server is told to end; nothing of it is left to be tidied up.
void endWithStandardInput() {
    std::thread([] {
        char byte = 0;
        while (read(STDIN_FILENO, &byte, 1) > 0) {
        }
        std::_Exit(EXIT_SUCCESS);
    }).detach();
}

int runServer(const Settings& settings) {
    endWithStandardInput();
    serve(settings, [] { std::cout << "ready" << std::endl; });
    return EXIT_SUCCESS;
}

int runClient(const Settings& settings, double seconds, int serverId) {
    print(measure(settings, seconds, serverId), std::cout);
    std::cout.flush();
    // Closing a thousand connections in order would only take time.
    std::_Exit(EXIT_SUCCESS);
}

int run(const std::vector<std::string>& arguments) {
    endWithParent();
    raiseFileLimit();
    if (arguments.size() == 3 && arguments[0] == "server") {
        return runServer({arguments[1], workloadOf(arguments[2])});
    }
    if (arguments.size() == 5 && arguments[0] == "client") {
        return runClient({arguments[1], workloadOf(arguments[2])}, std::stod(arguments[3]),
                         std::stoi(arguments[4]));
    }
    std::cerr << "This program is started by scripts/bench" << std::endl;
    return EXIT_USAGE;
}

}  // namespace

int main(int count, char** arguments) {
    try {
        return run(std::vector<std::string>(arguments + 1, arguments + count));
    } catch (const NotOffered& reason) {
        std::cerr << reason.what() << std::endl;
        std::_Exit(EXIT_NOT_OFFERED);
    } catch (const std::exception& error) {
        std::cerr << error.what() << std::endl;
        std::_Exit(EXIT_FAILED);
    }
}
