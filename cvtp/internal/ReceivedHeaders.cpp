#include "cvtp/internal/ReceivedHeaders.h"

#include <algorithm>
#include <utility>

namespace Corvane {
namespace Internal {
namespace Cvtp {

namespace {

constexpr StringUtils::CharacterSet VALUE_BLANKS{" \t"};

/// Takes the first line off, without its end.
std::string_view takeLine(std::string_view& lines) {
    const std::string_view::size_type end = lines.find('\n');
    std::string_view line = lines.substr(0, end);
    lines.remove_prefix(end + 1);
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    return line;
}

}  // namespace

HeaderLine::HeaderLine(std::string_view line)
    : name(line.substr(0, line.find(':'))),
      value(StringUtils::trimmed(line.substr(std::min(name.size() + 1, line.size())), VALUE_BLANKS)) {}

void ReceivedHeaders::keep(std::string_view lines) {
    kept.assign(lines);
    // Somebody may have asked before they came.
    sorted.reset();
}

void ReceivedHeaders::add(std::string_view name, std::string_view value) {
    static_cast<void>(all());
    sorted->add(name, value);
}

std::string_view ReceivedHeaders::firstValue(std::string_view name) const {
    if (sorted) {
        return sorted->getFirst(name);
    }
    std::string_view first;
    std::string_view rest = kept.view();
    while (first.empty() && !rest.empty()) {
        const std::string_view line = takeLine(rest);
        if (line.size() > name.size() && line[name.size()] == ':' && line.substr(0, name.size()) == name) {
            // As nearly every sender writes it.
            first = CvtpHeader::firstValueIn(line.substr(name.size() + 1));
        } else if (const HeaderLine header(line); CvtpHeaders::isSameName(header.name, name)) {
            first = CvtpHeader::firstValueIn(header.value);
        }
    }
    return first;
}

const CvtpHeaders& ReceivedHeaders::all() const {
    if (!sorted) {
        // Not there before all of them are in.
        auto added = std::make_unique<CvtpHeaders>();
        for (std::string_view rest = kept.view(); !rest.empty();) {
            const HeaderLine line(takeLine(rest));
            added->add(line.name, line.value);
        }
        sorted = std::move(added);
    }
    return *sorted;
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
