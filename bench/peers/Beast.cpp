// Boost.Beast over a local stream socket: HTTP with blocking calls, a thread for each connection. HTTP has no
// one-way messages; these are messages of a WebSocket.

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <limits>
#include <thread>
#include <vector>

#include "harness/MessagePeer.h"

namespace Corvane {
namespace Bench {

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace websocket = boost::beast::websocket;
using Socket = asio::local::stream_protocol::socket;
using Endpoint = asio::local::stream_protocol::endpoint;

constexpr int HTTP_1_1 = 11;
const char* const HOST = "localhost";

Socket connected(asio::io_context& context, const std::string& path) {
    Socket socket(context);
    socket.connect(Endpoint(path));
    return socket;
}

/// The buffer's capacity is what one system call may read.
beast::flat_buffer makeBuffer(Workload workload) {
    beast::flat_buffer buffer;
    if (isBulk(workload)) {
        buffer.reserve(STREAM_PIECE);
    }
    return buffer;
}

class HttpClient : public Client {
 public:
    explicit HttpClient(const std::string& path) : socket(connected(context, path)) {}

    const std::string& request(const std::string& up) override {
        http::request<http::span_body<const char>> request(http::verb::post, "/request", HTTP_1_1);
        request.set(http::field::host, HOST);
        request.body() = http::span_body<const char>::value_type(up.data(), up.size());
        request.prepare_payload();
        http::write(socket, request);
        return receive();
    }

    std::uint64_t upload(std::uint64_t total) override {
        http::request<http::empty_body> request(http::verb::post, "/stream", HTTP_1_1);
        request.set(http::field::host, HOST);
        request.chunked(true);
        http::request_serializer<http::empty_body> serializer(request);
        http::write_header(socket, serializer);
        for (std::uint64_t sent = 0; sent < total; sent += STREAM_PIECE) {
            asio::write(socket, http::make_chunk(asio::buffer(streamPiece())));
        }
        asio::write(socket, http::make_chunk_last());
        receive();
        return decodeNumber(response.body().data(), response.body().size());
    }

 private:
    const std::string& receive() {
        response = {};
        http::read(socket, buffer, response);
        return response.body();
    }

    asio::io_context context{1};
    Socket socket;
    beast::flat_buffer buffer;
    http::response<http::string_body> response;
};

class WebSocketClient : public MessageClient {
 public:
    explicit WebSocketClient(const std::string& path) : stream(connected(context, path)) {
        stream.handshake(HOST, "/");
        stream.binary(true);
    }

    const std::string& request(const std::string&) override { throw NotOffered("it sends messages only"); }

 protected:
    void sendOneWay(const std::string& message) override { stream.write(asio::buffer(message)); }

    Totals askTotals() override {
        stream.write(asio::buffer("", 0));
        stream.read(buffer);
        const Totals totals = decodeTotals(static_cast<const char*>(buffer.data().data()), buffer.size());
        buffer.clear();
        return totals;
    }

 private:
    asio::io_context context{1};
    websocket::stream<Socket> stream;
    beast::flat_buffer buffer;
};

void send(Socket& socket, std::string&& body) {
    http::response<http::string_body> response(http::status::ok, HTTP_1_1, std::move(body));
    response.prepare_payload();
    http::write(socket, response);
}

void serveRequests(Socket& socket, Workload workload) {
    beast::flat_buffer buffer = makeBuffer(workload);
    while (true) {
        http::request_parser<http::string_body> parser;
        parser.body_limit(std::numeric_limits<std::uint64_t>::max());
        http::read(socket, buffer, parser);
        send(socket, answer(parser.get().body()));
    }
}

void serveStreams(Socket& socket) {
    beast::flat_buffer buffer = makeBuffer(Workload::W4);
    std::vector<char> piece(STREAM_PIECE);
    while (true) {
        http::request_parser<http::buffer_body> parser;
        parser.body_limit(std::numeric_limits<std::uint64_t>::max());
        http::read_header(socket, buffer, parser);
        std::uint64_t total = 0;
        while (!parser.is_done()) {
            parser.get().body().data = piece.data();
            parser.get().body().size = piece.size();
            beast::error_code error;
            http::read(socket, buffer, parser, error);
            if (error && error != http::error::need_buffer) {
                throw beast::system_error(error);
            }
            total += piece.size() - parser.get().body().size;
        }
        send(socket, encodeNumber(total));
    }
}

void serveMessages(Socket socket) {
    websocket::stream<Socket> stream(std::move(socket));
    stream.accept();
    stream.binary(true);
    beast::flat_buffer buffer;
    Tally tally;
    while (true) {
        stream.read(buffer);
        if (buffer.size() > 0) {
            tally.add(buffer.size());
        } else {
            stream.write(asio::buffer(encodeTotals(tally.totals())));
        }
        buffer.clear();
    }
}

void serveConnection(Socket socket, Workload workload) {
    try {
        if (workload == Workload::W5) {
            serveMessages(std::move(socket));
        } else if (workload == Workload::W4) {
            serveStreams(socket);
        } else {
            serveRequests(socket, workload);
        }
    } catch (const beast::system_error&) {
        // The client has closed the connection.
    }
}

}  // namespace

std::unique_ptr<Client> makeClient(const Settings& settings) {
    if (settings.workload == Workload::W5) {
        return std::make_unique<WebSocketClient>(settings.address);
    }
    return std::make_unique<HttpClient>(settings.address);
}

void serve(const Settings& settings, const std::function<void()>& ready) {
    asio::io_context context(1);
    asio::local::stream_protocol::acceptor acceptor(context, Endpoint(settings.address));
    ready();
    while (true) {
        std::thread(serveConnection, acceptor.accept(), settings.workload).detach();
    }
}

}  // namespace Bench
}  // namespace Corvane
