#include "cvtp/internal/CvtpHeader.h"

#include <algorithm>

#include "support/StringUtils.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

const char* const HEADER_BLANKS = " \t\r\n";

}  // namespace

CvtpHeader::CvtpHeader(std::string_view name, std::string_view value)
    : name(StringUtils::trimmed(name, StringUtils::WHITE_SPACE)) {
    addValues(value);
}

void CvtpHeader::setName(std::string_view newName) {
    const bool bare = StringUtils::trimmed(newName, HEADER_BLANKS).size() == newName.size();
    name = bare ? newName : StringUtils::trimmed(newName, StringUtils::WHITE_SPACE);
}

void CvtpHeader::addValues(std::string_view value) {
    std::string_view::size_type begin = 0;
    while (begin < value.size()) {
        const std::string_view::size_type end = std::min(value.find(',', begin), value.size());
        const std::string_view one = StringUtils::trimmed(value.substr(begin, end - begin), HEADER_BLANKS);
        if (!one.empty() && !values.empty()) {
            values += ',';
        }
        values += one;
        begin = end + 1;
    }
}

void CvtpHeader::setValues(std::string_view value) {
    values.clear();
    addValues(value);
}

const std::string& CvtpHeader::getName() const {
    return name;
}

std::string CvtpHeader::getValue() const {
    return values.substr(0, values.find(','));
}

std::vector<std::string> CvtpHeader::getValues() const {
    std::vector<std::string> result;
    std::string::size_type begin = 0;
    while (begin < values.size()) {
        const std::string::size_type end = std::min(values.find(',', begin), values.size());
        result.emplace_back(values, begin, end - begin);
        begin = end + 1;
    }
    return result;
}

const std::string& CvtpHeader::getJoined() const {
    return values;
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
