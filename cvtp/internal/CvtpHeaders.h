#pragma once

#include <cstddef>
#include <map>
#include <memory_resource>
#include <string>
#include <string_view>
#include <vector>

#include "cvtp/internal/CvtpHeader.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// The headers of a message, kept in the order of their upper-cased names, under which they are also found: the
/// order in which they were added is not kept, and names compare without regard to case.
class CvtpHeaders {
 public:
    using Map = std::pmr::map<std::string, CvtpHeader>;

    CvtpHeaders();
    CvtpHeaders(const CvtpHeaders&) = delete;
    CvtpHeaders& operator=(const CvtpHeaders&) = delete;

    /// Appends to a header that is there, without touching its name as shown; else adds it.
    void add(std::string_view name, std::string_view value);
    /// Replaces values and shown name.
    void set(std::string_view name, std::string_view value);
    void remove(std::string_view name);

    /// The first value, or "". Holds until the headers change.
    std::string_view getFirst(std::string_view name) const;
    /// The same as a text of its own.
    std::string get(std::string_view name) const;
    std::vector<std::string> getAll(std::string_view name) const;
    /// The names as shown.
    std::vector<std::string> names() const;

    /// Whether both name the same header.
    static bool isSameName(std::string_view a, std::string_view b);

    Map::const_iterator begin() const { return headers.begin(); }
    Map::const_iterator end() const { return headers.end(); }

 private:
    /// Enough for the headers of most messages.
    static constexpr std::size_t MEMORY_SIZE = 640;

    alignas(std::max_align_t) char memory[MEMORY_SIZE];
    std::pmr::monotonic_buffer_resource nodes;
    Map headers;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
