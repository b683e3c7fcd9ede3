#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/cvtp/ConfigOptions.h"
#include "tools/cvtp/LogOptions.h"
#include "tools/cvtp/RequestBody.h"

namespace CLI {
class App;
}

namespace Corvane {
namespace Cvtp {
class AbstractCvtpRequest;
class CvtpClient;
}  // namespace Cvtp

namespace Tools {

/// What the commands that send a request have in common.
struct RequestOptions {
    std::string pipe;
    std::string resource;
    /// Each as "Name: value".
    std::vector<std::string> headers;
    std::optional<int> connectTimeout;
    ConfigOptions config;
    BodyOptions body;
    LogOptions log;

    void addTo(CLI::App& command);

    /// @throws UsageError the configuration file cannot be used.
    void setOptionsOf(Cvtp::CvtpClient& client) const;

    /// Gives the request its headers.
    ///
    /// @throws UsageError one of them is not a header or says how the body is framed.
    void setHeadersOf(Cvtp::AbstractCvtpRequest& request) const;
};

}  // namespace Tools
}  // namespace Corvane
