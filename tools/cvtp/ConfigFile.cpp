#include "tools/cvtp/ConfigFile.h"

#include <xercesc/dom/DOM.hpp>
#include <xercesc/util/XMLException.hpp>

#include "cvtp/internal/ConfigDocument.h"
#include "cvtp/internal/XmlText.h"
#include "tools/cvtp/Failure.h"

namespace Corvane {
namespace Tools {

namespace {

using Internal::Cvtp::utf8Text;

bool isInt(const XMLCh* text) {
    try {
        Internal::Cvtp::intIn(text);
        return true;
    } catch (const xercesc::XMLException&) {
        return false;
    }
}

}  // namespace

EntryChoice EntryChoice::parse(const std::string& text) {
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos || text.find('/', slash + 1) != std::string::npos) {
        throw UsageError("'" + text + "' is not a function and a component; it has the form FUNCTION/COMPONENT");
    }
    return {text.substr(0, slash), text.substr(slash + 1)};
}

ConfigFile::ConfigFile()
    : name(Internal::Cvtp::configFilePath()), document(std::make_unique<Internal::Cvtp::ConfigDocument>()) {
    Internal::Cvtp::initializeXml();
    if (!Internal::Cvtp::exists(name)) {
        throw UsageError("cannot find the configuration file '" + name + "'");
    }
    const std::string failure = document->tryToLoad(name);
    if (!failure.empty()) {
        throw UsageError("the configuration file '" + name + "' cannot be used: " + failure);
    }
}

ConfigFile::~ConfigFile() = default;

std::optional<std::vector<EntryAttribute>> ConfigFile::attributesOf(const std::string& element,
                                                                    const EntryChoice& choice) const {
    const xercesc::DOMElement* const entry = document->findEntry(element, choice.function, choice.component);
    if (entry == nullptr) {
        return std::nullopt;
    }
    std::vector<EntryAttribute> found;
    const xercesc::DOMNamedNodeMap& attributes = *entry->getAttributes();
    for (XMLSize_t i = 0; i < attributes.getLength(); ++i) {
        const xercesc::DOMNode& attribute = *attributes.item(i);
        const std::string attributeName = utf8Text(attribute.getNodeName());
        if (attributeName != "function" && attributeName != "component") {
            found.push_back({attributeName, utf8Text(attribute.getNodeValue()), isInt(attribute.getNodeValue())});
        }
    }
    return found;
}

}  // namespace Tools
}  // namespace Corvane
