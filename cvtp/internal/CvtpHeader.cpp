#include "cvtp/internal/CvtpHeader.h"

#include <algorithm>

namespace Corvane {
namespace Internal {
namespace Cvtp {

using StringUtils::trimmed;
using StringUtils::WHITE_SPACE_SET;

CvtpHeader::CvtpHeader(std::string_view name, std::string_view value) : name(trimmed(name, WHITE_SPACE_SET)) {
    addValues(value);
}

void CvtpHeader::setName(std::string_view newName) {
    const bool bare = trimmed(newName, HEADER_BLANKS).size() == newName.size();
    name = bare ? newName : trimmed(newName, WHITE_SPACE_SET);
}

void CvtpHeader::addValues(std::string_view value) {
    std::string_view::size_type begin = 0;
    while (begin < value.size()) {
        const std::string_view::size_type end = std::min(value.find(',', begin), value.size());
        const std::string_view one = trimmed(value.substr(begin, end - begin), HEADER_BLANKS);
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

std::string_view CvtpHeader::firstValueIn(std::string_view text) {
    std::string_view::size_type end = text.find(',');
    while (end != std::string_view::npos) {
        const std::string_view first = trimmed(text.substr(0, end), HEADER_BLANKS);
        if (!first.empty()) {
            return first;
        }
        text.remove_prefix(end + 1);
        end = text.find(',');
    }
    return trimmed(text, HEADER_BLANKS);
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
