#pragma once

#include <cstddef>
#include <istream>
#include <memory>
#include <string>

#include "cvtp/AbstractCvtpRequest.h"
#include "cvtp/internal/CvtpMessageOutImpl.h"
#include "support/Utf8String.h"

namespace Corvane {

namespace Io {
class BrokenPipeException;
class CvPipe;
}  // namespace Io

namespace Cvtp {
class CvtpClient;
class CvtpResponse;
}  // namespace Cvtp

namespace Internal {
namespace Cvtp {

class CvtpOStream;

/// What one-way and two-way requests share: filling the message, and sending it on a pipe of the client's manager,
/// on a new one when the connection was lost before anything had been committed.
class AbstractCvtpRequestImpl : public Corvane::Cvtp::AbstractCvtpRequest {
 public:
    /// What a request does with its pipe.
    struct Mode {
        /// The access letters asked of the manager.
        const char* letters;
        /// Whether they allow an answer.
        bool isAnswered;
    };
    static constexpr Mode ONE_WAY{"w", false};
    static constexpr Mode TWO_WAY{"rw", true};

    /// @param mode one of the above. @param client not owned.
    AbstractCvtpRequestImpl(const std::string& method, const std::string& resource, Mode mode,
                            Corvane::Cvtp::CvtpClient* client, const std::string& pipeName);
    /// Gives the pipe back to the manager.
    ~AbstractCvtpRequestImpl() override;
    AbstractCvtpRequestImpl(const AbstractCvtpRequestImpl&) = delete;
    AbstractCvtpRequestImpl& operator=(const AbstractCvtpRequestImpl&) = delete;

    std::string getStartLine() override;
    void addHeader(const std::string& name, const std::string& value) override;
    void setHeader(const std::string& name, const std::string& value) override;
    void removeHeader(const std::string& name) override;
    void setBody(const char* data, std::size_t length) override;
    bool isCommitted() const override;
    std::string getMethod() const override;
    void setResource(const std::string& resource) override;
    std::string getResource() const override;
    void setBodyStream(std::istream* body) override;

    /// Sends the message. Null when the mode does not allow an answer; else an answer of which nothing was read
    /// yet.
    std::unique_ptr<Corvane::Cvtp::CvtpResponse> sendRequest();

 private:
    void requireOneBody() const;
    std::unique_ptr<Corvane::Cvtp::CvtpResponse> sendOnce();
    /// @throws Io::BrokenPipeException a request before this one failed on the pipe.
    void requireIntact(const std::ios& stream);
    void writeHeadAndBody(std::ostream& out, int bufferSize);
    void copyBodyStream();
    /// Returns when the request may be sent again; else throws.
    void afterLostConnection(Io::BrokenPipeException& lost);
    /// Does nothing when there is none.
    void removePipe();
    bool hasBodyBytes() const;

    /// The pipe of the current attempt, the manager's; null before the first and when it was discarded.
    Io::CvPipe* pipe = nullptr;
    Corvane::Cvtp::CvtpClient* client;
    std::string pipeName;
    std::string method;
    std::string resource;
    Mode mode;
    std::unique_ptr<CvtpOStream> bodyOut;
    std::istream* bodyStream = nullptr;
    Xml::Utf8String encoder;
    CvtpMessageOutImpl message;
    /// The last pipe that the manager gave although it had failed; only compared.
    const Io::CvPipe* refusedPipe = nullptr;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
