#include <CLI/CLI.hpp>
#include <exception>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpServer.h"
#include "tools/cvtp/Commands.h"
#include "tools/cvtp/ConfigOptions.h"
#include "tools/cvtp/Failure.h"
#include "tools/cvtp/Text.h"

namespace Corvane {
namespace Tools {

namespace {

void writeLine(const std::string& entry, const std::string& option, const std::string& value,
               const std::string& from) {
    std::cout << std::left << std::setw(12) << entry << std::setw(24) << option << std::setw(13) << value << from
              << '\n';
}

void write(const std::string& entry, const Configured& configured) {
    for (const ConfiguredOption& option : configured.options) {
        writeLine(entry, option.name, std::to_string(option.value), option.isFromFile ? "file" : "default");
    }
}

/// Complains of an entry that cannot be used, so that what is wrong with the other one is told as well.
template <typename Target>
std::optional<Configured> tryToConfigure(Target& target, const ConfigFile& file, const EntryChoice& choice) {
    try {
        return configure(target, file, choice);
    } catch (const UsageError& error) {
        complain(error.what());
        return std::nullopt;
    }
}

int showConfig(const std::string& text) {
    const EntryChoice choice = EntryChoice::parse(text);
    const ConfigFile file;
    // No pipe can have the name of this server, so none is made.
    Cvtp::CvtpServer server("\\", 1);
    Cvtp::CvtpClient client;
    const std::optional<Configured> ofServer = tryToConfigure(server, file, choice);
    const std::optional<Configured> ofClient = tryToConfigure(client, file, choice);
    if (!ofServer || !ofClient) {
        return EXIT_USAGE;
    }
    std::cout << "File: " << printable(file.path()) << '\n';
    writeLine("ENTRY", "OPTION", "VALUE", "FROM");
    write("CvtpServer", *ofServer);
    write("CvtpClient", *ofClient);
    if (!std::cout.flush()) {
        throw UsageError("cannot write to standard output");
    }
    if (!ofServer->hasEntry && !ofClient->hasEntry) {
        throw UsageError("the configuration file '" + file.path() + "' has no entry for " + choice.text());
    }
    return ofServer->hasUnknown || ofClient->hasUnknown ? EXIT_USAGE : EXIT_OK;
}

}  // namespace

void addConfigCommand(CLI::App& app, int& exitCode) {
    CLI::App* const command = app.add_subcommand(
        "config",
        "Show the options that the configuration file gives to servers and clients of a function and a component, "
        "and where each comes from. The file is CvtpConfig.xml or what the environment variable "
        "CvtpConfigurationFile names. Ends with 0 when all is well, and 2 when the file is missing or not in "
        "order, "
        "has no such entry, or one with an unknown attribute or with a value that is not a number");
    const auto choice = std::make_shared<std::string>();
    command->add_option("FUNCTION/COMPONENT", *choice, "The function and the component of the entries")
        ->required()
        ->type_name("");
    command->callback([choice, &exitCode] {
        try {
            exitCode = showConfig(*choice);
        } catch (const std::exception& error) {
            complain(error.what());
            exitCode = EXIT_USAGE;
        }
    });
}

}  // namespace Tools
}  // namespace Corvane
