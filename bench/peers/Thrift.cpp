// Thrift over a Unix domain socket: a thread for each connection, the buffered transport, and the binary protocol
// with code generated for just these two. A stream is a row of oneway calls.

#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TThreadedServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TSocket.h>

#include "Bench.h"
#include "harness/MessagePeer.h"

using namespace apache::thrift;

namespace Corvane {
namespace Bench {

namespace {

using Protocol = protocol::TBinaryProtocolT<transport::TBufferedTransport>;

/// The buffer is what one system call may read.
std::shared_ptr<transport::TBufferedTransport> buffered(const std::shared_ptr<transport::TTransport>& transport,
                                                        Workload workload) {
    if (isBulk(workload)) {
        return std::make_shared<transport::TBufferedTransport>(transport, STREAM_PIECE, STREAM_PIECE);
    }
    return std::make_shared<transport::TBufferedTransport>(transport);
}

class BufferedFactory : public transport::TTransportFactory {
 public:
    explicit BufferedFactory(Workload workload) : workload(workload) {}

    std::shared_ptr<transport::TTransport> getTransport(std::shared_ptr<transport::TTransport> transport) override {
        return buffered(transport, workload);
    }

 private:
    const Workload workload;
};

class ThriftClient : public MessageClient {
 public:
    explicit ThriftClient(const Settings& settings)
        : transport(buffered(std::make_shared<transport::TSocket>(settings.address), settings.workload)),
          client(std::make_shared<Protocol>(transport)) {
        transport->open();
    }

    const std::string& request(const std::string& up) override {
        client.request(down, up);
        return down;
    }

 protected:
    void sendOneWay(const std::string& message) override { client.message(message); }

    Totals askTotals() override {
        Wire::Totals totals;
        client.totals(totals);
        return {static_cast<std::uint64_t>(totals.messages), static_cast<std::uint64_t>(totals.bytes)};
    }

 private:
    std::shared_ptr<transport::TBufferedTransport> transport;
    Wire::BenchClientT<Protocol> client;
    std::string down;
};

class Handler : public Wire::BenchIf {
 public:
    void request(std::string& down, const std::string& up) override { answer(up.data(), up.size(), down); }

    void message(const std::string& body) override { tally.add(body.size()); }

    void totals(Wire::Totals& result) override {
        result.messages = static_cast<std::int64_t>(tally.totals().messages);
        result.bytes = static_cast<std::int64_t>(tally.totals().bytes);
    }

 private:
    Tally tally;
};

class Ready : public server::TServerEventHandler {
 public:
    explicit Ready(const std::function<void()>& ready) : ready(ready) {}
    void preServe() override { ready(); }

 private:
    std::function<void()> ready;
};

}  // namespace

std::unique_ptr<Client> makeClient(const Settings& settings) {
    return std::make_unique<ThriftClient>(settings);
}

void serve(const Settings& settings, const std::function<void()>& ready) {
    const auto socket = std::make_shared<transport::TServerSocket>(settings.address);
    // Else each read would ask poll() first.
    socket->setInterruptableChildren(false);
    server::TThreadedServer server(
        std::make_shared<Wire::BenchProcessorT<Protocol>>(std::make_shared<Handler>()), socket,
        std::make_shared<BufferedFactory>(settings.workload),
        std::make_shared<protocol::TBinaryProtocolFactoryT<transport::TBufferedTransport>>());
    server.setServerEventHandler(std::make_shared<Ready>(ready));
    server.serve();
}

}  // namespace Bench
}  // namespace Corvane
