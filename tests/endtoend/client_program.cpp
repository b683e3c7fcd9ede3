// A client process. Usage: endtoend_client PIPE
// Reads one command from each line of its standard input, and tells what came of it on its standard output. All
// commands use one client, and so one pool of pipes.
//
//   post RESOURCE SIZE length|chunks    tells "STATUS REASON: BODY", a long body as "SIZE HASH"
//   notify RESOURCE SIZE length|chunks  tells "sent"
//   stall RESOURCE                      sends a part of a body, tells "stalled", and goes no further

#include <iostream>
#include <memory>
#include <sstream>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/NotifyRequest.h"
#include "cvtp/PostRequest.h"
#include "io/Exceptions.h"
#include "tests/endtoend/ByteSource.h"

using namespace Corvane::Cvtp;
using Corvane::Testing::ByteSource;
using Corvane::Testing::Digest;
using Corvane::Testing::tell;

namespace {

/// Gives some bytes, and then none, and no end either, until standard input ends.
class StallingSource : public std::streambuf {
 protected:
    int_type underflow() override {
        if (!started) {
            started = true;
            setg(block, block, block + sizeof block);
            return traits_type::to_int_type(block[0]);
        }
        tell("stalled");
        while (std::cin.get() != std::char_traits<char>::eof()) {
        }
        return traits_type::eof();
    }

 private:
    bool started = false;
    char block[100000] = {};
};

/// What a command asks to be sent, in either framing.
class Body {
 public:
    Body(std::uint64_t size, const std::string& framing)
        : source(size), stream(&source), chunks(framing == "chunks") {}

    template <class Request>
    void giveTo(Request& request) {
        if (chunks) {
            request.setBodyStream(&stream);
            return;
        }
        const std::string bytes(std::istreambuf_iterator<char>(stream), {});
        request.setBody(bytes.data(), bytes.size());
    }

 private:
    ByteSource source;
    std::istream stream;
    bool chunks;
};

std::string bodyText(CvtpResponse& response) {
    if (response.getHeader("Transfer-Encoding").empty()) {
        return std::string(std::istreambuf_iterator<char>(*response.getBodyStream()), {});
    }
    Digest digest;
    digest.addAll(*response.getBodyStream());
    return digest.text() + (response.isBodyComplete() ? "" : " cut off");
}

void post(CvtpClient& client, const std::string& pipe, std::istream& words) {
    std::string resource;
    std::uint64_t size = 0;
    std::string framing;
    words >> resource >> size >> framing;
    Body body(size, framing);
    PostRequest request(&client, pipe, resource);
    body.giveTo(request);
    const std::unique_ptr<CvtpResponse> response(request.execute());
    const std::string status = std::to_string(response->getStatusCode()) + " " + response->getReasonPhrase();
    tell(status + ": " + bodyText(*response));
}

void notify(CvtpClient& client, const std::string& pipe, std::istream& words) {
    std::string resource;
    std::uint64_t size = 0;
    std::string framing;
    words >> resource >> size >> framing;
    Body body(size, framing);
    NotifyRequest request(&client, pipe, resource);
    body.giveTo(request);
    request.execute();
    tell("sent");
}

void stall(CvtpClient& client, const std::string& pipe, std::istream& words) {
    std::string resource;
    words >> resource;
    StallingSource source;
    std::istream body(&source);
    PostRequest request(&client, pipe, resource);
    request.setBodyStream(&body);
    const std::unique_ptr<CvtpResponse> response(request.execute());
}

void obey(CvtpClient& client, const std::string& pipe, const std::string& line) {
    std::istringstream words(line);
    std::string command;
    words >> command;
    if (command == "post") {
        post(client, pipe, words);
    } else if (command == "notify") {
        notify(client, pipe, words);
    } else if (command == "stall") {
        stall(client, pipe, words);
    } else {
        tell("unknown command " + command);
    }
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::cerr << "endtoend_client PIPE" << std::endl;
        return 2;
    }
    CvtpClient client;
    std::string line;
    while (std::getline(std::cin, line)) {
        try {
            obey(client, arguments[1], line);
        } catch (Corvane::Io::CvPipeException& failure) {
            tell("failed: " + failure.getMessage());
        }
    }
    return 0;
}
