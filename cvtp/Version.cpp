#include "cvtp/Version.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "support/StringUtils.h"

namespace Corvane {
namespace Cvtp {

const std::string Version::sCvtpLabel = "CVTP/";
const Version Version::CURRENT_VERSION;

namespace {

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

/// Scans as "%d" does, but a number that does not fit becomes the largest, or smallest, one that does.
bool scanNumber(const char*& text, std::int32_t& number) {
    char* end = nullptr;
    const long long value = std::strtoll(text, &end, 10);
    if (end == text) {
        return false;
    }
    text = end;
    number = static_cast<std::int32_t>(std::clamp<long long>(value, std::numeric_limits<std::int32_t>::min(),
                                                             std::numeric_limits<std::int32_t>::max()));
    return true;
}

}  // namespace

Version::Version(const std::string& text) {
    const std::string label = StringUtils::trim(text);
    if (label.size() <= sCvtpLabel.size() || !startsWith(label, sCvtpLabel)) {
        return;
    }
    // What does not scan keeps the value of 1.0, on purpose.
    const char* rest = label.c_str() + sCvtpLabel.size();
    if (scanNumber(rest, major) && *rest == '.') {
        ++rest;
        scanNumber(rest, minor);
    }
}

std::int32_t Version::getMajor() const noexcept {
    return major;
}

std::int32_t Version::getMinor() const noexcept {
    return minor;
}

bool Version::operator==(const Version& other) const noexcept {
    return major == other.major && minor == other.minor;
}

bool Version::operator!=(const Version& other) const noexcept {
    return !(*this == other);
}

bool Version::operator>(const Version& other) const noexcept {
    return major > other.major || (major == other.major && minor > other.minor);
}

bool Version::operator>=(const Version& other) const noexcept {
    return !(other > *this);
}

bool Version::operator<(const Version& other) const noexcept {
    return other > *this;
}

bool Version::operator<=(const Version& other) const noexcept {
    return !(*this > other);
}

std::string Version::toString() const {
    std::string text = sCvtpLabel;
    text += std::to_string(major);
    text += '.';
    text += std::to_string(minor);
    return text;
}

}  // namespace Cvtp
}  // namespace Corvane
