#include "tools/cvtp/RequestOptions.h"

#include <CLI/CLI.hpp>
#include <set>

#include "cvtp/AbstractCvtpRequest.h"
#include "cvtp/CvtpClient.h"
#include "tools/cvtp/Failure.h"

namespace Corvane {
namespace Tools {

namespace {

using Cvtp::CvtpMessage;

struct Header {
    std::string name;
    std::string value;
};

Header parseHeader(const std::string& text) {
    const std::size_t colon = text.find(':');
    const std::string name = CLI::detail::trim_copy(text.substr(0, colon));
    if (colon == std::string::npos || name.empty()) {
        throw UsageError("'" + text + "' is not a header; it has the form 'Name: value'");
    }
    return {name, CLI::detail::trim_copy(text.substr(colon + 1))};
}

void refuseFraming(const std::string& lowerName) {
    for (const std::string& framing : {CvtpMessage::HEADER_CONTENT_LENGTH, CvtpMessage::HEADER_TRANSFER_ENCODING}) {
        if (lowerName == CLI::detail::to_lower(framing)) {
            throw UsageError("the header " + framing + " follows from the body and cannot be given");
        }
    }
}

}  // namespace

void RequestOptions::addTo(CLI::App& command) {
    command.add_option("PIPE", pipe, "The name of the pipe")->required()->type_name("");
    command.add_option("RESOURCE", resource, "The resource that the request is for")->required()->type_name("");
    body.addTo(command);
    command.add_option("-H,--header", headers, "A header, as 'Name: value'; may be given several times")
        ->type_name("HEADER")
        ->allow_extra_args(false);
    command
        .add_option("--connect-timeout", connectTimeout,
                    "How long to wait for a busy server, in milliseconds; 0 waits forever (default 60000)")
        ->type_name("MS")
        ->check(CLI::NonNegativeNumber);
    config.addTo(command);
    log.addTo(command);
}

void RequestOptions::setOptionsOf(Cvtp::CvtpClient& client) const {
    client.setOption(Cvtp::CvtpClient::USER_AGENT, std::string("cvtp/" CVTP_TOOL_VERSION));
    config.setOptionsOf(client);
    // After the file, as it wins.
    if (connectTimeout) {
        client.setOption(Cvtp::CvtpClient::CONNECTION_TIMEOUT, *connectTimeout);
    }
}

void RequestOptions::setHeadersOf(Cvtp::AbstractCvtpRequest& request) const {
    std::set<std::string> given;
    for (const std::string& text : headers) {
        const Header header = parseHeader(text);
        const std::string lowerName = CLI::detail::to_lower(header.name);
        refuseFraming(lowerName);
        // The first one replaces what the library sets by itself, such as User-Agent; more of a name add to it.
        if (given.insert(lowerName).second) {
            request.setHeader(header.name, header.value);
        } else {
            request.addHeader(header.name, header.value);
        }
    }
}

}  // namespace Tools
}  // namespace Corvane
