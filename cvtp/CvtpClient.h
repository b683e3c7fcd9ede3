#pragma once

#include <cstdint>
#include <string>

#include "cvtp/Version.h"
#include "support/Export.h"

namespace Corvane {
namespace Cvtp {

class CvtpConnectionManager;

/// What an application creates once and gives to each of its requests: the options of the client side, and the
/// manager that its requests take their pipes from.
///
/// It must outlive every request and response made with it. Set the options and call getManager() once before
/// several threads share it; after that it is only read.
class CVTP_EXPORT CvtpClient {
 public:
    /// The numbers are part of the interface: the configuration file maps to them.
    enum ClientOptions : std::int32_t {
        /// How long a new pipe waits for a free instance of the server, in ms. Default 60000; 0 waits forever. Read
        /// when the client's own manager is created, and not again.
        CONNECTION_TIMEOUT = 0,
        /// How long a pipe may lie idle in the pool, in ms. Default 10000. Read when the client's own manager is
        /// created, and not again.
        STALE_TIMEOUT = 1,
        /// The value of the header "User-Agent" of each request. Default "CvtpClient".
        USER_AGENT = 2,
        /// The buffers through which bodies are written and read, in bytes; also the size of a chunk. Default
        /// 40960; below 1 counts as 1.
        BUFFER_SIZE = 3
    };

    /// A client with a pool of its own.
    CvtpClient();

    /// A client that uses the application's manager, which must outlive it and is never deleted by it. Null is the
    /// same as the default constructor.
    explicit CvtpClient(CvtpConnectionManager* manager);

    /// Closes the pipes of its own pool.
    virtual ~CvtpClient();

    CvtpClient(const CvtpClient&) = delete;
    CvtpClient& operator=(const CvtpClient&) = delete;

    /// The version of the protocol that the library speaks.
    Version getCvtpVersion() const;

    /// The manager; created with the timeouts of this moment by the first call. It stays the client's, or the
    /// application's that gave it.
    CvtpConnectionManager* getManager();

    /// Set an option. One of the other kind, or of no known number, is logged at ERROR and changes nothing. Any
    /// value is taken as it is.
    void setOption(ClientOptions option, const std::string& value);
    void setOption(ClientOptions option, int value);

    /// The value, or "" with a line at ERROR for anything but USER_AGENT.
    std::string getStringOption(ClientOptions option) const;
    /// The value, or -1 with a line at ERROR for anything but the integer options.
    int getIntegerOption(ClientOptions option) const;

 private:
    CvtpConnectionManager* manager = nullptr;
    bool ownsManager = false;
    std::int32_t connectionTimeout = 60000;
    std::int32_t staleTimeout = 10000;
    std::string userAgent = "CvtpClient";
    std::int32_t bufferSize = 40960;
};

}  // namespace Cvtp
}  // namespace Corvane
