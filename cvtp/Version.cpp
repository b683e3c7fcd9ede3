#include "cvtp/Version.h"

#include <cstdio>

#include "support/StringUtils.h"

namespace Corvane {
namespace Cvtp {

const std::string Version::sCvtpLabel = "CVTP/";
const Version Version::CURRENT_VERSION;

namespace {

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

}  // namespace

Version::Version(const std::string& text) {
    const std::string label = StringUtils::trim(text);
    if (label.size() <= sCvtpLabel.size() || !startsWith(label, sCvtpLabel)) {
        return;
    }
    // The result is not looked at, on purpose: what does not scan keeps the value of 1.0.
    static_cast<void>(std::sscanf(label.c_str() + sCvtpLabel.size(), "%d.%d", &major, &minor));
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
    return sCvtpLabel + std::to_string(major) + "." + std::to_string(minor);
}

}  // namespace Cvtp
}  // namespace Corvane
