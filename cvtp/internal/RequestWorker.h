#pragma once

#include <Poco/Runnable.h>

#include <atomic>
#include <cstddef>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "cvtp/internal/CvtpMessageInImpl.h"
#include "cvtp/internal/CvtpMessageOutImpl.h"

namespace Corvane {

namespace Io {
class CvPipe;
}

namespace Xml {
class Utf8String;
}

namespace Cvtp {
class CvtpServer;
class CvtpServerRequest;
}  // namespace Cvtp

namespace Internal {
namespace Cvtp {

/// Serves one connection of a server: reads one request after another and gives each to the handler, until the
/// client is quiet for too long, something goes wrong, or it is told to stop.
///
/// It runs once, on a thread of the server's pool. From the moment it is not busy any more it may be deleted: that
/// is the last thing run() does to it. Once it was stopped it does not touch the server any more, which may be gone
/// when a handler that was stuck comes back.
class RequestWorker : public Poco::Runnable {
 public:
    /// @param server not owned. @param name the key in the server's map of workers.
    RequestWorker(std::unique_ptr<Io::CvPipe> pipe, Corvane::Cvtp::CvtpServer* server, const std::string& name);
    ~RequestWorker() override;
    RequestWorker(const RequestWorker&) = delete;
    RequestWorker& operator=(const RequestWorker&) = delete;

    void run() override;

    /// True from the construction until run() has closed the pipe.
    bool isBusy() const;
    /// Asks the worker to give its connection up after its current request.
    void setCancel(bool cancel);
    std::string getName() const;

    /// Ends a pending read or write of the worker, from another thread.
    void stop();
    /// To be called when the pool can start no worker any more: one that never began will not, and is not busy.
    void dropUnlessStarted();

 private:
    struct FreePages {
        void operator()(char* pages) const;
    };

    void serve();
    void installInputBuffer();
    void installOutputBuffer();
    bool awaitBytes() const;
    bool serveRequest(Xml::Utf8String& scratch);
    bool awaitRequest(Corvane::Cvtp::CvtpServerRequest& request);
    bool processRequest(Corvane::Cvtp::CvtpServerRequest& request, Xml::Utf8String& scratch);
    bool dispatch(Corvane::Cvtp::CvtpServerRequest& request, Xml::Utf8String& scratch);
    void processNotify(Corvane::Cvtp::CvtpServerRequest& request);
    bool processPost(Corvane::Cvtp::CvtpServerRequest& request, Xml::Utf8String& scratch);
    bool isGivenUp() const;
    bool readOverBody(Corvane::Cvtp::CvtpServerRequest& request);
    void closePipe();
    void logInterrupted(std::string_view reason) const;
    void logUnprocessed(const char* kind, const std::string& reason, const std::string& method) const;

    Corvane::Cvtp::CvtpServer* server;
    std::unique_ptr<Io::CvPipe> pipe;
    std::atomic<bool> stopRequested{false};
    std::atomic<bool> busy{true};
    std::atomic<bool> cancelRequested{false};
    std::string name;
    /// The server's name, "/", and the worker's: how the log names it.
    std::string fullName;
    /// Of each stream, in bytes.
    const std::size_t bufferSize;
    /// The same in whole pages.
    const std::size_t bufferRoom;
    /// That of the input, and behind it that of the output; null when there was no memory, which is for run() to
    /// tell. From the thread that accepts, as all else that a connection keeps: small blocks of the next ones then
    /// fill what its whole pages leave between them.
    const std::unique_ptr<char, FreePages> buffers;
    /// Where the current request is read and its response written: not on the stack, of which an idle connection
    /// would keep a page more for it.
    std::optional<CvtpMessageInImpl> reader;
    std::optional<CvtpMessageOutImpl> writer;
    std::atomic<bool> started{false};
    /// The pipe's streams; that of the output is null until it is needed.
    std::istream* in = nullptr;
    std::ostream* out = nullptr;
    /// Closing twice would be told to operators as a failure.
    std::atomic<bool> pipeClosed{false};
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
