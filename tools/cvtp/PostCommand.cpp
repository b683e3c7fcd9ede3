#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <memory>
#include <vector>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/PostRequest.h"
#include "io/Exceptions.h"
#include "tools/cvtp/Commands.h"
#include "tools/cvtp/Failure.h"
#include "tools/cvtp/RequestOptions.h"
#include "tools/cvtp/Text.h"

namespace Corvane {
namespace Tools {

namespace {

struct PostOptions {
    RequestOptions request;
    std::string outputFile;
    bool showHead = false;
};

/// Where the body of the answer goes.
class Output {
 public:
    explicit Output(const std::string& fileName) : name(fileName) {
        if (!name.empty()) {
            file.open(name, std::ios::binary | std::ios::trunc);
            check(file);
        }
    }

    std::ostream& stream() { return name.empty() ? std::cout : file; }

    void finish() { check(stream().flush()); }

 private:
    void check(const std::ostream& out) const {
        if (!out) {
            throw UsageError("cannot write to " + (name.empty() ? "standard output" : "the file '" + name + "'"));
        }
    }

    std::string name;
    std::ofstream file;
};

/// The values of a header the way they stand in a head.
std::string joined(const std::vector<std::string>& values) {
    std::string line;
    for (const std::string& value : values) {
        line += (line.empty() ? "" : ",") + value;
    }
    return line;
}

void printHead(Cvtp::CvtpResponse& response) {
    std::cout << printable(response.getStartLine()) << "\n";
    for (const std::string& name : response.getHeaderNames()) {
        std::cout << printable(name + ": " + joined(response.getHeaders(name))) << "\n";
    }
    std::cout << "\n";
}

void copyBody(Cvtp::CvtpResponse& response, Output& output) {
    std::istream& in = *response.getBodyStream();
    std::vector<char> block(64 * 1024);
    std::uintmax_t copied = 0;
    while (in && output.stream()) {
        in.read(block.data(), static_cast<std::streamsize>(block.size()));
        output.stream().write(block.data(), in.gcount());
        copied += static_cast<std::uintmax_t>(in.gcount());
    }
    output.finish();
    if (!response.isBodyComplete()) {
        throw Io::CvPipeException("The answer broke off after " + byteCount(copied) + " of its body.");
    }
}

int post(const PostOptions& options) {
    const LogFiles logFiles(options.request.log);
    RequestBody body(options.request.body);
    Output output(options.outputFile);
    Cvtp::CvtpClient client;
    options.request.setOptionsOf(client);
    Cvtp::PostRequest request(&client, options.request.pipe, options.request.resource);
    options.request.setHeadersOf(request);
    body.giveTo(request);
    const std::unique_ptr<Cvtp::CvtpResponse> response(request.execute());
    if (options.showHead) {
        printHead(*response);
    }
    copyBody(*response, output);
    const int status = response->getStatusCode();
    if (status >= 200 && status <= 299) {
        return EXIT_OK;
    }
    complain("pipe '" + options.request.pipe + "': " + options.request.resource + " was answered with " +
             std::to_string(status) + " " + response->getReasonPhrase());
    return EXIT_OTHER_STATUS;
}

}  // namespace

void addPostCommand(CLI::App& app, int& exitCode) {
    CLI::App* const command = app.add_subcommand(
        "post",
        "Send a POST and write the body of the answer to standard output. Ends with 0 when the status is "
        "2xx, 1 when it is another, 2 when the command line or a file is wrong, 3 when the exchange failed");
    const auto options = std::make_shared<PostOptions>();
    options->request.addTo(*command);
    command->add_option("-o,--output", options->outputFile, "Write the body of the answer to this file")
        ->type_name("FILE");
    command->add_flag("-i,--include", options->showHead,
                      "Show the start line and the headers of the answer on standard output");
    command->callback(
        [options, &exitCode] { exitCode = runWithPipe(options->request.pipe, [&] { return post(*options); }); });
}

}  // namespace Tools
}  // namespace Corvane
