#include "cvtp/CvtpMessage.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "cvtp/internal/Logging.h"
#include "cvtp/internal/TraceTags.h"
#include "tests/support_code/LogCapture.h"

namespace Corvane {
namespace Cvtp {
namespace {

TEST(CvtpMessage, HasTenReasonPhrases) {
    const std::map<std::int32_t, std::string> expected = {
        {200, "OK"},
        {400, "Bad Request"},
        {404, "Not Found"},
        {408, "Request Timeout"},
        {411, "Length Required"},
        {413, "Request Entity Too Large"},
        {414, "Resource-ID Too Long "},
        {500, "Internal Server Error"},
        {501, "Not Implemented"},
        {505, "CVTP Version Not Supported"},
    };
    EXPECT_EQ(CvtpMessage::STATUS_REASONS, expected);
}

TEST(CvtpMessage, TheReasonOf414EndsInABlankOnPurpose) {
    const std::string& reason = CvtpMessage::STATUS_REASONS.at(CvtpMessage::STATUS_RESOURCE_ID_LONG);
    EXPECT_EQ(reason.size(), 21U);
    EXPECT_EQ(reason.back(), ' ');
}

TEST(CvtpMessage, TheReasonsCanBeAddedTo) {
    EXPECT_EQ(CvtpMessage::STATUS_REASONS[299], "");
    EXPECT_EQ(CvtpMessage::STATUS_REASONS.size(), 11U);
    CvtpMessage::STATUS_REASONS.erase(299);
}

TEST(CvtpMessage, ItsStatusCodes) {
    EXPECT_EQ(CvtpMessage::STATUS_OK, 200);
    EXPECT_EQ(CvtpMessage::STATUS_BAD_REQUEST, 400);
    EXPECT_EQ(CvtpMessage::STATUS_NOT_FOUND, 404);
    EXPECT_EQ(CvtpMessage::STATUS_REQUEST_TIMEOUT, 408);
    EXPECT_EQ(CvtpMessage::STATUS_LENGTH_REQUIRED, 411);
    EXPECT_EQ(CvtpMessage::STATUS_ENTITY_LONG, 413);
    EXPECT_EQ(CvtpMessage::STATUS_RESOURCE_ID_LONG, 414);
    EXPECT_EQ(CvtpMessage::STATUS_SERVER_ERROR, 500);
    EXPECT_EQ(CvtpMessage::STATUS_NOT_IMPLEMENTED, 501);
    EXPECT_EQ(CvtpMessage::STATUS_VERSION_NOT_SUPPORTED, 505);
}

TEST(CvtpMessage, ItsWords) {
    EXPECT_EQ(CvtpMessage::METHOD_POST, "POST");
    EXPECT_EQ(CvtpMessage::METHOD_NOTIFY, "NOTIFY");
    EXPECT_EQ(CvtpMessage::METHOD_NONE, "NONE");
    EXPECT_EQ(CvtpMessage::HEADER_CONTENT_LENGTH, "Content-Length");
    EXPECT_EQ(CvtpMessage::HEADER_TRANSFER_ENCODING, "Transfer-Encoding");
    EXPECT_EQ(CvtpMessage::HEADER_IDENTITY_ENCODING, "identity");
    EXPECT_EQ(CvtpMessage::HEADER_CHUNKED_ENCODING, "chunked");
    EXPECT_EQ(CvtpMessage::HEADER_USER_AGENT, "User-Agent");
    EXPECT_EQ(CvtpMessage::HEADER_SERVER, "Server");
}

TEST(CvtpMessage, ItsTraceTagsHaveNineCharacters) {
    EXPECT_EQ(std::string(Internal::Cvtp::TAG_ACCEPT), "Accept:  ");
    EXPECT_EQ(std::string(Internal::Cvtp::TAG_RECEIVE), "Receive: ");
    EXPECT_EQ(std::string(Internal::Cvtp::TAG_REPLY), "Reply:   ");
    EXPECT_EQ(std::string(Internal::Cvtp::TAG_SEND), "Send:    ");
}

TEST(CvtpMessage, SetsTheLogOfTheProcess) {
    const Testing::ScratchFile log;
    const Testing::ScratchFile trace;
    CvtpMessage::setLoggingLevel(log.file(), CvtpMessage::LOGGING_WARN, trace.file(),
                                 CvtpMessage::COMMUNICATION_INPUT);
    EXPECT_TRUE(Internal::Cvtp::isWarn());
    EXPECT_FALSE(Internal::Cvtp::isInfo());
    EXPECT_TRUE(Internal::Cvtp::isInputTraced());
    EXPECT_FALSE(Internal::Cvtp::isOutputTraced());
    Internal::Cvtp::logWarn("to the log");
    Internal::Cvtp::traceInput("to the trace", false);
    CvtpMessage::setLoggingLevel(log.file(), CvtpMessage::LOGGING_DEBUG, nullptr, CvtpMessage::COMMUNICATION_BOTH);
    EXPECT_TRUE(Internal::Cvtp::isDebug());
    EXPECT_FALSE(Internal::Cvtp::isInputTraced());
    CvtpMessage::setLoggingLevel(nullptr, CvtpMessage::LOGGING_OFF, nullptr, CvtpMessage::COMMUNICATION_OFF);
    EXPECT_FALSE(Internal::Cvtp::isError());
    EXPECT_NE(log.content().find(" - to the log- Corvane.SOA.Cvtp\n"), std::string::npos);
    EXPECT_EQ(trace.content(), "to the trace");
}

TEST(CvtpMessage, SetsTheCorrelationIdOfTheThread) {
    const Testing::LogCapture capture;
    CvtpMessage::setLogCorrelationId("order 7");
    Internal::Cvtp::logInfo("text");
    CvtpMessage::setLogCorrelationId("");
    EXPECT_EQ(capture.lines().at(0).correlationId, "order 7");
}

}  // namespace
}  // namespace Cvtp
}  // namespace Corvane
