#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

#include "cvtp/CvtpMessageOut.h"
#include "cvtp/internal/CvtpHeaderWriter.h"
#include "cvtp/internal/HeadersToSend.h"

namespace Corvane {

namespace Xml {
class Utf8String;
}

namespace Internal {
namespace Cvtp {

/// Headers and body of an outgoing message, and the writing of its head. The request or response that owns it
/// builds the start line.
class CvtpMessageOutImpl : public Corvane::Cvtp::CvtpMessageOut, public CvtpHeaderWriter {
 public:
    /// A start line as its owner composes it of pieces, which hold no line end and need not be put together
    /// anywhere but in the message.
    using StartLine = std::array<std::string_view, 5>;

    /// The version that each start line carries, as text.
    static const std::string& versionText();

    /// @param owner not owned; asked for the start line. @param tag TAG_SEND or TAG_REPLY. @param encoder not
    /// owned.
    CvtpMessageOutImpl(Corvane::Cvtp::CvtpMessageOut* owner, const char* tag, Xml::Utf8String* encoder);

    /// Adds the header that names the program; before any other.
    /// @param name HEADER_USER_AGENT or HEADER_SERVER; not owned.
    void setProgram(const std::string& name, const std::string& value);

    std::string getStartLine() override;
    void addHeader(const std::string& name, const std::string& value) override;
    void setHeader(const std::string& name, const std::string& value) override;
    void removeHeader(const std::string& name) override;
    void setBody(const char* data, std::size_t length) override;
    bool isCommitted() const override;

    /// The length given to setBody(), or -1 when it was not called.
    std::int64_t getBodyLength() const;
    /// Writes the bytes given to setBody(), if any.
    void writeBody(std::ostream& out) const;

    /// Writes the head, flushes it, and only then counts as committed. Does nothing when that was done before.
    ///
    /// @throws Io::IllegalStateException a header line is longer than 2048 bytes; nothing has been written then.
    /// @throws Io::CvPipeException the stream has failed; and what the stream throws.
    void writeHeaders(std::ostream& out) override;

    /// Writes the head and the bytes given to setBody(). Where both fit into the buffer of a pipe they leave it in
    /// one piece, and the head counts as committed when they have.
    ///
    /// @param startLine the one that the owner would give. @param bufferSize that of the body's writer, in bytes.
    /// @throws as writeHeaders().
    void writeHeadAndBody(std::ostream& out, const StartLine& startLine, int bufferSize);

 private:
    struct Free {
        void operator()(char* bytes) const { std::free(bytes); }
    };

    char* placeOfBody(std::size_t length);
    std::size_t measureHead(const StartLine& startLine) const;
    void composeHead(const StartLine& startLine, char* head) const;
    std::string composeHead(const StartLine& startLine) const;
    bool writeInOnePiece(std::ostream& out, const StartLine& startLine);
    static void writeHead(std::ostream& out, const std::string& head);
    void commit(std::ostream& out, const std::string& head);
    void report(const std::string& head) const;

    Corvane::Cvtp::CvtpMessageOut* owner;
    const char* tag;
    HeadersToSend headers;
    bool committed = false;
    /// A copy of the bytes given to setBody(), and a NUL; null before.
    const char* body = nullptr;
    /// Where the copy is. Most are small, and need no memory of their own.
    std::array<char, 128> smallBody;
    std::unique_ptr<char, Free> largeBody;
    std::uint64_t bodyLength = 0;
    /// Header values go out as they are, since text is UTF-8 on both sides of it.
    [[maybe_unused]] Xml::Utf8String* encoder;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
