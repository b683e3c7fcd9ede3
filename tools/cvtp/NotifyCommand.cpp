#include <CLI/CLI.hpp>
#include <memory>

#include "cvtp/CvtpClient.h"
#include "cvtp/NotifyRequest.h"
#include "tools/cvtp/Commands.h"
#include "tools/cvtp/Failure.h"
#include "tools/cvtp/RequestOptions.h"

namespace Corvane {
namespace Tools {

namespace {

int notify(const RequestOptions& options) {
    const LogFiles logFiles(options.log);
    RequestBody body(options.body);
    Cvtp::CvtpClient client;
    options.setOptionsOf(client);
    Cvtp::NotifyRequest request(&client, options.pipe, options.resource);
    options.setHeadersOf(request);
    body.giveTo(request);
    request.execute();
    return EXIT_OK;
}

}  // namespace

void addNotifyCommand(CLI::App& app, int& exitCode) {
    CLI::App* const command = app.add_subcommand("notify", "Send a NOTIFY, which is not answered");
    const auto options = std::make_shared<RequestOptions>();
    options->addTo(*command);
    command->callback(
        [options, &exitCode] { exitCode = runWithPipe(options->pipe, [&] { return notify(*options); }); });
}

}  // namespace Tools
}  // namespace Corvane
