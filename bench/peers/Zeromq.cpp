// ZeroMQ over ipc: requests with REQ and REP, one-way messages with two DEALERs.

#include <zmq.hpp>

#include "harness/MessagePeer.h"

namespace Corvane {
namespace Bench {

namespace {

bool isOneWay(const Settings& settings) {
    return settings.workload == Workload::W4 || settings.workload == Workload::W5;
}

std::string urlOf(const Settings& settings) {
    return "ipc://" + settings.address;
}

/// One for the process, as the manual wants it.
zmq::context_t& context() {
    static zmq::context_t instance = [] {
        zmq::context_t made(1);
        made.set(zmq::ctxopt::max_sockets, 2 * IDLE_CONNECTIONS);
        return made;
    }();
    return instance;
}

zmq::socket_t connected(const Settings& settings, zmq::socket_type type) {
    zmq::socket_t socket(context(), type);
    socket.set(zmq::sockopt::linger, 0);
    socket.connect(urlOf(settings));
    return socket;
}

/// A message of bytes that are not copied if there are many; they must stay until it was sent.
zmq::message_t messageOf(const std::string& data) {
    if (data.size() < STREAM_PIECE) {
        return zmq::message_t(data.data(), data.size());
    }
    return zmq::message_t(const_cast<char*>(data.data()), data.size(), [](void*, void*) {});
}

class RequestClient : public Client {
 public:
    explicit RequestClient(const Settings& settings) : socket(connected(settings, zmq::socket_type::req)) {}

    const std::string& request(const std::string& up) override {
        socket.send(messageOf(up), zmq::send_flags::none);
        static_cast<void>(socket.recv(message));
        down.assign(message.data<char>(), message.size());
        return down;
    }

 private:
    zmq::socket_t socket;
    zmq::message_t message;
    std::string down;
};

class DealerClient : public MessageClient {
 public:
    explicit DealerClient(const Settings& settings) : socket(connected(settings, zmq::socket_type::dealer)) {}

    const std::string& request(const std::string&) override { throw NotOffered("it sends messages only"); }

 protected:
    void sendOneWay(const std::string& message) override { socket.send(messageOf(message), zmq::send_flags::none); }

    Totals askTotals() override {
        socket.send(zmq::message_t(), zmq::send_flags::none);
        zmq::message_t message;
        static_cast<void>(socket.recv(message));
        return decodeTotals(message.data<char>(), message.size());
    }

 private:
    zmq::socket_t socket;
};

void serveRequests(zmq::socket_t& socket) {
    zmq::message_t message;
    std::string down;
    while (socket.recv(message)) {
        answer(message.data<char>(), message.size(), down);
        socket.send(zmq::buffer(down));
    }
}

void serveMessages(zmq::socket_t& socket) {
    Tally tally;
    zmq::message_t message;
    while (socket.recv(message)) {
        if (message.size() > 0) {
            tally.add(message.size());
        } else {
            socket.send(zmq::buffer(encodeTotals(tally.totals())));
        }
    }
}

}  // namespace

std::unique_ptr<Client> makeClient(const Settings& settings) {
    if (isOneWay(settings)) {
        return std::make_unique<DealerClient>(settings);
    }
    return std::make_unique<RequestClient>(settings);
}

void serve(const Settings& settings, const std::function<void()>& ready) {
    zmq::socket_t socket(context(), isOneWay(settings) ? zmq::socket_type::dealer : zmq::socket_type::rep);
    socket.bind(urlOf(settings));
    ready();
    if (isOneWay(settings)) {
        serveMessages(socket);
    } else {
        serveRequests(socket);
    }
}

}  // namespace Bench
}  // namespace Corvane
