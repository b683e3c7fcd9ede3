// This library, through its public headers and with its defaults.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <istream>
#include <memory>
#include <stdexcept>
#include <streambuf>
#include <string>
#include <vector>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpHandler.h"
#include "cvtp/CvtpResponse.h"
#include "cvtp/CvtpServer.h"
#include "cvtp/CvtpServerRequest.h"
#include "cvtp/CvtpServerResponse.h"
#include "cvtp/NotifyRequest.h"
#include "cvtp/PostRequest.h"
#include "harness/Peer.h"
#include "io/Exceptions.h"

using namespace Corvane::Cvtp;

namespace Corvane {
namespace Bench {

namespace {

const std::string RESOURCE = "/bench";
const std::string STREAM_RESOURCE = "/stream";
const std::string COUNT_RESOURCE = "/count";

/// The pipe lies in the folder that CVTP_PIPE_DIR names.
std::string pipeNameOf(const Settings& settings) {
    const std::string folder = settings.address.substr(0, settings.address.rfind('/'));
    setenv("CVTP_PIPE_DIR", folder.c_str(), 1);
    return settings.address.substr(folder.size() + 1);
}

/// CVTP_BENCH_BUFFER_SIZE takes the place of the default of BUFFER_SIZE on both sides.
template <class Options, class Option>
void setBufferSize(Options& options, Option option) {
    if (const char* size = std::getenv("CVTP_BENCH_BUFFER_SIZE")) {
        options.setOption(option, std::atoi(size));
    }
}

std::shared_ptr<CvtpClient> newClient() {
    auto client = std::make_shared<CvtpClient>();
    setBufferSize(*client, CvtpClient::BUFFER_SIZE);
    client->getManager();
    return client;
}

/// Each connection has a client of its own, and so a pool, unless CVTP_BENCH_SHARED_CLIENT is set.
std::shared_ptr<CvtpClient> clientOfConnection() {
    if (std::getenv("CVTP_BENCH_SHARED_CLIENT") == nullptr) {
        return newClient();
    }
    static const std::shared_ptr<CvtpClient> shared = newClient();
    return shared;
}

/// Gives the same piece again and again, without copying it.
class PiecesBuffer : public std::streambuf {
 public:
    explicit PiecesBuffer(std::uint64_t total) : left(total) {}

 protected:
    int_type underflow() override {
        if (left == 0) {
            return traits_type::eof();
        }
        const std::size_t part = static_cast<std::size_t>(std::min<std::uint64_t>(left, STREAM_PIECE));
        left -= part;
        // Nothing writes through a get area.
        char* piece = const_cast<char*>(streamPiece().data());
        setg(piece, piece, piece + part);
        return traits_type::to_int_type(*piece);
    }

 private:
    std::uint64_t left;
};

class CvtpPeerClient : public Client {
 public:
    explicit CvtpPeerClient(const Settings& settings)
        : pipeName(pipeNameOf(settings)), client(clientOfConnection()) {}

    const std::string& request(const std::string& up) override {
        PostRequest request(client.get(), pipeName, RESOURCE);
        request.setBody(up.data(), up.size());
        return receive(request);
    }

    std::uint64_t upload(std::uint64_t total) override {
        PiecesBuffer pieces(total);
        std::istream body(&pieces);
        PostRequest request(client.get(), pipeName, STREAM_RESOURCE);
        request.setBodyStream(&body);
        receive(request);
        return decodeNumber(down.data(), down.size());
    }

    void send(const std::string& message) override {
        NotifyRequest request(client.get(), pipeName, RESOURCE);
        request.setBody(message.data(), message.size());
        request.execute();
        ++sent;
    }

    /// What is answered goes through a pipe of its own, so the answer may overtake the last messages.
    std::uint64_t finish() override {
        const auto latest = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        std::uint64_t received = count();
        while (received < sent && std::chrono::steady_clock::now() < latest) {
            received = count();
        }
        return received;
    }

 private:
    std::uint64_t count() {
        PostRequest request(client.get(), pipeName, COUNT_RESOURCE);
        request.setBody("", 0);
        receive(request);
        return decodeNumber(down.data(), down.size());
    }

    const std::string& receive(PostRequest& request) {
        const std::unique_ptr<CvtpResponse> response(request.execute());
        if (response->getStatusCode() != CvtpMessage::STATUS_OK) {
            throw std::runtime_error("the status is " + std::to_string(response->getStatusCode()));
        }
        char* data = nullptr;
        std::size_t length = 0;
        response->getBody(data, length);
        down.assign(data, length);
        std::free(data);
        return down;
    }

    const std::string pipeName;
    const std::shared_ptr<CvtpClient> client;
    std::string down;
    std::uint64_t sent = 0;
};

class Handler : public CvtpHandler {
 public:
    explicit Handler(const std::function<void()>& ready) : ready(ready) {}

    bool doReady() override {
        ready();
        return true;
    }

    void doNotify(CvtpServerRequest& request) override {
        std::string ignored;
        takeBody(request, ignored);
        ++notified;
    }

    void doPost(CvtpServerRequest& request, CvtpServerResponse& response) override {
        std::string down;
        const std::string resource = request.getResource();
        if (resource == STREAM_RESOURCE) {
            down = encodeNumber(countBody(request));
        } else if (resource == COUNT_RESOURCE) {
            down = encodeNumber(notified);
        } else {
            takeBody(request, down);
        }
        response.setStatusCode(CvtpMessage::STATUS_OK);
        response.setBody(down.data(), down.size());
        response.send();
    }

 private:
    static void takeBody(CvtpServerRequest& request, std::string& down) {
        char* data = nullptr;
        std::size_t length = 0;
        request.getBody(data, length);
        answer(data, length, down);
        std::free(data);
    }

    static std::uint64_t countBody(CvtpServerRequest& request) {
        std::vector<char> piece(STREAM_PIECE);
        std::istream& body = *request.getBodyStream();
        std::uint64_t total = 0;
        while (body.read(piece.data(), static_cast<std::streamsize>(piece.size())) || body.gcount() > 0) {
            total += static_cast<std::uint64_t>(body.gcount());
        }
        return total;
    }

    std::function<void()> ready;
    std::atomic<std::uint64_t> notified{0};
};

}  // namespace

std::unique_ptr<Client> makeClient(const Settings& settings) try {
    return std::make_unique<CvtpPeerClient>(settings);
} catch (Io::CvPipeException& error) {
    throw std::runtime_error(error.getMessage());
}

void serve(const Settings& settings, const std::function<void()>& ready) {
    Handler handler(ready);
    CvtpServer server(pipeNameOf(settings), 1);
    if (!server.isBound()) {
        throw std::runtime_error("the pipe could not be created");
    }
    // As many connections as come.
    server.setOption(CvtpServer::MAX_REQUEST_PROCESSORS, 0);
    setBufferSize(server, CvtpServer::BUFFER_SIZE);
    server.setHandler(&handler);
    server.run();
}

}  // namespace Bench
}  // namespace Corvane
