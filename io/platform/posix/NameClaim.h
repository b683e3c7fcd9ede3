#pragma once

#include <sys/types.h>

#include "io/platform/posix/FileDescriptor.h"
#include "io/platform/posix/PipeAddress.h"

namespace Corvane {
namespace Io {
namespace Platform {

/// A server's claim to the name of a pipe: at most one living process has it, and the kernel ends it with the
/// process, however that dies, and with the children that it has forked and that run no other program.
///
/// It stands on a lock of the lock file, so a socket file without a claim is a leftover of a server that was killed
/// and can go. Nothing is removed that belongs to another user or is not what it should be.
///
/// Not for several threads at once.
class NameClaim {
 public:
    explicit NameClaim(PipeAddress address);
    /// Gives the name back.
    ~NameClaim();
    NameClaim(const NameClaim&) = delete;
    NameClaim& operator=(const NameClaim&) = delete;

    /// Takes the name and clears away what a killed server has left.
    ///
    /// @return 0, or the code of the system: EADDRINUSE when a server has the name. What is in the way and must not
    ///         be touched is logged at ERROR.
    int take();

    /// Tells clients what the server can do, unless that is everything. Before the socket is bound.
    int announceDirection(bool readable, bool writable);

    /// Notes that the socket has been bound.
    int noteSocket();

    /// Removes the socket file again, so that another socket can be bound in its place.
    void removeSocket();

    /// Removes the files, then ends the claim. Does nothing in a child that was forked: the name is its parent's.
    /// A second call does nothing.
    void release();

    const PipeAddress& getAddress() const { return address; }

    /// False in a child that was forked after the claim was made.
    bool isOwner() const;

 private:
    /// Which file it was, so that another one that has taken its place stays.
    struct FileIdentity {
        dev_t device = 0;
        ino_t inode = 0;
    };

    int lock();
    int clearLeftover(const std::string& file, mode_t type);
    int clearOwnDirection();
    int noteOwn(const std::string& file, mode_t type, FileIdentity& identity);
    static bool identify(const std::string& file, FileIdentity& identity);
    static void removeIfSame(const std::string& file, const FileIdentity& identity);

    const PipeAddress address;
    /// The process that took the name.
    const pid_t owner;
    FileDescriptor lockDescriptor;
    FileIdentity lockIdentity;
    FileIdentity socketIdentity;
    FileIdentity directionIdentity;
};

}  // namespace Platform
}  // namespace Io
}  // namespace Corvane
