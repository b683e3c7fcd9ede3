#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/cvtp/ConfigFile.h"

namespace CLI {
class App;
}

namespace Corvane {
namespace Cvtp {
class CvtpClient;
class CvtpServer;
}  // namespace Cvtp

namespace Tools {

/// An option that an entry can set.
struct ConfiguredOption {
    std::string name;
    int value;
    bool isFromFile;
};

/// What has come of an entry.
struct Configured {
    bool hasEntry = false;
    /// The entry has attributes that are not options.
    bool hasUnknown = false;
    /// All options that an entry can set, as they are now.
    std::vector<ConfiguredOption> options;
};

// These set the options of an entry, through the library, and complain of attributes that have no effect.
//
// @throws UsageError the value of an option is not a number, after a complaint of each other one. No option is set.

Configured configure(Cvtp::CvtpClient& client, const ConfigFile& file, const EntryChoice& choice);
Configured configure(Cvtp::CvtpServer& server, const ConfigFile& file, const EntryChoice& choice);

/// The option --config, which commands of clients and servers have.
struct ConfigOptions {
    /// As FUNCTION/COMPONENT.
    std::optional<std::string> choice;

    void addTo(CLI::App& command);

    // These set what the configuration file has, if the user asks for it.
    //
    // @throws UsageError the choice, the file or a value in it makes no sense.

    void setOptionsOf(Cvtp::CvtpClient& client) const;
    void setOptionsOf(Cvtp::CvtpServer& server) const;
};

}  // namespace Tools
}  // namespace Corvane
