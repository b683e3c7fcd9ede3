#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "cvtp/CvtpServer.h"
#include "io/Exceptions.h"
#include "io/ServerCvPipe.h"
#include "tools/cvtp/Commands.h"
#include "tools/cvtp/ConfigOptions.h"
#include "tools/cvtp/EchoHandler.h"
#include "tools/cvtp/Failure.h"
#include "tools/cvtp/LogOptions.h"
#include "tools/cvtp/platform/StopSignal.h"

namespace Corvane {
namespace Tools {

namespace {

using Cvtp::CvtpServer;

struct ServeOptions {
    std::string pipe;
    bool echo = false;
    std::vector<std::string> notFound;
    std::optional<int> maxRequestProcessors;
    std::optional<int> idleTimeout;
    std::optional<int> receiveTimeout;
    std::optional<int> bufferSize;
    ConfigOptions config;
    LogOptions log;

    void addTo(CLI::App& command);
    /// @throws UsageError the configuration file cannot be used.
    void setOptionsOf(CvtpServer& server) const;
};

void ServeOptions::addTo(CLI::App& command) {
    command.add_option("PIPE", pipe, "The name of the pipe")->required()->type_name("");
    command
        .add_flag("--echo", echo,
                  "Answer each POST with its own body and headers; /missing is answered with 404. To be given: "
                  "there is no other way to answer yet")
        ->required();
    command
        .add_option("--not-found", notFound,
                    "Another resource that is answered with 404; may be given several times")
        ->type_name("RESOURCE")
        ->allow_extra_args(false);
    command
        .add_option("--max-request-processors", maxRequestProcessors,
                    "How many clients are served at once, 3 at least; 0 is without limit (default 5)")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber);
    command
        .add_option("--idle-timeout", idleTimeout,
                    "How long a client may be silent between requests, in milliseconds (default 13000)")
        ->type_name("MS")
        ->check(CLI::NonNegativeNumber);
    command
        .add_option("--receive-timeout", receiveTimeout,
                    "How long a client may be silent within a request, in milliseconds (default 3000)")
        ->type_name("MS")
        ->check(CLI::NonNegativeNumber);
    command.add_option("--buffer-size", bufferSize, "The size of the buffers, in bytes (default 4096)")
        ->type_name("N")
        ->check(CLI::Range(1, 1 << 30));
    config.addTo(command);
    log.addTo(command);
}

void ServeOptions::setOptionsOf(CvtpServer& server) const {
    // First, so that what stands on the command line wins.
    config.setOptionsOf(server);
    const auto set = [&server](CvtpServer::ServerOptions option, const std::optional<int>& value) {
        if (value) {
            server.setOption(option, *value);
        }
    };
    set(CvtpServer::MAX_REQUEST_PROCESSORS, maxRequestProcessors);
    set(CvtpServer::IDLE_TIMEOUT, idleTimeout);
    set(CvtpServer::RECEIVE_TIMEOUT, receiveTimeout);
    set(CvtpServer::BUFFER_SIZE, bufferSize);
}

/// The server keeps to itself why it has no pipe, so this tries once more to tell the user.
///
/// @throws CvPipeException always.
[[noreturn]] void throwWhyNotBound(const std::string& pipeName) {
    const Io::ServerCvPipe attempt(pipeName, true, true);
    throw Io::CvPipeException("The pipe could not be created.");
}

int serve(const ServeOptions& options) {
    const LogFiles logFiles(options.log);
    CvtpServer server(options.pipe, 1);
    if (!server.isBound()) {
        throwWhyNotBound(options.pipe);
    }
    options.setOptionsOf(server);
    // Signals are held back before the server has threads that could receive them, and are answered only once it
    // runs: to stop it earlier would have no effect. The server outlives the thread that stops it.
    StopSignal stopSignal;
    std::set<std::string> missing(options.notFound.begin(), options.notFound.end());
    missing.insert("/missing");
    bool wasReady = false;
    EchoHandler handler(std::move(missing), [&] {
        wasReady = true;
        std::cout << "Serving on pipe " << options.pipe << std::endl;
        stopSignal.whenAsked([&server] { server.shutdown(); });
    });
    server.setHandler(&handler);
    server.run();
    if (!wasReady) {
        // The server tells its log why, and nobody else.
        throw Io::CvPipeException("The server ended before it was ready; with the option --log it tells why.");
    }
    std::cout << handler.summary() << std::endl;
    return EXIT_OK;
}

}  // namespace

void addServeCommand(CLI::App& app, int& exitCode) {
    CLI::App* const command = app.add_subcommand(
        "serve", "Serve a pipe until SIGINT or SIGTERM comes, and print a line for each request");
    const auto options = std::make_shared<ServeOptions>();
    options->addTo(*command);
    command->callback(
        [options, &exitCode] { exitCode = runWithPipe(options->pipe, [&] { return serve(*options); }); });
}

}  // namespace Tools
}  // namespace Corvane
