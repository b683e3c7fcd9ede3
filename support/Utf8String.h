#pragma once

#include <string>

#include "support/Export.h"

namespace Corvane {
namespace Xml {

/// Turns a resource into the text that stands for it in a start line, and back.
///
/// Text is UTF-8 throughout and is not converted. What would break a start line (a blank, a control byte) or could
/// be taken for an escape (a `%` that two hexadecimal digits follow) is written as `%XX`; all other bytes stand as
/// they are, so an ordinary resource looks the same on the wire.
///
/// One object serves all messages of a connection. It keeps the memory of its last result, so that a connection
/// in use does not allocate for each message. It may be used by one thread at a time.
class CVTP_EXPORT Utf8String {
 public:
    /// The wire form of `text`, which must not be a result of this object. Where that is the text itself the
    /// reference is to it; else it holds until the next call.
    const std::string& encode(const std::string& text);

    /// The bytes that `text` stands for: each `%XX` becomes its byte, anything else is left alone. `text` must not
    /// be a result of this object. The reference holds until the next call.
    const std::string& decode(const std::string& text);

 private:
    std::string buffer;
};

}  // namespace Xml
}  // namespace Corvane
