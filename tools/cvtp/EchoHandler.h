#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <set>
#include <string>

#include "cvtp/CvtpHandler.h"

namespace Corvane {
namespace Tools {

class Spool;

/// Answers each POST with the body and the headers that it came with, and prints a line for each request.
class EchoHandler : public Cvtp::CvtpHandler {
 public:
    /// @param missing the resources that are answered with 404.
    /// @param onReady called once, when the server is about to accept clients.
    EchoHandler(std::set<std::string> missing, std::function<void()> onReady);

    bool doReady() override;
    void doNotify(Cvtp::CvtpServerRequest& request) override;
    void doPost(Cvtp::CvtpServerRequest& request, Cvtp::CvtpServerResponse& response) override;

    /// What was served so far, on one line.
    std::string summary() const;

 private:
    void answer(Cvtp::CvtpServerRequest& request, Cvtp::CvtpServerResponse& response, Spool& body);
    void report(const std::string& line);

    const std::set<std::string> missing;
    const std::function<void()> onReady;
    /// The server's threads print through this.
    std::mutex printing;
    std::atomic<std::uintmax_t> posts{0};
    std::atomic<std::uintmax_t> notifies{0};
    std::atomic<std::uintmax_t> notFound{0};
    std::atomic<std::uintmax_t> bytesIn{0};
};

}  // namespace Tools
}  // namespace Corvane
