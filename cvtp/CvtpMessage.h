#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

#include "support/Export.h"

namespace Corvane {
namespace Cvtp {

/// What all messages have in common: the vocabulary of the protocol, and the switches of the log.
class CVTP_EXPORT CvtpMessage {
 public:
    static constexpr std::int32_t STATUS_OK = 200;
    static constexpr std::int32_t STATUS_BAD_REQUEST = 400;
    static constexpr std::int32_t STATUS_NOT_FOUND = 404;
    static constexpr std::int32_t STATUS_REQUEST_TIMEOUT = 408;
    static constexpr std::int32_t STATUS_LENGTH_REQUIRED = 411;
    static constexpr std::int32_t STATUS_ENTITY_LONG = 413;
    static constexpr std::int32_t STATUS_RESOURCE_ID_LONG = 414;
    static constexpr std::int32_t STATUS_SERVER_ERROR = 500;
    static constexpr std::int32_t STATUS_NOT_IMPLEMENTED = 501;
    static constexpr std::int32_t STATUS_VERSION_NOT_SUPPORTED = 505;

    /// The reason phrase of each status code above. The map can be changed, so an application may add codes of its
    /// own, but not while messages are read or written on another thread. Looking a code up with [] adds it.
    static std::map<std::int32_t, std::string> STATUS_REASONS;

    /// "POST": a request that is answered.
    static const std::string METHOD_POST;
    /// "NOTIFY": a request that is not answered.
    static const std::string METHOD_NOTIFY;
    /// "NONE": what a server's request has for a method while no start line could be read.
    static const std::string METHOD_NONE;

    static const std::string HEADER_CONTENT_LENGTH;
    static const std::string HEADER_TRANSFER_ENCODING;
    static const std::string HEADER_IDENTITY_ENCODING;
    static const std::string HEADER_CHUNKED_ENCODING;
    static const std::string HEADER_USER_AGENT;
    static const std::string HEADER_SERVER;

    /// How much is logged: each level includes those before it. Any other number is off.
    enum LoggingLevel : std::int32_t {
        LOGGING_OFF = 0,
        LOGGING_ERROR = 1,
        LOGGING_WARN = 2,
        LOGGING_INFO = 3,
        LOGGING_DEBUG = 4
    };

    /// Which direction of the bytes on the pipes is traced. Any other number is off.
    enum CommunicationLevel : std::int32_t {
        COMMUNICATION_OFF = 0,
        COMMUNICATION_INPUT = 1,
        COMMUNICATION_OUTPUT = 2,
        COMMUNICATION_BOTH = 3
    };

    /// Sets log and communication trace of the whole process. Both are off until this is called.
    ///
    /// The two streams stay the caller's and must stay open until they are replaced: when this returns, no thread
    /// of the library writes to those of before. Either may be null; without `commFile` nothing is traced. May be
    /// called at any time from any thread; waits for lines that are just being written.
    static void setLoggingLevel(std::FILE* logFile, LoggingLevel level, std::FILE* commFile,
                                CommunicationLevel commLevel);

    /// Sets the text that each later log line of the calling thread carries, until the thread ends.
    static void setLogCorrelationId(const std::string& id);

    virtual ~CvtpMessage();

    /// The start line without its line end.
    virtual std::string getStartLine() = 0;

 protected:
    CvtpMessage() = default;
    CvtpMessage(const CvtpMessage&) = default;
    CvtpMessage& operator=(const CvtpMessage&) = default;
};

}  // namespace Cvtp
}  // namespace Corvane
