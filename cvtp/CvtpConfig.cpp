#include "cvtp/CvtpConfig.h"

#include "cvtp/internal/ConfigDocument.h"
#include "cvtp/internal/ConfigOptions.h"
#include "cvtp/internal/Logging.h"
#include "cvtp/internal/XmlText.h"

namespace Corvane {
namespace Cvtp {

using Internal::Cvtp::ConfigDocument;
using Internal::Cvtp::isError;
using Internal::Cvtp::isInfo;
using Internal::Cvtp::logError;
using Internal::Cvtp::logInfo;

CvtpConfig& CvtpConfig::getInstance() {
    // Never destroyed, and Xerces never terminated: threads may still set options while the process ends, and the
    // application may use Xerces until then, too.
    static CvtpConfig* const instance = new CvtpConfig;
    return *instance;
}

CvtpConfig::CvtpConfig() : document(std::make_unique<ConfigDocument>()) {
    Internal::Cvtp::initializeXml();
    loadConfigFile();
}

CvtpConfig::~CvtpConfig() = default;

void CvtpConfig::loadConfigFile() {
    const std::string path = Internal::Cvtp::configFilePath();
    if (!Internal::Cvtp::exists(path)) {
        if (isError()) {
            logError("Cannot find cvtp Configuration file: " + path);
        }
        return;
    }
    if (isInfo()) {
        logInfo("Found cvtp configuration file: " + path);
    }
    document->load(path);
}

bool CvtpConfig::isLoaded() const {
    return document->isLoaded();
}

void CvtpConfig::setCvtpClientOptions(CvtpClient& client, const std::string& function,
                                      const std::string& component) {
    Internal::Cvtp::setClientOptions(client, *document, function, component);
}

void CvtpConfig::setCvtpServerOptions(CvtpServer& server, const std::string& function,
                                      const std::string& component) {
    Internal::Cvtp::setServerOptions(server, *document, function, component);
}

}  // namespace Cvtp
}  // namespace Corvane
