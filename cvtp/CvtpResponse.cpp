#include "cvtp/CvtpResponse.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "cvtp/CvtpClient.h"
#include "cvtp/internal/CvtpMessageInImpl.h"
#include "cvtp/internal/TraceTags.h"
#include "io/Exceptions.h"
#include "support/StringUtils.h"

namespace Corvane {
namespace Cvtp {

using Internal::Cvtp::CvtpMessageInImpl;

namespace {

/// The first blank of a status line, and the next one: status code and reason phrase begin there.
struct StatusLineBlanks {
    explicit StatusLineBlanks(const std::string& line) : first(line.find(' ')) {
        second = first == std::string::npos ? std::string::npos : line.find(' ', first + 1);
    }

    std::string::size_type first;
    std::string::size_type second;
};

/// The decimal prefix; a number that does not fit becomes the largest, or smallest, one that does.
int parseStatusCode(const std::string& text) {
    return static_cast<int>(std::clamp<long long>(
        std::strtoll(text.c_str(), nullptr, 10), std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

}  // namespace

CvtpResponse::CvtpResponse() = default;

CvtpResponse::CvtpResponse(CvtpClient* client, std::istream* in)
    : client(client),
      ownMessage(std::make_unique<CvtpMessageInImpl>(in, Internal::Cvtp::TAG_RECEIVE, &encoder,
                                                     client->getIntegerOption(CvtpClient::BUFFER_SIZE))),
      message(ownMessage.get()) {
    reader = message;
}

CvtpResponse::CvtpResponse(CvtpClient* client, std::istream* in, std::optional<CvtpMessageInImpl>& memory)
    : client(client),
      message(&memory.emplace(in, Internal::Cvtp::TAG_RECEIVE, &encoder,
                              client->getIntegerOption(CvtpClient::BUFFER_SIZE))) {
    reader = message;
}

CvtpResponse::~CvtpResponse() = default;

int CvtpResponse::getStatusCode() {
    try {
        const std::string line = getStartLine();
        const StatusLineBlanks blanks(line);
        if (blanks.first == std::string::npos) {
            return parseStatusCode(line);
        }
        return parseStatusCode(line.substr(blanks.first + 1, blanks.second - blanks.first - 1));
    } catch (const Io::CvPipeException&) {
        return STATUS_SERVER_ERROR;
    }
}

std::string CvtpResponse::getReasonPhrase() {
    try {
        const std::string line = getStartLine();
        // Without a second blank this throws std::out_of_range, which is the caller's to see.
        return StringUtils::trim(line.substr(StatusLineBlanks(line).second));
    } catch (const Io::CvPipeException&) {
        const auto reason = STATUS_REASONS.find(STATUS_SERVER_ERROR);
        return reason == STATUS_REASONS.end() ? std::string() : reason->second;
    }
}

Version CvtpResponse::getCvtpVersion() {
    try {
        const std::string line = getStartLine();
        return Version(line.substr(0, line.find(' ')));
    } catch (const Io::CvPipeException&) {
        return Version::CURRENT_VERSION;
    }
}

void CvtpResponse::readHead() {
    static_cast<void>(message->receivedStartLine());
}

std::string CvtpResponse::getStartLine() {
    return message->getStartLine();
}

std::string CvtpResponse::getHeader(const std::string& name) const {
    return message->getHeader(name);
}

std::vector<std::string> CvtpResponse::getHeaders(const std::string& name) const {
    return message->getHeaders(name);
}

std::vector<std::string> CvtpResponse::getHeaderNames() const {
    return message->getHeaderNames();
}

void CvtpResponse::getBody(char*& data, std::size_t& length) {
    message->getBody(data, length);
}

std::istream* CvtpResponse::getBodyStream() {
    return message->getBodyStream();
}

}  // namespace Cvtp
}  // namespace Corvane
