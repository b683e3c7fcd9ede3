#include "cvtp/internal/CvtpHeaders.h"

#include <algorithm>
#include <cctype>
#include <tuple>
#include <utility>

#include "support/StringUtils.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

/// The library's function is asked for what few names have: its call costs more than the rest.
char upper(char c) {
    const unsigned char byte = static_cast<unsigned char>(c);
    if (byte >= 0x80) {
        return static_cast<char>(std::toupper(byte));
    }
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

std::string keyOf(std::string_view name) {
    const std::string_view bare = StringUtils::trimmed(name, HEADER_BLANKS);
    std::string key(bare.size(), '\0');
    std::transform(bare.begin(), bare.end(), key.begin(), upper);
    return key;
}

}  // namespace

CvtpHeaders::CvtpHeaders() : nodes(memory, sizeof memory), headers(&nodes) {}

void CvtpHeaders::add(std::string_view name, std::string_view value) {
    std::string key = keyOf(name);
    const auto place = headers.lower_bound(key);
    if (place != headers.end() && place->first == key) {
        place->second.addValues(value);
    } else {
        headers.emplace_hint(place, std::piecewise_construct, std::forward_as_tuple(std::move(key)),
                             std::forward_as_tuple(name, value));
    }
}

void CvtpHeaders::set(std::string_view name, std::string_view value) {
    CvtpHeader& header = headers[keyOf(name)];
    header.setName(name);
    header.setValues(value);
}

void CvtpHeaders::remove(std::string_view name) {
    headers.erase(keyOf(name));
}

std::string_view CvtpHeaders::getFirst(std::string_view name) const {
    const auto found = headers.find(keyOf(name));
    return found == headers.end() ? std::string_view() : CvtpHeader::firstValueIn(found->second.getJoined());
}

std::string CvtpHeaders::get(std::string_view name) const {
    return std::string(getFirst(name));
}

bool CvtpHeaders::isSameName(std::string_view a, std::string_view b) {
    a = StringUtils::trimmed(a, HEADER_BLANKS);
    b = StringUtils::trimmed(b, HEADER_BLANKS);
    return a == b ||
           std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) { return upper(x) == upper(y); });
}

std::vector<std::string> CvtpHeaders::getAll(std::string_view name) const {
    const auto found = headers.find(keyOf(name));
    return found == headers.end() ? std::vector<std::string>() : found->second.getValues();
}

std::vector<std::string> CvtpHeaders::names() const {
    std::vector<std::string> result;
    result.reserve(headers.size());
    for (const auto& header : headers) {
        result.push_back(header.second.getName());
    }
    return result;
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
