#pragma once

#include <string>

namespace Corvane {

namespace Cvtp {
class CvtpClient;
class CvtpServer;
}  // namespace Cvtp

namespace Internal {
namespace Cvtp {

class ConfigDocument;

/// Set what the document has for a function and a component; see CvtpConfig.
///
/// @throws xercesc::NumberFormatException a value is no number.
void setClientOptions(Corvane::Cvtp::CvtpClient& client, const ConfigDocument& document,
                      const std::string& function, const std::string& component);
void setServerOptions(Corvane::Cvtp::CvtpServer& server, const ConfigDocument& document,
                      const std::string& function, const std::string& component);

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
