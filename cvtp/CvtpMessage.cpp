#include "cvtp/CvtpMessage.h"

#include "cvtp/internal/Logging.h"

namespace Corvane {
namespace Cvtp {

std::map<std::int32_t, std::string> CvtpMessage::STATUS_REASONS = {
    {STATUS_OK, "OK"},
    {STATUS_BAD_REQUEST, "Bad Request"},
    {STATUS_NOT_FOUND, "Not Found"},
    {STATUS_REQUEST_TIMEOUT, "Request Timeout"},
    {STATUS_LENGTH_REQUIRED, "Length Required"},
    {STATUS_ENTITY_LONG, "Request Entity Too Large"},
    // The trailing blank is deliberate: it travels in the start line of each 414.
    {STATUS_RESOURCE_ID_LONG, "Resource-ID Too Long "},
    {STATUS_SERVER_ERROR, "Internal Server Error"},
    {STATUS_NOT_IMPLEMENTED, "Not Implemented"},
    {STATUS_VERSION_NOT_SUPPORTED, "CVTP Version Not Supported"},
};

const std::string CvtpMessage::METHOD_POST = "POST";
const std::string CvtpMessage::METHOD_NOTIFY = "NOTIFY";
const std::string CvtpMessage::METHOD_NONE = "NONE";

const std::string CvtpMessage::HEADER_CONTENT_LENGTH = "Content-Length";
const std::string CvtpMessage::HEADER_TRANSFER_ENCODING = "Transfer-Encoding";
const std::string CvtpMessage::HEADER_IDENTITY_ENCODING = "identity";
const std::string CvtpMessage::HEADER_CHUNKED_ENCODING = "chunked";
const std::string CvtpMessage::HEADER_USER_AGENT = "User-Agent";
const std::string CvtpMessage::HEADER_SERVER = "Server";

void CvtpMessage::setLoggingLevel(std::FILE* logFile, LoggingLevel level, std::FILE* commFile,
                                  CommunicationLevel commLevel) {
    Internal::Cvtp::setLogging(logFile, level, commFile, commLevel);
}

void CvtpMessage::setLogCorrelationId(const std::string& id) {
    Internal::Cvtp::setCorrelationId(id);
}

CvtpMessage::~CvtpMessage() = default;

}  // namespace Cvtp
}  // namespace Corvane
