// sd-bus from peer to peer, without a daemon: a Unix domain socket, a thread for each connection. A stream is a row
// of calls that want no reply.

#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-id128.h>

#include <cerrno>
#include <cstring>
#include <system_error>
#include <thread>

#include "harness/MessagePeer.h"

namespace Corvane {
namespace Bench {

namespace {

const char* const PATH = "/bench";
const char* const INTERFACE = "corvane.Bench";

int check(int result) {
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), "sd-bus");
    }
    return result;
}

struct CloseBus {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, CloseBus>;

struct FreeMessage {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, FreeMessage>;

Bus makeBus() {
    sd_bus* bus = nullptr;
    check(sd_bus_new(&bus));
    return Bus(bus);
}

class SdBusClient : public MessageClient {
 public:
    explicit SdBusClient(const std::string& path) : bus(makeBus()) {
        check(sd_bus_set_address(bus.get(), ("unix:path=" + path).c_str()));
        check(sd_bus_start(bus.get()));
    }

    const std::string& request(const std::string& up) override {
        call("Request", up);
        return down;
    }

 protected:
    void sendOneWay(const std::string& message) override {
        const Message call = makeCall("Message", message);
        check(sd_bus_message_set_expect_reply(call.get(), 0));
        check(sd_bus_send(bus.get(), call.get(), nullptr));
        // What the socket did not take would only heap up here.
        std::uint64_t queued = 0;
        check(sd_bus_get_n_queued_write(bus.get(), &queued));
        if (queued > 0) {
            check(sd_bus_flush(bus.get()));
        }
    }

    Totals askTotals() override {
        call("Totals", std::string());
        return decodeTotals(down.data(), down.size());
    }

 private:
    Message makeCall(const char* method, const std::string& body) {
        sd_bus_message* made = nullptr;
        check(sd_bus_message_new_method_call(bus.get(), &made, nullptr, PATH, INTERFACE, method));
        Message message(made);
        check(sd_bus_message_append_array(made, 'y', body.data(), body.size()));
        return message;
    }

    void call(const char* method, const std::string& body) {
        sd_bus_message* received = nullptr;
        check(sd_bus_call(bus.get(), makeCall(method, body).get(), 0, nullptr, &received));
        const Message reply(received);
        const void* data = nullptr;
        std::size_t length = 0;
        check(sd_bus_message_read_array(received, 'y', &data, &length));
        down.assign(static_cast<const char*>(data), length);
    }

    Bus bus;
    std::string down;
};

Tally tally;

int reply(sd_bus_message* message, const std::string& body) {
    sd_bus_message* made = nullptr;
    check(sd_bus_message_new_method_return(message, &made));
    const Message answer(made);
    check(sd_bus_message_append_array(made, 'y', body.data(), body.size()));
    return sd_bus_send(nullptr, made, nullptr);
}

int onRequest(sd_bus_message* message, void*, sd_bus_error*) {
    const void* data = nullptr;
    std::size_t length = 0;
    check(sd_bus_message_read_array(message, 'y', &data, &length));
    std::string down;
    answer(static_cast<const char*>(data), length, down);
    return reply(message, down);
}

int onMessage(sd_bus_message* message, void*, sd_bus_error*) {
    const void* data = nullptr;
    std::size_t length = 0;
    check(sd_bus_message_read_array(message, 'y', &data, &length));
    tally.add(length);
    return 1;
}

int onTotals(sd_bus_message* message, void*, sd_bus_error*) {
    return reply(message, encodeTotals(tally.totals()));
}

const sd_bus_vtable METHODS[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Request", "ay", "ay", onRequest, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Message", "ay", "", onMessage, SD_BUS_VTABLE_UNPRIVILEGED | SD_BUS_VTABLE_METHOD_NO_REPLY),
    SD_BUS_METHOD("Totals", "ay", "ay", onTotals, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

void serveConnection(int descriptor) {
    try {
        const Bus bus = makeBus();
        check(sd_bus_set_fd(bus.get(), descriptor, descriptor));
        sd_id128_t id{};
        check(sd_id128_randomize(&id));
        check(sd_bus_set_server(bus.get(), 1, id));
        check(sd_bus_add_object_vtable(bus.get(), nullptr, PATH, INTERFACE, METHODS, nullptr));
        check(sd_bus_start(bus.get()));
        while (true) {
            if (check(sd_bus_process(bus.get(), nullptr)) == 0) {
                check(sd_bus_wait(bus.get(), UINT64_MAX));
            }
        }
    } catch (const std::system_error&) {
        // The client has closed the connection.
    }
}

}  // namespace

std::unique_ptr<Client> makeClient(const Settings& settings) {
    return std::make_unique<SdBusClient>(settings.address);
}

void serve(const Settings& settings, const std::function<void()>& ready) {
    const int listener = check(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    settings.address.copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener, SOMAXCONN) != 0) {
        check(-errno);
    }
    ready();
    while (true) {
        const int descriptor = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (descriptor < 0) {
            check(-errno);
        }
        std::thread(serveConnection, descriptor).detach();
    }
}

}  // namespace Bench
}  // namespace Corvane
