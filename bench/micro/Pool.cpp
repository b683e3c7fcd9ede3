// Taking a pipe from the pool of a client and giving it back.

#include <benchmark/benchmark.h>

#include <future>
#include <memory>
#include <thread>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpConnectionManager.h"
#include "cvtp/CvtpHandler.h"
#include "cvtp/CvtpServer.h"
#include "micro/Support.h"

namespace {

using namespace Corvane::Cvtp;

class Silent : public CvtpHandler {
 public:
    void doNotify(CvtpServerRequest&) override {}
    void doPost(CvtpServerRequest&, CvtpServerResponse&) override {}
    bool doReady() override {
        ready.set_value();
        return true;
    }

    std::promise<void> ready;
};

/// A server that takes any number of connections.
class RunningServer {
 public:
    RunningServer() : name(Corvane::Bench::freePipeName()), server(name, 1) {
        server.setOption(CvtpServer::MAX_REQUEST_PROCESSORS, 0);
        server.setHandler(&handler);
        thread = std::thread([this] { server.run(); });
        handler.ready.get_future().wait();
    }
    ~RunningServer() {
        server.shutdown();
        thread.join();
    }
    RunningServer(const RunningServer&) = delete;
    RunningServer& operator=(const RunningServer&) = delete;

    const std::string name;

 private:
    Silent handler;
    CvtpServer server;
    std::thread thread;
};

/// One pool for all threads of a benchmark.
struct Pool {
    RunningServer server;
    CvtpClient client;
};
std::unique_ptr<Pool> pool;

void makePool(const benchmark::State&) {
    pool = std::make_unique<Pool>();
    pool->client.getManager();
}

void dropPool(const benchmark::State&) {
    pool.reset();
}

void getAndReturn(benchmark::State& state) {
    CvtpConnectionManager* manager = pool->client.getManager();
    for (auto _ : state) {
        manager->returnPipe(manager->getPipe(pool->server.name, "rw"));
    }
}
BENCHMARK(getAndReturn)->Setup(makePool)->Teardown(dropPool)->Threads(1)->Threads(4)->UseRealTime();

}  // namespace
