#include <iostream>
#include <iterator>
#include <string>
#include <thread>

#include "cvtp/CvtpHandler.h"
#include "cvtp/CvtpServer.h"
#include "cvtp/CvtpServerRequest.h"
#include "cvtp/CvtpServerResponse.h"

using namespace Corvane::Cvtp;

class Echo : public CvtpHandler {
 public:
    bool doReady() override {
        std::cout << "Press Enter to stop" << std::endl;
        return true;
    }
    void doNotify(CvtpServerRequest& request) override { body(request); }
    void doPost(CvtpServerRequest& request, CvtpServerResponse& response) override {
        const std::string text = body(request);
        response.setStatusCode(CvtpMessage::STATUS_OK);
        response.setBody(text.data(), text.size());
        response.send();
    }

 private:
    static std::string body(CvtpServerRequest& request) {
        return std::string(std::istreambuf_iterator<char>(*request.getBodyStream()), {});
    }
};

int main() {
    Echo echo;
    CvtpServer server("echo", 1);
    if (!server.isBound()) {
        std::cerr << "Another server has the pipe" << std::endl;
        return 1;
    }
    server.setHandler(&echo);
    std::thread running([&server] { server.run(); });
    std::cin.get();
    server.shutdown();
    running.join();
}
