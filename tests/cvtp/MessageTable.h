#pragma once

#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace Corvane {
namespace Testing {

/// How the reading of a message ends.
enum class Ending {
    COMPLETE,
    /// The bytes end, or a line does not, before the empty line behind the headers: InterruptedException.
    HEAD_CUT,
    /// No header says where the body ends: CvPipeException with code 1011.
    NO_FRAMING,
    /// Fewer bytes than Content-Length says: CvPipeException.
    LENGTH_CUT,
    /// A chunked body that breaks off or is malformed: it ends early, without an exception.
    CHUNKS_BROKEN
};

/// The headers as they are listed: name, values.
using Headers = std::vector<std::pair<std::string, std::vector<std::string>>>;

/// A message on the wire, and what is to be read of it.
struct IncomingCase {
    std::string name;
    std::string bytes;
    /// "" when none can be read.
    std::string startLine;
    Headers headers;
    /// The body; of a broken one, what is given of it when all bytes arrive together.
    std::string body;
    Ending ending = Ending::COMPLETE;
    /// The one line that is logged at ERROR or WARN, as "ERROR: text"; "" when there is none.
    std::string log{};
    /// Of a broken body, the most that is given of it, however the bytes arrive.
    std::string longestBody{};
};

/// A message that is built, and the bytes that it becomes.
struct OutgoingCase {
    struct HeaderCall {
        /// 'a' add, 's' set, 'r' remove.
        char kind;
        std::string name;
        std::string value;
    };

    std::string name;
    std::string startLine;
    std::vector<HeaderCall> headers;
    bool chunked;
    /// A body that is not chunked is the first block; a chunked one is written block by block.
    std::vector<std::string> blocks;
    int chunkSize;
    std::string bytes;
};

inline void PrintTo(const IncomingCase& message, std::ostream* out) {
    *out << message.name;
}

inline void PrintTo(const OutgoingCase& message, std::ostream* out) {
    *out << message.name;
}

/// Every test that reads messages reads all of these.
const std::vector<IncomingCase>& incomingMessages();

/// Every test that writes messages writes all of these.
const std::vector<OutgoingCase>& outgoingMessages();

}  // namespace Testing
}  // namespace Corvane
