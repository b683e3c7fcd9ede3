#include "cvtp/CvtpServerRequest.h"

#include "cvtp/CvtpServer.h"
#include "cvtp/internal/CvtpMessageInImpl.h"
#include "cvtp/internal/TraceTags.h"
#include "io/Exceptions.h"
#include "support/Utf8String.h"

namespace Corvane {
namespace Cvtp {

using Internal::Cvtp::CvtpMessageInImpl;

namespace {

/// What stands between the first and the second blank; without a blank the whole line, on purpose.
std::string resourceOf(const std::string& line) {
    const std::string::size_type first = line.find(' ');
    if (first == std::string::npos) {
        return line;
    }
    return line.substr(first + 1, line.find(' ', first + 1) - first - 1);
}

}  // namespace

CvtpServerRequest::CvtpServerRequest(CvtpServer* server, std::istream* in, Xml::Utf8String* scratch)
    : server(server),
      ownMessage(std::make_unique<CvtpMessageInImpl>(in, Internal::Cvtp::TAG_ACCEPT, scratch,
                                                     server->getIntegerOption(CvtpServer::BUFFER_SIZE))),
      message(ownMessage.get()),
      scratch(scratch) {
    reader = message;
}

CvtpServerRequest::CvtpServerRequest(CvtpServer* server, std::istream* in, Xml::Utf8String* scratch,
                                     std::optional<CvtpMessageInImpl>& memory)
    : server(server),
      message(&memory.emplace(in, Internal::Cvtp::TAG_ACCEPT, scratch,
                              server->getIntegerOption(CvtpServer::BUFFER_SIZE))),
      scratch(scratch) {
    reader = message;
}

CvtpServerRequest::~CvtpServerRequest() = default;

std::string CvtpServerRequest::getMethod() {
    try {
        const std::string_view method = methodInStartLine();
        return message->hasStartLine() ? std::string(method) : METHOD_NONE;
    } catch (const Io::CvPipeException&) {
        return METHOD_NONE;
    }
}

std::string CvtpServerRequest::getResource() {
    try {
        return scratch->decode(resourceOf(getStartLine()));
    } catch (const Io::CvPipeException&) {
        return std::string();
    }
}

Version CvtpServerRequest::getCvtpVersion() {
    const std::string line = getStartLine();
    const std::string::size_type last = line.rfind(' ');
    return Version(last == std::string::npos ? line : line.substr(last + 1));
}

std::string CvtpServerRequest::getStartLine() {
    return message->getStartLine();
}

std::string CvtpServerRequest::getHeader(const std::string& name) const {
    return message->getHeader(name);
}

std::vector<std::string> CvtpServerRequest::getHeaders(const std::string& name) const {
    return message->getHeaders(name);
}

std::vector<std::string> CvtpServerRequest::getHeaderNames() const {
    return message->getHeaderNames();
}

void CvtpServerRequest::getBody(char*& data, std::size_t& length) {
    message->getBody(data, length);
}

std::istream* CvtpServerRequest::getBodyStream() {
    return message->getBodyStream();
}

void CvtpServerRequest::awaitStartLine() {
    message->awaitStartLine();
}

void CvtpServerRequest::readHead() {
    static_cast<void>(message->receivedStartLine());
}

bool CvtpServerRequest::hasStartLine() const {
    return message->hasStartLine();
}

std::string_view CvtpServerRequest::methodInStartLine() {
    const std::string_view line = message->receivedStartLine();
    return line.substr(0, line.find(' '));
}

}  // namespace Cvtp
}  // namespace Corvane
