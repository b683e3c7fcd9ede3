#include "cvtp/internal/ConfigDocument.h"

#include <sys/stat.h>

#include <cstdio>
#include <stdexcept>
#include <vector>
#include <xercesc/framework/MemBufInputSource.hpp>
#include <xercesc/sax/SAXParseException.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>

#include "cvtp/internal/ConfigParser.h"
#include "cvtp/internal/Logging.h"
#include "cvtp/internal/XmlText.h"
#include "io/platform/PipePlatform.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

using xercesc::DOMElement;
using xercesc::DOMNode;
using xercesc::XMLString;

/// What lies at the path is not what can be parsed.
class FileError : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

/// The file in memory. Xerces would take a path that looks like an URL for one, and open what that names.
std::vector<XMLByte> readFile(const std::string& path) {
    // To open a pipe could block for ever, and a device need not come to an end.
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || (status.st_mode & S_IFMT) != S_IFREG) {
        throw FileError("The cvtp configuration file is not a regular file: " + path);
    }
    const auto close = [](std::FILE* file) { std::fclose(file); };
    const std::unique_ptr<std::FILE, decltype(close)> file(std::fopen(path.c_str(), "rb"), close);
    if (file == nullptr) {
        throw FileError("Cannot open the cvtp configuration file: " + path);
    }
    std::vector<XMLByte> bytes;
    std::vector<XMLByte> block(64 * 1024);
    while (const std::size_t count = std::fread(block.data(), 1, block.size(), file.get())) {
        bytes.insert(bytes.end(), block.begin(), block.begin() + static_cast<std::ptrdiff_t>(count));
        if (bytes.size() > ConfigDocument::LARGEST_FILE) {
            throw FileError("The cvtp configuration file has more than " +
                            std::to_string(ConfigDocument::LARGEST_FILE) + " bytes: " + path);
        }
    }
    if (std::ferror(file.get()) != 0) {
        throw FileError("Cannot read the cvtp configuration file: " + path);
    }
    return bytes;
}

/// The value of an attribute; empty if there is none.
std::string attributeOf(const DOMElement& element, const char* name) {
    const auto release = [](XMLCh* text) { XMLString::release(&text); };
    const std::unique_ptr<XMLCh, decltype(release)> xmlName(XMLString::transcode(name), release);
    return utf8Text(element.getAttribute(xmlName.get()));
}

}  // namespace

std::string configFilePath() {
    return Io::Platform::environmentVariable("CvtpConfigurationFile").value_or("CvtpConfig.xml");
}

bool exists(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0;
}

ConfigDocument::ConfigDocument() = default;

ConfigDocument::~ConfigDocument() = default;

void ConfigDocument::load(const std::string& path) {
    const std::string failure = tryToLoad(path);
    if (!failure.empty()) {
        logError(failure);
    }
}

std::string ConfigDocument::tryToLoad(const std::string& path) {
    std::string failure = reasonNotToParse(path);
    if (root == nullptr) {
        parser.reset();
    }
    return failure;
}

std::string ConfigDocument::reasonNotToParse(const std::string& path) {
    try {
        parse(path);
        return std::string();
    } catch (const FileError& failure) {
        return failure.what();
    } catch (const xercesc::SAXParseException& failure) {
        return localText(failure.getMessage()) + " (line " + std::to_string(failure.getLineNumber()) + ", column " +
               std::to_string(failure.getColumnNumber()) + ")";
    } catch (const xercesc::SAXException& failure) {
        return localText(failure.getMessage());
    } catch (const xercesc::XMLException& failure) {
        return localText(failure.getMessage());
    } catch (const xercesc::DOMException& failure) {
        return localText(failure.getMessage());
    } catch (...) {
        return "Unexpected Exception while parsing the Cvtp configuration file";
    }
}

void ConfigDocument::parse(const std::string& path) {
    const std::vector<XMLByte> bytes = readFile(path);
    parser = std::make_unique<ConfigParser>(memory);
    const xercesc::MemBufInputSource source(bytes.data(), bytes.size(), "CvtpConfig.xml", false, &memory);
    parser->parse(source);
    root = parser->getDocument()->getDocumentElement();
}

const DOMElement* ConfigDocument::findEntry(const std::string& name, const std::string& function,
                                            const std::string& component) const {
    if (root == nullptr) {
        return nullptr;
    }
    // Not through the list of child nodes, which remembers the last one it gave: several threads read. Nor through
    // the lists of elements, which look into references to entities as well.
    for (const DOMNode* child = root->getFirstChild(); child != nullptr; child = child->getNextSibling()) {
        if (child->getNodeType() == DOMNode::ELEMENT_NODE && utf8Text(child->getNodeName()) == name) {
            const auto* const entry = static_cast<const DOMElement*>(child);
            if (attributeOf(*entry, "function") == function && attributeOf(*entry, "component") == component) {
                return entry;
            }
        }
    }
    return nullptr;
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
