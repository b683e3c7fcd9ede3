#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "support/StringUtils.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// What is cut from both ends of a header's name, where it is looked for, and of each value.
inline constexpr StringUtils::CharacterSet HEADER_BLANKS{" \t\r\n"};

/// One header field: the name as it is shown, and its values. None of them has white space at its ends, and no
/// value is empty or contains a comma.
class CvtpHeader {
 public:
    CvtpHeader() = default;
    CvtpHeader(std::string_view name, std::string_view value);
    CvtpHeader(const CvtpHeader&) = default;
    CvtpHeader(CvtpHeader&&) noexcept = default;
    CvtpHeader& operator=(const CvtpHeader&) = default;
    CvtpHeader& operator=(CvtpHeader&&) noexcept = default;
    virtual ~CvtpHeader() = default;

    void setName(std::string_view name);
    /// Appends the values that stand in `value`, separated by commas; empty ones are dropped.
    void addValues(std::string_view value);
    void setValues(std::string_view value);

    const std::string& getName() const { return name; }
    /// The first value, or "".
    std::string getValue() const;
    std::vector<std::string> getValues() const;
    /// All values, joined by commas: how they stand in a message.
    const std::string& getJoined() const { return values; }

    /// The first value of those that stand in `text`, separated by commas, or "".
    static std::string_view firstValueIn(std::string_view text);

 private:
    std::string name;
    /// The values, joined by commas. As none of them holds one this is a list, which costs less than a list of
    /// strings.
    std::string values;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
