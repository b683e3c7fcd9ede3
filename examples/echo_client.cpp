#include <iostream>
#include <memory>
#include <string>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/PostRequest.h"
#include "io/Exceptions.h"

using namespace Corvane::Cvtp;

int main() try {
    const std::string text = "Hello";
    CvtpClient client;
    PostRequest request(&client, "echo", "/greeting");
    request.addHeader("Content-Type", "text/plain");
    request.setBody(text.data(), text.size());
    const std::unique_ptr<CvtpResponse> response(request.execute());
    std::cout << response->getStatusCode() << " " << response->getReasonPhrase() << ": "
              << response->getBodyStream()->rdbuf() << std::endl;
} catch (Corvane::Io::CvPipeException& error) {
    std::cerr << error.getMessage() << std::endl;
    return 1;
}
