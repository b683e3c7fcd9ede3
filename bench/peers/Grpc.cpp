// gRPC over unix:, the server with callbacks, which its manual recommends for speed. A stream and one-way messages
// are a call whose client streams.

#include <grpcpp/grpcpp.h>

#include <optional>
#include <stdexcept>

#include "bench.grpc.pb.h"
#include "harness/MessagePeer.h"

namespace Corvane {
namespace Bench {

namespace {

/// One call of Upload, open until its totals are asked for.
class OpenCall {
 public:
    explicit OpenCall(Wire::Bench::Stub& stub) : writer(stub.Upload(&context, &totals)) {}

    void write(const Wire::Body& body) {
        if (!writer->Write(body)) {
            throw std::runtime_error("the stream has broken off");
        }
    }

    Wire::Totals close() {
        writer->WritesDone();
        const grpc::Status status = writer->Finish();
        if (!status.ok()) {
            throw std::runtime_error(status.error_message());
        }
        return totals;
    }

 private:
    grpc::ClientContext context;
    Wire::Totals totals;
    std::unique_ptr<grpc::ClientWriter<Wire::Body>> writer;
};

class GrpcClient : public Client {
 public:
    explicit GrpcClient(const std::string& path) : stub(Wire::Bench::NewStub(connect(path))) {}

    const std::string& request(const std::string& up) override {
        grpc::ClientContext context;
        Wire::Body body;
        body.set_data(up);
        const grpc::Status status = stub->Request(&context, body, &reply);
        if (!status.ok()) {
            throw std::runtime_error(status.error_message());
        }
        return reply.data();
    }

    std::uint64_t upload(std::uint64_t total) override {
        OpenCall upload(*stub);
        Wire::Body body;
        body.set_data(streamPiece());
        for (std::uint64_t sent = 0; sent < total; sent += STREAM_PIECE) {
            upload.write(body);
        }
        return upload.close().bytes();
    }

    void send(const std::string& message) override {
        if (!call) {
            call.emplace(*stub);
        }
        outgoing.set_data(message);
        call->write(outgoing);
    }

    std::uint64_t finish() override {
        if (call) {
            received += call->close().messages();
            call.reset();
        }
        return received;
    }

 private:
    static std::shared_ptr<grpc::Channel> connect(const std::string& path) {
        grpc::ChannelArguments arguments;
        // Channels to the same server would share a connection.
        arguments.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
        return grpc::CreateCustomChannel("unix:" + path, grpc::InsecureChannelCredentials(), arguments);
    }

    std::unique_ptr<Wire::Bench::Stub> stub;
    Wire::Body reply;
    Wire::Body outgoing;
    std::optional<OpenCall> call;
    std::uint64_t received = 0;
};

class UploadReactor : public grpc::ServerReadReactor<Wire::Body> {
 public:
    explicit UploadReactor(Wire::Totals* totals) : totals(totals) { StartRead(&body); }

    void OnReadDone(bool ok) override {
        if (!ok) {
            totals->set_messages(messages);
            totals->set_bytes(bytes);
            Finish(grpc::Status::OK);
            return;
        }
        ++messages;
        bytes += body.data().size();
        StartRead(&body);
    }

    /// The library keeps reactors by pointer and leaves it to them when to go.
    void OnDone() override { delete this; }

 private:
    Wire::Totals* totals;
    Wire::Body body;
    std::uint64_t messages = 0;
    std::uint64_t bytes = 0;
};

class Service : public Wire::Bench::CallbackService {
 public:
    grpc::ServerUnaryReactor* Request(grpc::CallbackServerContext* context, const Wire::Body* up,
                                      Wire::Body* down) override {
        answer(up->data().data(), up->data().size(), *down->mutable_data());
        grpc::ServerUnaryReactor* reactor = context->DefaultReactor();
        reactor->Finish(grpc::Status::OK);
        return reactor;
    }

    grpc::ServerReadReactor<Wire::Body>* Upload(grpc::CallbackServerContext*, Wire::Totals* totals) override {
        return new UploadReactor(totals);
    }
};

}  // namespace

std::unique_ptr<Client> makeClient(const Settings& settings) {
    return std::make_unique<GrpcClient>(settings.address);
}

void serve(const Settings& settings, const std::function<void()>& ready) {
    Service service;
    grpc::ServerBuilder builder;
    builder.AddListeningPort("unix:" + settings.address, grpc::InsecureServerCredentials());
    builder.RegisterService(&service);
    const std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (!server) {
        throw std::runtime_error("the socket could not be created");
    }
    ready();
    server->Wait();
}

}  // namespace Bench
}  // namespace Corvane
