#include <CLI/CLI.hpp>
#include <iostream>

#include "cvtp/Version.h"
#include "tools/cvtp/Commands.h"
#include "tools/cvtp/Failure.h"
#include "tools/cvtp/platform/StandardStreams.h"

int main(int argc, char** argv) {
    Corvane::Tools::passBytesThrough();
    // Bodies go through these streams; without the ties to C they move by the block.
    std::ios::sync_with_stdio(false);

    CLI::App app("Sends and serves CVTP requests over named pipes.", "cvtp");
    // On Windows a resource such as /orders would be taken for an option.
    app.allow_windows_style_options(false);
    app.require_subcommand(1);
    app.set_version_flag("--version",
                         "cvtp " CVTP_TOOL_VERSION " (" + Corvane::Cvtp::Version::CURRENT_VERSION.toString() + ")");
    int exitCode = Corvane::Tools::EXIT_OK;
    Corvane::Tools::addServeCommand(app, exitCode);
    Corvane::Tools::addPostCommand(app, exitCode);
    Corvane::Tools::addNotifyCommand(app, exitCode);
    Corvane::Tools::addListCommand(app, exitCode);
    Corvane::Tools::addConfigCommand(app, exitCode);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? Corvane::Tools::EXIT_OK : Corvane::Tools::EXIT_USAGE;
    }
    return exitCode;
}
