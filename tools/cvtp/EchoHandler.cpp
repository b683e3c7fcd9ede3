#include "tools/cvtp/EchoHandler.h"

#include <algorithm>
#include <iostream>
#include <utility>
#include <vector>

#include "cvtp/CvtpServerRequest.h"
#include "cvtp/CvtpServerResponse.h"
#include "io/Exceptions.h"
#include "tools/cvtp/Spool.h"
#include "tools/cvtp/Text.h"

namespace Corvane {
namespace Tools {

namespace {

using Cvtp::CvtpMessage;

char upperCase(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool isSameName(const std::string& a, const std::string& b) {
    const auto isSame = [](char x, char y) { return upperCase(x) == upperCase(y); };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), isSame);
}

/// True for the headers that are about one message or one of its ends, not about what it carries.
bool staysBehind(const std::string& name) {
    const auto isThisOne = [&name](const std::string& other) { return isSameName(name, other); };
    const std::vector<std::string> names = {CvtpMessage::HEADER_CONTENT_LENGTH,
                                            CvtpMessage::HEADER_TRANSFER_ENCODING, CvtpMessage::HEADER_USER_AGENT,
                                            CvtpMessage::HEADER_SERVER};
    return std::any_of(names.begin(), names.end(), isThisOne);
}

void copyHeaders(const Cvtp::CvtpServerRequest& request, Cvtp::CvtpServerResponse& response) {
    for (const std::string& name : request.getHeaderNames()) {
        if (staysBehind(name)) {
            continue;
        }
        for (const std::string& value : request.getHeaders(name)) {
            response.addHeader(name, value);
        }
    }
}

/// Takes the body in as a whole: a client reads nothing before it has sent everything, so an answer that began
/// earlier would fill the pipe, and both ends would wait for each other.
void readBody(Cvtp::CvtpServerRequest& request, Spool& body) {
    std::istream& in = *request.getBodyStream();
    std::vector<char> block(64 * 1024);
    while (in) {
        in.read(block.data(), static_cast<std::streamsize>(block.size()));
        body.append(block.data(), static_cast<std::size_t>(in.gcount()));
    }
    if (!request.isBodyComplete()) {
        // What else comes on this pipe cannot be told from the rest of the body, so the connection must end.
        throw Io::CvPipeException("The body of the request broke off after " + byteCount(body.size()) + ".");
    }
}

}  // namespace

EchoHandler::EchoHandler(std::set<std::string> missingResources, std::function<void()> readyAction)
    : missing(std::move(missingResources)), onReady(std::move(readyAction)) {}

bool EchoHandler::doReady() {
    onReady();
    return true;
}

void EchoHandler::doNotify(Cvtp::CvtpServerRequest& request) {
    Spool body;
    readBody(request, body);
    ++notifies;
    bytesIn += body.size();
    report("NOTIFY " + request.getResource() + " " + byteCount(body.size()));
}

void EchoHandler::doPost(Cvtp::CvtpServerRequest& request, Cvtp::CvtpServerResponse& response) {
    Spool body;
    readBody(request, body);
    ++posts;
    bytesIn += body.size();
    const std::string line = "POST " + request.getResource() + " " + byteCount(body.size()) + ", answered with ";
    if (missing.count(request.getResource()) != 0) {
        ++notFound;
        response.sendError(CvtpMessage::STATUS_NOT_FOUND, "Not Found");
        report(line + "404");
    } else {
        answer(request, response, body);
        report(line + "200");
    }
}

std::string EchoHandler::summary() const {
    return "Served " + std::to_string(posts) + " POST (" + std::to_string(notFound) + " answered with 404) and " +
           std::to_string(notifies) + " NOTIFY, " + byteCount(bytesIn) + " received.";
}

void EchoHandler::answer(Cvtp::CvtpServerRequest& request, Cvtp::CvtpServerResponse& response, Spool& body) {
    response.setStatusCode(CvtpMessage::STATUS_OK);
    copyHeaders(request, response);
    if (body.isInMemory()) {
        response.setBody(body.bytes().data(), body.bytes().size());
    } else {
        body.copyTo(*response.getBodyStream());
    }
    response.send();
}

void EchoHandler::report(const std::string& line) {
    const std::lock_guard<std::mutex> lock(printing);
    std::cout << printable(line) << std::endl;
}

}  // namespace Tools
}  // namespace Corvane
