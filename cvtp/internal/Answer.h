#pragma once

#include <istream>
#include <optional>

#include "cvtp/CvtpResponse.h"
#include "cvtp/internal/CvtpMessageInImpl.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// Where the reader of an answer stands.
struct AnswerMemory {
    std::optional<CvtpMessageInImpl> reader;
};

/// The answer to a request, in one piece of memory. The memory is the first base, so that it outlives the other.
class Answer final : private AnswerMemory, public Corvane::Cvtp::CvtpResponse {
 public:
    /// See CvtpResponse.
    Answer(Corvane::Cvtp::CvtpClient* client, std::istream* in) : CvtpResponse(client, in, AnswerMemory::reader) {}
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
