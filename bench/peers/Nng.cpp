// nng over ipc: requests with REQ and REP, whose server has several contexts and
// answers in their callbacks, and one-way messages with
// PAIR.

#include <nng/nng.h>
#include <nng/protocol/pair0/pair.h>
#include <nng/protocol/reqrep0/rep.h>
#include <nng/protocol/reqrep0/req.h>

#include <algorithm>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "harness/MessagePeer.h"

namespace Corvane {
namespace Bench {

namespace {

constexpr int SERVER_CONTEXTS = 4;

void check(int result) {
    if (result != 0) {
        throw std::runtime_error(nng_strerror(result));
    }
}

bool isOneWay(const Settings& settings) {
    return settings.workload == Workload::W4 || settings.workload == Workload::W5;
}

/// How many messages may wait on each side. Without these a sender waits for each to be taken.
void setQueues(nng_socket socket) {
    check(nng_socket_set_int(socket, NNG_OPT_SENDBUF, 128));
    check(nng_socket_set_int(socket, NNG_OPT_RECVBUF, 128));
}

std::string urlOf(const Settings& settings) {
    return "ipc://" + settings.address;
}

class Socket {
 public:
    explicit Socket(int (*open)(nng_socket*)) {
        check(open(&socket));
        // Without limit.
        check(nng_socket_set_size(socket, NNG_OPT_RECVMAXSZ, 0));
    }
    ~Socket() { nng_close(socket); }
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    nng_socket get() const { return socket; }

 private:
    nng_socket socket{};
};

/// Sends a copy of the bytes in a message, which the library then takes over without another copy.
void sendCopy(nng_socket socket, const std::string& data) {
    nng_msg* message = nullptr;
    check(nng_msg_alloc(&message, data.size()));
    std::copy(data.begin(), data.end(), static_cast<char*>(nng_msg_body(message)));
    const int result = nng_sendmsg(socket, message, 0);
    if (result != 0) {
        nng_msg_free(message);
        check(result);
    }
}

const std::string& receiveInto(nng_socket socket, std::string& body) {
    nng_msg* message = nullptr;
    check(nng_recvmsg(socket, &message, 0));
    body.assign(static_cast<const char*>(nng_msg_body(message)), nng_msg_len(message));
    nng_msg_free(message);
    return body;
}

class RequestClient : public Client {
 public:
    explicit RequestClient(const Settings& settings) : socket(nng_req0_open) {
        check(nng_dial(socket.get(), urlOf(settings).c_str(), nullptr, 0));
    }

    const std::string& request(const std::string& up) override {
        sendCopy(socket.get(), up);
        return receiveInto(socket.get(), down);
    }

 private:
    Socket socket;
    std::string down;
};

class PairClient : public MessageClient {
 public:
    explicit PairClient(const Settings& settings) : socket(nng_pair0_open) {
        setQueues(socket.get());
        check(nng_dial(socket.get(), urlOf(settings).c_str(), nullptr, 0));
    }

    const std::string& request(const std::string&) override { throw NotOffered("it sends messages only"); }

 protected:
    void sendOneWay(const std::string& message) override { sendCopy(socket.get(), message); }

    Totals askTotals() override {
        sendCopy(socket.get(), std::string());
        std::string body;
        receiveInto(socket.get(), body);
        return decodeTotals(body.data(), body.size());
    }

 private:
    Socket socket;
};

/// One context of the server: receives and answers one request after another, in the library's own threads.
class Answerer {
 public:
    explicit Answerer(nng_socket socket) {
        check(nng_aio_alloc(
            &operation, [](void* self) { static_cast<Answerer*>(self)->onDone(); }, this));
        check(nng_ctx_open(&context, socket));
        nng_ctx_recv(context, operation);
    }
    ~Answerer() {
        nng_aio_stop(operation);
        nng_ctx_close(context);
        nng_aio_free(operation);
    }
    Answerer(const Answerer&) = delete;
    Answerer& operator=(const Answerer&) = delete;

 private:
    void onDone() {
        if (nng_aio_result(operation) != 0) {
            return;
        }
        if (answering) {
            answering = false;
            nng_ctx_recv(context, operation);
            return;
        }
        nng_msg* message = nng_aio_get_msg(operation);
        answer(static_cast<const char*>(nng_msg_body(message)), nng_msg_len(message), down);
        nng_msg_clear(message);
        if (nng_msg_append(message, down.data(), down.size()) != 0) {
            nng_msg_free(message);
            return;
        }
        answering = true;
        nng_aio_set_msg(operation, message);
        nng_ctx_send(context, operation);
    }

    nng_ctx context{};
    nng_aio* operation = nullptr;
    bool answering = false;
    std::string down;
};

void serveMessages(nng_socket socket) {
    Tally tally;
    while (true) {
        nng_msg* message = nullptr;
        check(nng_recvmsg(socket, &message, 0));
        const std::size_t length = nng_msg_len(message);
        nng_msg_free(message);
        if (length > 0) {
            tally.add(length);
        } else {
            sendCopy(socket, encodeTotals(tally.totals()));
        }
    }
}

}  // namespace

std::unique_ptr<Client> makeClient(const Settings& settings) {
    if (isOneWay(settings)) {
        return std::make_unique<PairClient>(settings);
    }
    return std::make_unique<RequestClient>(settings);
}

void serve(const Settings& settings, const std::function<void()>& ready) {
    const Socket socket(isOneWay(settings) ? nng_pair0_open : nng_rep0_open);
    if (isOneWay(settings)) {
        setQueues(socket.get());
    }
    check(nng_listen(socket.get(), urlOf(settings).c_str(), nullptr, 0));
    if (isOneWay(settings)) {
        ready();
        serveMessages(socket.get());
        return;
    }
    std::vector<std::unique_ptr<Answerer>> answerers;
    for (int number = 0; number < SERVER_CONTEXTS; ++number) {
        answerers.push_back(std::make_unique<Answerer>(socket.get()));
    }
    ready();
    std::promise<void>().get_future().wait();
}

}  // namespace Bench
}  // namespace Corvane
