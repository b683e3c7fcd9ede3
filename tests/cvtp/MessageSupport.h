#pragma once

#include <cstdint>
#include <cstdlib>
#include <locale>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "cvtp/CvtpMessageOut.h"
#include "cvtp/internal/CvtpMessageInImpl.h"
#include "cvtp/internal/TransferSummary.h"
#include "tests/cvtp/MessageTable.h"

namespace Corvane {
namespace Testing {

/// A block that the library handed out.
struct FreeBytes {
    void operator()(char* bytes) const { std::free(bytes); }
};
using Bytes = std::unique_ptr<char, FreeBytes>;

/// Stands for the request or response that owns a CvtpMessageOutImpl: only its start line counts.
class StartLineOwner : public Corvane::Cvtp::CvtpMessageOut {
 public:
    explicit StartLineOwner(const std::string& startLine = "POST /a CVTP/1.0") : startLine(startLine) {}

    std::string getStartLine() override { return startLine; }
    void addHeader(const std::string&, const std::string&) override {}
    void setHeader(const std::string&, const std::string&) override {}
    void removeHeader(const std::string&) override {}
    void setBody(const char*, std::size_t) override {}
    bool isCommitted() const override { return false; }

 private:
    std::string startLine;
};

/// Lets at least this many milliseconds pass on the clock that the summary is made with.
inline void letPass(std::int64_t milliseconds) {
    const std::int64_t end = Internal::Cvtp::currentMilliseconds() + milliseconds;
    while (Internal::Cvtp::currentMilliseconds() < end) {
        std::this_thread::yield();
    }
}

/// The rate that a summary gives, in Mbps; -1 when it gives none.
inline double rateIn(const std::string& summary) {
    const std::string::size_type begin = summary.find('(');
    double rate = -1;
    if (begin != std::string::npos) {
        std::istringstream in(summary.substr(begin + 1));
        in.imbue(std::locale::classic());
        in >> rate;
    }
    return rate;
}

inline Headers headersOf(const Corvane::Cvtp::CvtpMessageIn& message) {
    Headers headers;
    for (const std::string& name : message.getHeaderNames()) {
        headers.emplace_back(name, message.getHeaders(name));
    }
    return headers;
}

inline std::string bodyOf(Corvane::Cvtp::CvtpMessageIn& message) {
    char* data = nullptr;
    std::size_t length = 0;
    message.getBody(data, length);
    const Bytes owner(data);
    return std::string(data, length);
}

}  // namespace Testing
}  // namespace Corvane
