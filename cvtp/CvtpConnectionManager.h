#pragma once

#include <string>

#include "support/Export.h"

namespace Corvane {

namespace Io {
class CvPipe;
}

namespace Cvtp {

/// Where requests take their pipes from. The library has one of its own, a pool; an application may derive another
/// and give it to its CvtpClient. One manager serves any number of threads at once.
class CVTP_EXPORT CvtpConnectionManager {
 public:
    virtual ~CvtpConnectionManager();

    /// A connected pipe, which the caller uses alone until it gives it back; it stays the manager's. Blocks while
    /// it connects, at most as long as the connection timeout says for each attempt.
    ///
    /// @param pipeName the name without prefix.
    /// @param mode letters: readable if it contains `r`, writable if it contains `w`.
    /// @throws Corvane::Io::CvPipeException the pipe could not be connected. Always this class, on purpose, with
    ///         message and code of the cause.
    virtual Io::CvPipe* getPipe(const std::string& pipeName, const std::string& mode) = 0;

    /// Gives a pipe back for another request. Null is ignored.
    ///
    /// @throws Corvane::Io::IllegalStateException it was given back before, or is not of this manager.
    virtual void returnPipe(Io::CvPipe* pipe) = 0;

    /// Gives back a pipe that is of no use any more. It is closed and deleted.
    ///
    /// @throws Corvane::Io::IllegalStateException it was given back before; or it is not of this manager, and then
    ///         it has been deleted all the same.
    virtual void removePipe(Io::CvPipe* pipe) = 0;

 protected:
    CvtpConnectionManager();
    CvtpConnectionManager(const CvtpConnectionManager&) = delete;
    CvtpConnectionManager& operator=(const CvtpConnectionManager&) = delete;
};

}  // namespace Cvtp
}  // namespace Corvane
