#include "cvtp/internal/CvtpHeaders.h"

#include <algorithm>
#include <cctype>

#include "support/StringUtils.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

std::string keyOf(const std::string& name) {
    std::string key = StringUtils::trim(name, " \t\r\n");
    std::transform(key.begin(), key.end(), key.begin(),
                   [](char c) { return static_cast<char>(std::toupper(static_cast<unsigned char>(c))); });
    return key;
}

}  // namespace

void CvtpHeaders::add(const std::string& name, const std::string& value) {
    std::string key = keyOf(name);
    const auto found = headers.find(key);
    if (found != headers.end()) {
        found->second.addValues(value);
    } else {
        headers.emplace(std::move(key), CvtpHeader(name, value));
    }
}

void CvtpHeaders::set(const std::string& name, const std::string& value) {
    CvtpHeader& header = headers[keyOf(name)];
    header.setName(name);
    header.setValues(value);
}

void CvtpHeaders::remove(const std::string& name) {
    headers.erase(keyOf(name));
}

std::string CvtpHeaders::get(const std::string& name) const {
    const auto found = headers.find(keyOf(name));
    return found == headers.end() ? std::string() : found->second.getValue();
}

std::vector<std::string> CvtpHeaders::getAll(const std::string& name) const {
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
