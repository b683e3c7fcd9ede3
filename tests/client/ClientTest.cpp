#include "tests/client/ClientTest.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <sstream>

#include "cvtp/internal/RecursiveMutex.h"

namespace Corvane {
namespace Testing {

namespace {

bool isOfTransport(const std::string& text) {
    static const std::array<const char*, 8> BEGINNINGS{
        "DEBUG: CreateFile - ", "DEBUG: Close Handles: ",        "INFO: CvPipe_closePipe ",
        "DEBUG: WriteFile ",    "DEBUG: Waiting for named pipe", "ERROR: Could not open pipe",
        "DEBUG: bindPipe: ",    "DEBUG: Closing server pipe: "};
    return std::any_of(BEGINNINGS.begin(), BEGINNINGS.end(),
                       [&text](const char* beginning) { return text.rfind(beginning, 0) == 0; });
}

/// Replaces what stands in the last brackets of `text`, up to `end`, which must follow; without it nothing.
void maskInBrackets(std::string& text, const std::string& end, const std::string& mask) {
    const std::string::size_type close = text.rfind(end);
    const std::string::size_type open = text.rfind('(', close);
    if (open != std::string::npos && close != std::string::npos) {
        text.replace(open + 1, close - open - 1, mask);
    }
}

/// Numbers the connections anew, from 1, in the order in which `lines` name them; the process counts on from test
/// to test.
void renumberBindings(Lines& lines) {
    const std::string label = "Binding-";
    Lines known;
    for (std::string& line : lines) {
        const std::string::size_type at = line.find(label);
        if (at != std::string::npos) {
            const std::string::size_type begin = at + label.size();
            const std::string::size_type end = std::min(line.find_first_not_of("0123456789", begin), line.size());
            const std::string number = line.substr(begin, end - begin);
            auto place = std::find(known.begin(), known.end(), number);
            if (place == known.end()) {
                place = known.insert(place, number);
            }
            line.replace(begin, end - begin, std::to_string(place - known.begin() + 1));
        }
    }
}

}  // namespace

Lines completeLines(const LogCapture& log, const std::string& thread) {
    static const std::string END = "- Corvane.SOA.Cvtp\n";
    const std::string beforeMessage = " UTC - Thread-" + thread;
    const std::string text = log.log();
    Lines lines;
    std::string::size_type begin = 0;
    for (std::string::size_type end = text.find(END); end != std::string::npos; end = text.find(END, begin)) {
        const std::string line = text.substr(begin, end - begin);
        const std::string::size_type at = line.find(beforeMessage + (thread.empty() ? "" : ": "));
        const std::string::size_type message = line.find(":  - ", at);
        if (at != std::string::npos && message != std::string::npos) {
            lines.push_back(line.substr(0, line.find(' ')) + ": " + line.substr(message + 5));
        }
        begin = end + END.size();
    }
    return lines;
}

std::ptrdiff_t countOf(const LogCapture& log, const std::string& text) {
    const Lines lines = completeLines(log);
    return std::count(lines.begin(), lines.end(), text);
}

Lines ownLines(const LogCapture& log) {
    Lines lines;
    for (std::string& text : completeLines(log, std::to_string(Internal::Cvtp::currentThreadId()))) {
        if (!isOfTransport(text)) {
            maskInBrackets(text, ") from used pipe list", "ADDRESS");
            maskInBrackets(text, " Mbps).", "RATE");
            lines.push_back(text);
        }
    }
    renumberBindings(lines);
    return lines;
}

Lines newLines(const LogCapture& log, std::size_t before) {
    Lines lines = ownLines(log);
    return Lines(lines.begin() + static_cast<std::ptrdiff_t>(std::min(before, lines.size())), lines.end());
}

std::string addressOf(const Io::CvPipe* pipe) {
    std::ostringstream text;
    text << static_cast<const void*>(pipe);
    return text.str();
}

std::string bodyOf(Cvtp::CvtpMessageIn& message) {
    char* data = nullptr;
    std::size_t length = 0;
    message.getBody(data, length);
    const std::unique_ptr<char, decltype(&std::free)> owner(data, &std::free);
    EXPECT_EQ(data[length], '\0');
    return std::string(data, length);
}

std::string post(Cvtp::CvtpClient& client, const std::string& pipeName, const std::string& body) {
    Cvtp::PostRequest request(&client, pipeName, "/r");
    request.setBody(body.data(), body.size());
    const std::unique_ptr<Cvtp::CvtpResponse> response(request.execute());
    return bodyOf(*response);
}

void notify(Cvtp::CvtpClient& client, const std::string& pipeName, const std::string& body) {
    Cvtp::NotifyRequest request(&client, pipeName, "/n");
    request.setBody(body.data(), body.size());
    request.execute();
}

}  // namespace Testing
}  // namespace Corvane
