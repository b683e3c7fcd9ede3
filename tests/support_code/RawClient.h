#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

#include "io/CvPipe.h"
#include "io/Exceptions.h"

namespace Corvane {
namespace Testing {

/// A client that sends bytes and looks at bytes.
class RawClient {
 public:
    explicit RawClient(const std::string& pipeName, bool readable = true) {
        pipe.setConnectTimeout(LIMIT_MS);
        pipe.connect(pipeName, readable, true);
    }

    void send(const std::string& bytes) { pipe.writePipe(bytes.data(), 0, static_cast<int>(bytes.size())); }

    /// Exactly this many bytes, or fewer if the server closes the pipe before.
    std::string receive(std::size_t size) {
        while (held.size() < size && receiveMore()) {
        }
        const std::string result = held.substr(0, size);
        held.erase(0, result.size());
        return result;
    }

    /// Everything until the server closes the pipe.
    std::string receiveToEnd() {
        while (receiveMore()) {
        }
        return std::exchange(held, std::string());
    }

    /// To the end of `mark`, which must come.
    std::string receiveThrough(const std::string& mark) {
        while (held.find(mark) == std::string::npos) {
            if (!receiveMore()) {
                ADD_FAILURE() << "the pipe was closed before \"" << mark << "\" came, after: " << held;
                return receive(held.size());
            }
        }
        return receive(held.find(mark) + mark.size());
    }

    /// The body of a response by length.
    std::string receiveBody() {
        const std::string head = receiveThrough("\r\n\r\n");
        const std::string header = "\r\nContent-Length: ";
        const std::string::size_type at = head.find(header);
        if (at == std::string::npos) {
            ADD_FAILURE() << "no length: " << head;
            return std::string();
        }
        return receive(std::stoul(head.substr(at + header.size())));
    }

    /// Sends a request with a body by length and gives the body of the response.
    std::string post(const std::string& body, const std::string& resource = "/r") {
        send(postBytes(body, resource));
        return receiveBody();
    }

    static std::string postBytes(const std::string& body, const std::string& resource = "/r") {
        return requestBytes("POST", body, resource);
    }

    static std::string notifyBytes(const std::string& body, const std::string& resource = "/r") {
        return requestBytes("NOTIFY", body, resource);
    }

    static std::string requestBytes(const std::string& method, const std::string& body,
                                    const std::string& resource) {
        return method + " " + resource + " CVTP/1.0\r\nContent-Length: " + std::to_string(body.size()) +
               "\r\n\r\n" + body;
    }

    void close() { pipe.close(); }

    Io::CvPipe pipe;

 private:
    static constexpr int LIMIT_MS = 60000;

    bool receiveMore() {
        char buffer[4096];
        const int count = pipe.readPipe(buffer, 0, sizeof buffer, LIMIT_MS);
        held.append(buffer, static_cast<std::size_t>(std::max(count, 0)));
        return count > 0;
    }

    std::string held;
};

}  // namespace Testing
}  // namespace Corvane
