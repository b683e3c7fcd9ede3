#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Corvane {

namespace Internal {
namespace Cvtp {
class ConfigDocument;
}
}  // namespace Internal

namespace Tools {

/// Says which entry of the configuration file to take.
struct EntryChoice {
    std::string function;
    std::string component;

    /// @param text as FUNCTION/COMPONENT. @throws UsageError it is not.
    static EntryChoice parse(const std::string& text);

    std::string text() const { return function + "/" + component; }
};

/// One attribute of an entry.
struct EntryAttribute {
    std::string name;
    std::string value;
    /// The value is an integer of 32 bits.
    bool isNumber;
};

/// The configuration file that the library reads, to tell users more about it than the library tells its log.
class ConfigFile {
 public:
    /// @throws UsageError the file is missing or not in order.
    ConfigFile();
    ~ConfigFile();
    ConfigFile(const ConfigFile&) = delete;
    ConfigFile& operator=(const ConfigFile&) = delete;

    const std::string& path() const { return name; }

    /// The attributes of the entry that the library takes, but for those that select it; nothing without an entry.
    ///
    /// @param element "CvtpServer" or "CvtpClient".
    std::optional<std::vector<EntryAttribute>> attributesOf(const std::string& element,
                                                            const EntryChoice& choice) const;

 private:
    std::string name;
    std::unique_ptr<Internal::Cvtp::ConfigDocument> document;
};

}  // namespace Tools
}  // namespace Corvane
