#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "cvtp/CvtpMessageIn.h"
#include "cvtp/internal/IStreamBuffer.h"
#include "cvtp/internal/ReceivedHeaders.h"
#include "support/SmallText.h"

namespace Corvane {

namespace Xml {
class Utf8String;
}

namespace Internal {
namespace Cvtp {

class CvtpIStream;

/// Reads one message from a stream.
class CvtpMessageInImpl : public Corvane::Cvtp::CvtpMessageIn {
 public:
    /// @param in not owned. @param tag TAG_ACCEPT or TAG_RECEIVE. @param decoder not owned.
    /// @param bufferSize of the body decoder, in bytes; below 1 counts as 1.
    CvtpMessageInImpl(std::istream* in, const char* tag, Xml::Utf8String* decoder, int bufferSize);
    ~CvtpMessageInImpl() override;
    CvtpMessageInImpl(const CvtpMessageInImpl&) = delete;
    CvtpMessageInImpl& operator=(const CvtpMessageInImpl&) = delete;

    using CvtpMessageIn::getBody;

    std::string getStartLine() override;
    std::string getHeader(const std::string& name) const override;
    std::vector<std::string> getHeaders(const std::string& name) const override;
    std::vector<std::string> getHeaderNames() const override;
    void getBody(char*& data, std::size_t& length) override;
    std::istream* getBodyStream() override;

    /// Reads no further than the start line; the next call that needs the head goes on with the headers. Lets a
    /// server wait longer for a request to begin than for the rest of it.
    void awaitStartLine();

    /// True once a start line was read; false while getStartLine() gives the placeholder.
    bool hasStartLine() const;

    bool isWholeBodyRead() const;

    /// As getStartLine(), without the copy, and "" while that gives the placeholder.
    std::string_view receivedStartLine();

 private:
    void readHead();
    bool readHeadersAhead();
    void readHeaders();
    void readHeaderLine(std::string& line) const;
    void findFraming();
    void traceStartLine() const;
    std::string placeholder() const;
    void requireBody() const;
    IStreamBuffer<char>& decoder();
    CvtpIStream& stream();
    bool takeBodyAhead(char*& data);
    void readCountedBody(char*& data);

    std::istream* in;
    const std::string_view tag;
    SmallText<80> startLine;
    ReceivedHeaders headers;
    /// How the body is framed; not known until the head was read.
    enum class Framing { UNKNOWN, COUNTED, CHUNKED };
    Framing framing = Framing::UNKNOWN;
    /// The declared length of a counted body.
    std::int64_t bodyLength = 0;
    /// A counted body had arrived when it was asked for, and was taken from the buffer of the pipe.
    bool isBodyTaken = false;
    /// Both are made when they are needed: most bodies are small, and are taken as a whole.
    std::optional<IStreamBuffer<char>> bodyDecoder;
    std::unique_ptr<CvtpIStream> bodyStream;
    /// Header values are taken as they are, since text is UTF-8 on both sides of it.
    [[maybe_unused]] Xml::Utf8String* encoding;
    int bufferSize;
    /// What was tried once is not tried again, whether it failed or not: after a failure nobody knows where in the
    /// message the stream stands.
    bool startLineTried = false;
    bool headersTried = false;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
