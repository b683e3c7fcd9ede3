#include "cvtp/CvtpClient.h"

#include "cvtp/internal/DefaultConnectionManager.h"
#include "cvtp/internal/Logging.h"

namespace Corvane {
namespace Cvtp {

using Internal::Cvtp::DefaultConnectionManager;
using Internal::Cvtp::isDebug;
using Internal::Cvtp::logDebug;
using Internal::Cvtp::logError;

CvtpClient::CvtpClient() = default;

CvtpClient::CvtpClient(CvtpConnectionManager* manager) : manager(manager) {}

CvtpClient::~CvtpClient() {
    if (ownsManager) {
        delete manager;
    }
    manager = nullptr;
}

Version CvtpClient::getCvtpVersion() const {
    return Version::CURRENT_VERSION;
}

CvtpConnectionManager* CvtpClient::getManager() {
    if (manager == nullptr) {
        manager = new DefaultConnectionManager(connectionTimeout, staleTimeout);
        ownsManager = true;
    }
    return manager;
}

void CvtpClient::setOption(ClientOptions option, const std::string& value) {
    if (option != USER_AGENT) {
        logError("Attempt to set an invalid string option");
        return;
    }
    userAgent = value;
}

void CvtpClient::setOption(ClientOptions option, int value) {
    // An option that is known is set without a line in the log, on purpose; only an unknown one is named there.
    switch (option) {
        case CONNECTION_TIMEOUT:
            connectionTimeout = value;
            return;
        case STALE_TIMEOUT:
            staleTimeout = value;
            return;
        case BUFFER_SIZE:
            bufferSize = value;
            return;
        case USER_AGENT:
            break;
    }
    if (isDebug()) {
        logDebug("Setting CvtpClient option unrecognized.");
    }
    logError("Attempt to set an invalid integer option");
}

std::string CvtpClient::getStringOption(ClientOptions option) const {
    if (option != USER_AGENT) {
        logError("Attempt to retrieve an invalid string option");
        return std::string();
    }
    return userAgent;
}

int CvtpClient::getIntegerOption(ClientOptions option) const {
    switch (option) {
        case CONNECTION_TIMEOUT:
            return connectionTimeout;
        case STALE_TIMEOUT:
            return staleTimeout;
        case BUFFER_SIZE:
            return bufferSize;
        case USER_AGENT:
            break;
    }
    logError("Attempt to retrieve an invalid integer option");
    return -1;
}

}  // namespace Cvtp
}  // namespace Corvane
