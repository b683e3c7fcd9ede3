#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iomanip>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "tools/cvtp/Commands.h"
#include "tools/cvtp/Failure.h"
#include "tools/cvtp/Text.h"
#include "tools/cvtp/platform/PipeList.h"

namespace Corvane {
namespace Tools {

namespace {

const char* describe(ListedPipe::Server server) {
    switch (server) {
        case ListedPipe::Server::LIVES:
            return "yes";
        case ListedPipe::Server::NONE:
            return "no";
        case ListedPipe::Server::UNKNOWN:
            break;
    }
    return "-";
}

std::string userOf(const ListedPipe& pipe) {
    return pipe.user.empty() ? "-" : printable(pipe.user);
}

int list(bool mayConnect) {
    const std::vector<ListedPipe> pipes = listPipes(mayConnect);
    const std::string userTitle = "USER";
    std::size_t width = userTitle.size();
    for (const ListedPipe& pipe : pipes) {
        width = std::max(width, userOf(pipe).size());
    }
    const auto writeLine = [width](const std::string& server, const std::string& user, const std::string& name) {
        std::cout << std::left << std::setw(8) << server << std::setw(static_cast<int>(width) + 2) << user << name
                  << '\n';
    };
    // The name comes last: it alone may have blanks in it.
    writeLine("SERVER", userTitle, "PIPE");
    for (const ListedPipe& pipe : pipes) {
        writeLine(describe(pipe.server), userOf(pipe), printable(pipe.name));
    }
    if (!std::cout.flush()) {
        throw UsageError("cannot write to standard output");
    }
    return EXIT_OK;
}

}  // namespace

void addListCommand(CLI::App& app, int& exitCode) {
    CLI::App* const command = app.add_subcommand(
        "list",
        "List the pipes that exist: whether a server lives behind each (yes, no, or - for unknown), whose "
        "it is, and its name. On Linux names are in small letters, and a long name is shown as its digest; "
        "on Windows the pipes of all programs are listed");
    const auto mayConnect = std::make_shared<bool>(false);
    command->add_flag("--connect", *mayConnect,
                      "Find out the user on Windows, too: connect to each pipe for a moment, which its server sees "
                      "as a client that goes again");
    command->callback([mayConnect, &exitCode] {
        try {
            exitCode = list(*mayConnect);
        } catch (const std::exception& error) {
            complain(error.what());
            exitCode = EXIT_USAGE;
        }
    });
}

}  // namespace Tools
}  // namespace Corvane
