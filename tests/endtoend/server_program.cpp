// A server process. Usage: endtoend_server PIPE
// It tells "ready", each request that it has served, and "stopped" on its standard output. It stops when its
// standard input ends.

#include <iostream>
#include <thread>

#include "cvtp/CvtpHandler.h"
#include "cvtp/CvtpServer.h"
#include "cvtp/CvtpServerRequest.h"
#include "cvtp/CvtpServerResponse.h"
#include "tests/endtoend/ByteSource.h"

using namespace Corvane::Cvtp;
using Corvane::Testing::ByteSource;
using Corvane::Testing::Digest;
using Corvane::Testing::tell;

namespace {

/// "/digest": answers with the digest of the body, by length. "/bytes/SIZE": with so many bytes, in chunks.
/// Anything else is not there.
class Handler : public CvtpHandler {
 public:
    bool doReady() override {
        tell("ready");
        return true;
    }

    void doNotify(CvtpServerRequest& request) override {
        const std::string digest = digestBody(request);
        tell("NOTIFY " + request.getResource() + " " + digest);
    }

    void doPost(CvtpServerRequest& request, CvtpServerResponse& response) override {
        const std::string resource = request.getResource();
        const std::string bytes = "/bytes/";
        if (resource == "/digest") {
            const std::string answer = digestBody(request);
            response.setStatusCode(CvtpMessage::STATUS_OK);
            response.setBody(answer.data(), answer.size());
            response.send();
        } else if (resource.compare(0, bytes.size(), bytes) == 0) {
            ByteSource source(std::stoull(resource.substr(bytes.size())));
            response.setStatusCode(CvtpMessage::STATUS_OK);
            *response.getBodyStream() << &source;
            response.send();
        } else {
            response.sendError(CvtpMessage::STATUS_NOT_FOUND, "There is no " + resource);
        }
    }

 private:
    static std::string digestBody(CvtpServerRequest& request) {
        Digest digest;
        digest.addAll(*request.getBodyStream());
        return digest.text() + (request.isBodyComplete() ? "" : " cut off");
    }
};

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::cerr << "endtoend_server PIPE" << std::endl;
        return 2;
    }
    Handler handler;
    CvtpServer server(arguments[1], 1);
    if (!server.isBound()) {
        tell("taken");
        return 1;
    }
    server.setHandler(&handler);
    std::thread running([&server] { server.run(); });
    while (std::cin.get() != std::char_traits<char>::eof()) {
    }
    server.shutdown();
    running.join();
    tell("stopped");
    return 0;
}
