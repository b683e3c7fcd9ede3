// cpp-httplib over a Unix domain socket, with connections that are kept.

#include <httplib.h>
#include <sys/socket.h>

#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "harness/Peer.h"

namespace Corvane {
namespace Bench {

namespace {

const char* const TYPE = "application/octet-stream";
/// More than there are connections in most workloads, each of which keeps a thread for as long as it is open.
constexpr std::size_t THREADS = 8;
constexpr time_t LONG_SECONDS = 600;

class HttplibClient : public Client {
 public:
    explicit HttplibClient(const std::string& path) : client(path, 80) {
        client.set_address_family(AF_UNIX);
        client.set_keep_alive(true);
    }

    const std::string& request(const std::string& up) override {
        receive(client.Post("/request", up.data(), up.size(), TYPE));
        return down;
    }

    std::uint64_t upload(std::uint64_t total) override {
        std::uint64_t sent = 0;
        receive(client.Post(
            "/stream",
            [&](std::size_t, httplib::DataSink& sink) {
                sink.write(streamPiece().data(), STREAM_PIECE);
                sent += STREAM_PIECE;
                if (sent >= total) {
                    sink.done();
                }
                return true;
            },
            TYPE));
        return decodeNumber(down.data(), down.size());
    }

 private:
    void receive(httplib::Result&& result) {
        if (!result || result->status != 200) {
            throw std::runtime_error(result ? "the status is " + std::to_string(result->status)
                                            : httplib::to_string(result.error()));
        }
        down = std::move(result->body);
    }

    httplib::Client client;
    std::string down;
};

/// Takes any number of connections, and begins threads only as they come.
class ThreadPerConnection : public httplib::TaskQueue {
 public:
    void enqueue(std::function<void()> serve) override { std::thread(std::move(serve)).detach(); }
    void shutdown() override {}
};

httplib::TaskQueue* makeQueue(Workload workload) {
    if (workload == Workload::W7) {
        return new ThreadPerConnection;
    }
    return new httplib::ThreadPool(THREADS);
}

}  // namespace

std::unique_ptr<Client> makeClient(const Settings& settings) {
    return std::make_unique<HttplibClient>(settings.address);
}

void serve(const Settings& settings, const std::function<void()>& ready) {
    httplib::Server server;
    // The server owns what it gets by this pointer.
    server.new_task_queue = [&settings] { return makeQueue(settings.workload); };
    server.set_address_family(AF_UNIX);
    server.set_keep_alive_max_count(std::numeric_limits<std::size_t>::max());
    server.set_keep_alive_timeout(LONG_SECONDS);
    server.set_payload_max_length(std::numeric_limits<std::size_t>::max());
    server.Post("/request", [](const httplib::Request& request, httplib::Response& response) {
        response.set_content(answer(request.body), TYPE);
    });
    server.Post("/stream",
                [](const httplib::Request&, httplib::Response& response, const httplib::ContentReader& read) {
                    std::uint64_t total = 0;
                    read([&](const char*, std::size_t length) {
                        total += length;
                        return true;
                    });
                    response.set_content(encodeNumber(total), TYPE);
                });
    if (!server.bind_to_port(settings.address, 80)) {
        throw std::runtime_error("the socket could not be created");
    }
    ready();
    server.listen_after_bind();
}

}  // namespace Bench
}  // namespace Corvane
