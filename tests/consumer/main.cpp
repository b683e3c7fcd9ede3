// Uses the public headers the way an application does: a server and a client in one process.

#include <cstdlib>
#include <future>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <thread>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpConfig.h"
#include "cvtp/CvtpHandler.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/CvtpServer.h"
#include "cvtp/CvtpServerRequest.h"
#include "cvtp/CvtpServerResponse.h"
#include "cvtp/PostRequest.h"
#include "io/Exceptions.h"

namespace {

using namespace Corvane::Cvtp;

std::string readAll(std::istream& in) {
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class Reverser : public CvtpHandler {
 public:
    std::promise<void> ready;

    bool doReady() override {
        ready.set_value();
        return true;
    }

    void doNotify(CvtpServerRequest& request) override { readAll(*request.getBodyStream()); }

    void doPost(CvtpServerRequest& request, CvtpServerResponse& response) override {
        const std::string body = readAll(*request.getBodyStream());
        const std::string reversed(body.rbegin(), body.rend());
        response.setStatusCode(CvtpMessage::STATUS_OK);
        response.setBody(reversed.data(), reversed.size());
        response.send();
    }
};

std::string post(const std::string& text) {
    CvtpClient client;
    PostRequest request(&client, "consumer", "/reverse");
    request.setBody(text.data(), text.size());
    const std::unique_ptr<CvtpResponse> response(request.execute());
    return std::to_string(response->getStatusCode()) + " " + readAll(*response->getBodyStream());
}

/// An exception of the library must be caught by its type across the border of the shared library.
bool isConnectFailureCaught() {
    CvtpClient client;
    PostRequest request(&client, "nobody is here", "/");
    request.setBody("", 0);
    try {
        delete request.execute();
    } catch (Corvane::Io::CvPipeException& error) {
        std::cout << error.getMessage() << std::endl;
        return true;
    }
    return false;
}

/// The environment names the example of a configuration file.
bool isConfigured() {
    CvtpClient client;
    CvtpConfig::getInstance().setCvtpClientOptions(client, "orders", "intake");
    return CvtpConfig::getInstance().isLoaded() && client.getIntegerOption(CvtpClient::CONNECTION_TIMEOUT) == 5000;
}

}  // namespace

int main() {
    Reverser handler;
    CvtpServer server("consumer", 1);
    server.setHandler(&handler);
    std::thread running([&server] { server.run(); });
    handler.ready.get_future().wait();
    const std::string answer = post("drawer");
    server.shutdown();
    running.join();
    std::cout << answer << std::endl;
    return answer == "200 reward" && isConnectFailureCaught() && isConfigured() ? EXIT_SUCCESS : EXIT_FAILURE;
}
