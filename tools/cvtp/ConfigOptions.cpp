#include "tools/cvtp/ConfigOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <functional>
#include <utility>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpConfig.h"
#include "cvtp/CvtpServer.h"
#include "tools/cvtp/Failure.h"

namespace Corvane {
namespace Tools {

namespace {

using Cvtp::CvtpClient;
using Cvtp::CvtpConfig;
using Cvtp::CvtpServer;

template <typename Option>
using Options = std::vector<std::pair<std::string, Option>>;

const std::string CLIENT = "CvtpClient";
const Options<CvtpClient::ClientOptions> CLIENT_OPTIONS = {{"connect_timeout", CvtpClient::CONNECTION_TIMEOUT},
                                                           {"stale_timeout", CvtpClient::STALE_TIMEOUT},
                                                           {"buffer_size", CvtpClient::BUFFER_SIZE}};

const std::string SERVER = "CvtpServer";
const Options<CvtpServer::ServerOptions> SERVER_OPTIONS = {
    {"max_request_processors", CvtpServer::MAX_REQUEST_PROCESSORS},
    {"accept_timeout", CvtpServer::ACCEPT_TIMEOUT},
    {"idle_timeout", CvtpServer::IDLE_TIMEOUT},
    {"receive_timeout", CvtpServer::RECEIVE_TIMEOUT},
    {"buffer_size", CvtpServer::BUFFER_SIZE}};

std::string describe(const std::string& element, const EntryChoice& choice) {
    return "the " + element + " entry for " + choice.text();
}

/// Complains of all that an application would stumble over or not see.
///
/// @param isOption whether an entry of this kind can set an option of that name.
void check(const std::vector<EntryAttribute>& attributes, const std::string& element, const EntryChoice& choice,
           const std::function<bool(const std::string&)>& isOption, Configured& configured) {
    const std::string entry = describe(element, choice);
    std::string notANumber;
    for (const EntryAttribute& attribute : attributes) {
        if (isOption(attribute.name)) {
            if (!attribute.isNumber) {
                if (!notANumber.empty()) {
                    complain(notANumber);
                }
                notANumber = entry + " has no number in " + attribute.name + ": '" + attribute.value + "'";
            }
        } else if (attribute.name == "read_timeout" && element == CLIENT) {
            complain(entry + " has a read_timeout, which is not supported and has no effect");
        } else {
            complain(entry + " has the unknown attribute '" + attribute.name + "', which has no effect");
            configured.hasUnknown = true;
        }
    }
    if (!notANumber.empty()) {
        throw UsageError(notANumber);
    }
}

/// @param set sets the options of the entry.
template <typename Target, typename Option>
Configured configure(Target& target, const Options<Option>& options, const std::string& element,
                     const ConfigFile& file, const EntryChoice& choice, const std::function<void()>& set) {
    Configured configured;
    const auto attributes = file.attributesOf(element, choice);
    if (attributes) {
        configured.hasEntry = true;
        const auto isOption = [&options](const std::string& name) {
            return std::any_of(options.begin(), options.end(),
                               [&name](const auto& option) { return option.first == name; });
        };
        check(*attributes, element, choice, isOption, configured);
    }
    set();
    for (const auto& option : options) {
        const bool isFromFile =
            attributes && std::any_of(attributes->begin(), attributes->end(),
                                      [&option](const auto& attribute) { return attribute.name == option.first; });
        configured.options.push_back({option.first, target.getIntegerOption(option.second), isFromFile});
    }
    return configured;
}

template <typename Target>
void configureFor(Target& target, const std::string& element, const std::string& text) {
    const EntryChoice choice = EntryChoice::parse(text);
    const ConfigFile file;
    if (!configure(target, file, choice).hasEntry) {
        complain("the configuration file '" + file.path() + "' has no " + element + " entry for " + choice.text() +
                 ", so it changes no option");
    }
}

}  // namespace

Configured configure(CvtpClient& client, const ConfigFile& file, const EntryChoice& choice) {
    return configure(client, CLIENT_OPTIONS, CLIENT, file, choice, [&] {
        CvtpConfig::getInstance().setCvtpClientOptions(client, choice.function, choice.component);
    });
}

Configured configure(CvtpServer& server, const ConfigFile& file, const EntryChoice& choice) {
    return configure(server, SERVER_OPTIONS, SERVER, file, choice, [&] {
        CvtpConfig::getInstance().setCvtpServerOptions(server, choice.function, choice.component);
    });
}

void ConfigOptions::addTo(CLI::App& command) {
    command
        .add_option(
            "--config", choice,
            "Take options from the entry for this function and component in the configuration file, which "
            "is CvtpConfig.xml or what the environment variable CvtpConfigurationFile names; options on the "
            "command line win")
        ->type_name("FUNCTION/COMPONENT");
}

void ConfigOptions::setOptionsOf(CvtpClient& client) const {
    if (choice) {
        configureFor(client, CLIENT, *choice);
    }
}

void ConfigOptions::setOptionsOf(CvtpServer& server) const {
    if (choice) {
        configureFor(server, SERVER, *choice);
    }
}

}  // namespace Tools
}  // namespace Corvane
