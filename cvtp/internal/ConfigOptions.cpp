#include "cvtp/internal/ConfigOptions.h"

#include <functional>
#include <map>
#include <sstream>
#include <xercesc/dom/DOM.hpp>
#include <xercesc/util/XMLException.hpp>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpServer.h"
#include "cvtp/internal/ConfigDocument.h"
#include "cvtp/internal/Logging.h"
#include "cvtp/internal/XmlText.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

using Corvane::Cvtp::CvtpClient;
using Corvane::Cvtp::CvtpServer;
using xercesc::DOMElement;
using xercesc::DOMNode;

/// What to do with the value of an attribute.
using Setter = std::function<void(const DOMNode& attribute)>;
using Setters = std::map<std::string, Setter>;

/// @throws xercesc::NumberFormatException after a line at ERROR.
int numberIn(const DOMNode& attribute) {
    try {
        return intIn(attribute.getNodeValue());
    } catch (const xercesc::XMLException&) {
        if (isError()) {
            logError("The attribute " + onOneLine(utf8Text(attribute.getNodeName())) +
                     " of the cvtp configuration file is not a number: \"" +
                     onOneLine(utf8Text(attribute.getNodeValue())) + "\"");
        }
        throw;
    }
}

void logUnrecognised(const std::string& element, const DOMNode& attribute) {
    if (isError()) {
        std::ostringstream line;
        // The address of the name and not the name itself; deliberate, as is the spelling.
        line << "Unrecognised " << element << " configuration attribute "
             << static_cast<const void*>(attribute.getNodeName());
        logError(line.str());
    }
}

void setOptions(const ConfigDocument& document, const std::string& element, const std::string& function,
                const std::string& component, const Setters& setters) {
    if (!document.isLoaded()) {
        if (isDebug()) {
            logDebug("CvtpConfiguration not available.");
        }
        return;
    }
    const DOMElement* const entry = document.findEntry(element, function, component);
    if (entry == nullptr) {
        return;
    }
    const xercesc::DOMNamedNodeMap& attributes = *entry->getAttributes();
    for (XMLSize_t i = 0; i < attributes.getLength(); ++i) {
        const DOMNode& attribute = *attributes.item(i);
        const std::string name = utf8Text(attribute.getNodeName());
        if (name == "function" || name == "component") {
            continue;
        }
        const auto setter = setters.find(name);
        if (setter != setters.end()) {
            setter->second(attribute);
        } else {
            logUnrecognised(element, attribute);
        }
    }
}

}  // namespace

void setClientOptions(CvtpClient& client, const ConfigDocument& document, const std::string& function,
                      const std::string& component) {
    const auto to = [&client](CvtpClient::ClientOptions option) {
        return [&client, option](const DOMNode& attribute) { client.setOption(option, numberIn(attribute)); };
    };
    const auto refuseReadTimeout = [](const DOMNode&) {
        // The blank at the end is deliberate.
        logWarn("Unsupported C++ CvtpClient option: read_timeout ");
    };
    setOptions(document, "CvtpClient", function, component,
               {{"connect_timeout", to(CvtpClient::CONNECTION_TIMEOUT)},
                {"read_timeout", refuseReadTimeout},
                {"stale_timeout", to(CvtpClient::STALE_TIMEOUT)},
                {"buffer_size", to(CvtpClient::BUFFER_SIZE)}});
}

void setServerOptions(CvtpServer& server, const ConfigDocument& document, const std::string& function,
                      const std::string& component) {
    const auto to = [&server](CvtpServer::ServerOptions option) {
        return [&server, option](const DOMNode& attribute) { server.setOption(option, numberIn(attribute)); };
    };
    setOptions(document, "CvtpServer", function, component,
               {{"max_request_processors", to(CvtpServer::MAX_REQUEST_PROCESSORS)},
                {"accept_timeout", to(CvtpServer::ACCEPT_TIMEOUT)},
                {"idle_timeout", to(CvtpServer::IDLE_TIMEOUT)},
                {"receive_timeout", to(CvtpServer::RECEIVE_TIMEOUT)},
                {"buffer_size", to(CvtpServer::BUFFER_SIZE)}});
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
