#include "cvtp/internal/HeadersToSend.h"

#include <charconv>
#include <utility>

#include "cvtp/CvtpMessage.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

using Corvane::Cvtp::CvtpMessage;

namespace {

/// What would not be sent as it stands in a value.
constexpr StringUtils::CharacterSet NOT_IN_ONE_VALUE{std::string_view(",\r\n\0", 4)};

/// Whether a text is one value, as it stands.
bool isOneValue(std::string_view text) {
    return !text.empty() && !HEADER_BLANKS.contains(text.front()) && !HEADER_BLANKS.contains(text.back()) &&
           !NOT_IN_ONE_VALUE.isAnyIn(text);
}

}  // namespace

void HeadersToSend::setProgram(const std::string& name, std::string_view value) {
    if (isOneValue(value)) {
        programName = &name;
        program.assign(value);
    } else {
        std::string memory;
        set(name, StringUtils::onOneLine(value, memory));
    }
}

void HeadersToSend::addLength(std::size_t length) {
    if (lengthSize > 0) {
        // Before the digits of the first one are overwritten.
        sort();
    }
    const char* const end =
        std::to_chars(lengthDigits.data(), lengthDigits.data() + lengthDigits.size(), length).ptr;
    lengthSize = static_cast<std::size_t>(end - lengthDigits.data());
    if (sorted) {
        sorted->add(lengthName(), lengthText());
    }
}

void HeadersToSend::add(std::string_view name, std::string_view value) {
    sort().add(name, value);
}

void HeadersToSend::set(std::string_view name, std::string_view value) {
    sort().set(name, value);
}

void HeadersToSend::remove(std::string_view name) {
    sort().remove(name);
}

CvtpHeaders& HeadersToSend::sort() {
    if (!sorted) {
        // Those that are kept apart count until all of them are in.
        auto all = std::make_unique<CvtpHeaders>();
        if (programName != nullptr) {
            all->add(*programName, program.view());
        }
        if (lengthSize > 0) {
            all->add(lengthName(), lengthText());
        }
        sorted = std::move(all);
    }
    return *sorted;
}

std::string_view HeadersToSend::lengthName() {
    return CvtpMessage::HEADER_CONTENT_LENGTH;
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
