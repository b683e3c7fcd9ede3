#include "cvtp/internal/CvtpHeader.h"

#include <algorithm>

#include "support/StringUtils.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

const char* const HEADER_BLANKS = " \t\r\n";

}  // namespace

CvtpHeader::CvtpHeader(const std::string& name, const std::string& value) : name(StringUtils::trim(name)) {
    addValues(value);
}

void CvtpHeader::setName(const std::string& newName) {
    const bool bare = newName.empty() || (newName.find_first_of(HEADER_BLANKS) != 0 &&
                                          newName.find_last_of(HEADER_BLANKS) != newName.size() - 1);
    name = bare ? newName : StringUtils::trim(newName);
}

void CvtpHeader::addValues(const std::string& value) {
    std::string::size_type begin = 0;
    while (begin < value.size()) {
        const std::string::size_type end = std::min(value.find(',', begin), value.size());
        const std::string::size_type first = value.find_first_not_of(HEADER_BLANKS, begin);
        if (first < end) {
            const std::string::size_type last = value.find_last_not_of(HEADER_BLANKS, end - 1);
            values.emplace_back(value, first, last - first + 1);
        }
        begin = end + 1;
    }
}

void CvtpHeader::setValues(const std::string& value) {
    values.clear();
    addValues(value);
}

const std::string& CvtpHeader::getName() const {
    return name;
}

std::string CvtpHeader::getValue() const {
    return values.empty() ? std::string() : values.front();
}

std::vector<std::string> CvtpHeader::getValues() const {
    return values;
}

const std::vector<std::string>& CvtpHeader::valueList() const {
    return values;
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
