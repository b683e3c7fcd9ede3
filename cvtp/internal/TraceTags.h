#pragma once

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// What the trace puts before a start line: who moved the bytes which way. Padded to nine characters.
constexpr const char* TAG_ACCEPT = "Accept:  ";
constexpr const char* TAG_RECEIVE = "Receive: ";
constexpr const char* TAG_REPLY = "Reply:   ";
constexpr const char* TAG_SEND = "Send:    ";

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
