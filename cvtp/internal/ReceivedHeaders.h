#pragma once

#include <memory>
#include <string_view>

#include "cvtp/internal/CvtpHeaders.h"
#include "support/SmallText.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// The headers of a message that arrives. Most programs ask for none of them, so the lines are kept as they came
/// until somebody does.
///
/// Used by one thread at a time, also where it is const.
class ReceivedHeaders {
 public:
    /// Lines with their ends, none of which continues another. Nothing was kept or added before.
    void keep(std::string_view lines);

    /// Adds one header.
    void add(std::string_view name, std::string_view value);

    /// The first value of a header, or "". Holds until something is added or all() is called.
    std::string_view firstValue(std::string_view name) const;

    const CvtpHeaders& all() const;

 private:
    SmallText<160> kept;
    /// Mutable, as when they are sorted is of no concern to anybody.
    mutable std::unique_ptr<CvtpHeaders> sorted;
};

/// The name of a header and its value, without the blanks around it; the name is the whole line when there is no
/// colon. Both stand in the line.
struct HeaderLine {
    explicit HeaderLine(std::string_view line);

    std::string_view name;
    std::string_view value;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
