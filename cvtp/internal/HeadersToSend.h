#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <string_view>

#include "cvtp/internal/CvtpHeaders.h"
#include "support/SmallText.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// The headers of a message that goes out. Most messages have the two of the library alone: the one that names the
/// program, and the length of the body. These are kept apart until another one is added or one is changed, which
/// spares most messages the sorting.
class HeadersToSend {
 public:
    /// The header that names the program. To be called before anything else is.
    /// @param name HEADER_USER_AGENT or HEADER_SERVER; not owned. @param value any text.
    void setProgram(const std::string& name, std::string_view value);

    /// Adds the length of the body; a second one is a second value.
    void addLength(std::size_t length);

    /// As CvtpHeaders does.
    void add(std::string_view name, std::string_view value);
    void set(std::string_view name, std::string_view value);
    void remove(std::string_view name);

    /// Calls `visit` with the name and the joined values of each header, in the order in which they are sent.
    template <class Visitor>
    void forEach(Visitor visit) const {
        if (sorted) {
            for (const auto& header : *sorted) {
                visit(header.second.getName(), header.second.getJoined());
            }
            return;
        }
        if (lengthSize > 0) {
            // Its name comes before both of the other's.
            visit(lengthName(), lengthText());
        }
        if (programName != nullptr) {
            visit(*programName, program.view());
        }
    }

 private:
    CvtpHeaders& sort();
    static std::string_view lengthName();
    std::string_view lengthText() const { return {lengthDigits.data(), lengthSize}; }

    /// Null when there is none.
    const std::string* programName = nullptr;
    SmallText<48> program;
    std::array<char, std::numeric_limits<std::uint64_t>::digits10 + 1> lengthDigits;
    /// 0 when there is none.
    std::size_t lengthSize = 0;
    std::unique_ptr<CvtpHeaders> sorted;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
