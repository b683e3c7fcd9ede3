#pragma once

#include <string>
#include <vector>

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// One header field: the name as it is shown, and its values. None of them has white space at its ends, and no
/// value is empty or contains a comma.
class CvtpHeader {
 public:
    CvtpHeader() = default;
    CvtpHeader(const std::string& name, const std::string& value);
    CvtpHeader(const CvtpHeader&) = default;
    CvtpHeader& operator=(const CvtpHeader&) = default;
    virtual ~CvtpHeader() = default;

    void setName(const std::string& name);
    /// Appends the values that stand in `value`, separated by commas; empty ones are dropped.
    void addValues(const std::string& value);
    void setValues(const std::string& value);

    const std::string& getName() const;
    /// The first value, or "".
    std::string getValue() const;
    std::vector<std::string> getValues() const;
    /// Without the copy.
    const std::vector<std::string>& valueList() const;

 private:
    std::string name;
    std::vector<std::string> values;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
