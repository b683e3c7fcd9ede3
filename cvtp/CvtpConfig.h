#pragma once

#include <memory>
#include <string>

#include "support/Export.h"

namespace Corvane {

namespace Internal {
namespace Cvtp {
class ConfigDocument;
}
}  // namespace Internal

namespace Cvtp {

class CvtpClient;
class CvtpServer;

/// The options that an installation sets for its clients and servers, in one XML file for all of a process.
///
/// The file is the one that the environment variable "CvtpConfigurationFile" names or, without that variable,
/// "CvtpConfig.xml" in the current directory; no other place is searched. On Linux a program that runs with more
/// rights than its caller does not look at the variable. The file is read once; a change takes effect in the next
/// process. A file that is missing, cannot be read or is not in order is logged at ERROR and changes no option.
///
/// Below the root element, whatever its name, stands an element `CvtpServer` or `CvtpClient` for each entry. Its
/// attributes "function" and "component" select it, the others are options:
///
///     <CvtpServer function="orders" component="intake" max_request_processors="10" accept_timeout="0"
///         idle_timeout="30000" receive_timeout="3000" buffer_size="4096"/>
///     <CvtpClient function="orders" component="intake" connect_timeout="5000" stale_timeout="10000"
///         buffer_size="40960"/>
///
/// Nothing but the file itself is opened, whatever stands in it: one that refers to another file or to the network
/// is refused, and so is one of more than 1 MiB, and one that would take too much memory or time.
///
/// All functions may be called from several threads at once, for different clients and servers.
class CVTP_EXPORT CvtpConfig {
 public:
    /// The configuration of this process. The first call reads the file, which may block as reading any file does;
    /// other threads that call it at the same time wait for that. It is never destroyed, so it may be used for as
    /// long as the process lives.
    ///
    /// The first call also initialises the XML parser, Xerces-C, for the rest of the process. Xerces counts its
    /// initialisations, but not safely across threads: an application that uses Xerces itself must not initialise
    /// or terminate it in another thread during this call.
    static CvtpConfig& getInstance();

    /// True when the file was there and in order.
    bool isLoaded() const;

    /// Set the options that the first fitting entry has, in the order of the attributes' names: the entry for a
    /// client or a server whose function and component are exactly these texts, in UTF-8. An attribute that is
    /// missing is the same as an empty one. Without such an entry nothing happens. Call it before the client or the
    /// server is used.
    ///
    /// An unknown attribute is logged at ERROR, the unsupported "read_timeout" of a client at WARN; both change
    /// nothing.
    ///
    /// @throws xercesc::NumberFormatException the value of an option is not an integer of 32 bits; that was logged
    ///     at ERROR. It is no std::exception; `catch (...)` catches it without the headers of Xerces. The options
    ///     before that attribute are set, those after it are not.
    void setCvtpClientOptions(CvtpClient& client, const std::string& function, const std::string& component);
    void setCvtpServerOptions(CvtpServer& server, const std::string& function, const std::string& component);

    CvtpConfig(const CvtpConfig&) = delete;
    CvtpConfig& operator=(const CvtpConfig&) = delete;

 private:
    CvtpConfig();
    ~CvtpConfig();

    void loadConfigFile();

    std::unique_ptr<Internal::Cvtp::ConfigDocument> document;
};

}  // namespace Cvtp
}  // namespace Corvane
