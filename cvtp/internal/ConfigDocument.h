#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <xercesc/dom/DOM.hpp>

#include "cvtp/internal/LimitedMemory.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

class ConfigParser;

/// The path of the configuration file of this process: what the environment variable "CvtpConfigurationFile" holds
/// or, without it, "CvtpConfig.xml".
std::string configFilePath();

/// True when anything is at the path, as far as this process can see.
bool exists(const std::string& path);

/// A configuration file in memory. Xerces must be initialised. Once it is loaded, several threads may read it.
class ConfigDocument {
 public:
    /// The largest file, in bytes.
    static constexpr std::size_t LARGEST_FILE = 1024 * 1024;
    /// What the parser may hold at a time, and what it may ask for in all, in bytes. A file of the largest size
    /// that is full of entries needs four fifths of the first and less than a tenth of the second.
    static constexpr std::size_t MOST_MEMORY = 20 * 1024 * 1024;
    static constexpr std::size_t MOST_MEMORY_EVER = 256 * 1024 * 1024;
    /// What it has besides for clearing up.
    static constexpr std::size_t RESERVE = 6 * 1024 * 1024;

    ConfigDocument();
    ~ConfigDocument();
    ConfigDocument(const ConfigDocument&) = delete;
    ConfigDocument& operator=(const ConfigDocument&) = delete;

    /// Reads a file, once. One that cannot be read or is not in order is logged at ERROR, and then this stays
    /// empty.
    void load(const std::string& path);

    /// The same without the log. @return why the file is not loaded; empty if it is.
    std::string tryToLoad(const std::string& path);

    bool isLoaded() const { return root != nullptr; }

    /// The first child of the root that is an element of that name, whose attributes "function" and "component" are
    /// these; null if there is none.
    const xercesc::DOMElement* findEntry(const std::string& name, const std::string& function,
                                         const std::string& component) const;

 private:
    std::string reasonNotToParse(const std::string& path);
    void parse(const std::string& path);

    /// Outlives what lies in it.
    LimitedMemory memory{MOST_MEMORY, MOST_MEMORY_EVER, RESERVE};
    /// Owns the document.
    std::unique_ptr<ConfigParser> parser;
    const xercesc::DOMElement* root = nullptr;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
