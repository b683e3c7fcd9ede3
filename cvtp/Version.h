#pragma once

#include <cstdint>
#include <string>

#include "support/Export.h"

namespace Corvane {
namespace Cvtp {

/// The version of the protocol that a start line carries: a pair of numbers and the text form "CVTP/1.0".
/// A plain value; every operation is safe on several threads at once as long as none assigns.
class CVTP_EXPORT Version {
 public:
    /// The version that this library writes: 1.0.
    static const Version CURRENT_VERSION;

    /// 1.0.
    constexpr Version() noexcept {}

    /// Any two numbers, negative ones too; nothing is checked.
    constexpr Version(std::int32_t majorNumber, std::int32_t minorNumber) noexcept
        : major{majorNumber}, minor{minorNumber} {}

    constexpr Version(const Version&) noexcept = default;
    Version& operator=(const Version&) noexcept = default;

    /// Reads a label such as "CVTP/1.7"; white space around it is ignored. Never throws for what it reads: what is
    /// missing or does not scan as "%d.%d" after the label keeps the value of 1.0, so "CVTP/2" is 2.0 and
    /// "HTTP/3.0" is 1.0.
    explicit Version(const std::string& text);

    std::int32_t getMajor() const noexcept;
    std::int32_t getMinor() const noexcept;

    /// Versions compare by major, then minor, as numbers: 1.10 is greater than 1.9.
    bool operator==(const Version& other) const noexcept;
    bool operator!=(const Version& other) const noexcept;
    bool operator>(const Version& other) const noexcept;
    bool operator>=(const Version& other) const noexcept;
    bool operator<(const Version& other) const noexcept;
    bool operator<=(const Version& other) const noexcept;

    /// "CVTP/", the major number, ".", the minor number.
    std::string toString() const;

 private:
    static const std::string sCvtpLabel;

    // Some C libraries have function-like macros of these two names, so neither is ever followed by a parenthesis.
    std::int32_t major = 1;
    std::int32_t minor = 0;
};

}  // namespace Cvtp
}  // namespace Corvane
