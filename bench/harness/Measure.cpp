#include "harness/Measure.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <ostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace Corvane {
namespace Bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int CLIENTS_OF_W2 = 4;

std::int64_t nanosecondsBetween(Clock::time_point from, Clock::time_point to) {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(to - from).count();
}

std::string makeMessage(std::size_t size) {
    return streamPiece().size() >= size ? streamPiece().substr(0, size) : std::string(size, 'x');
}

void checkAnswer(const std::string& up, const std::string& down) {
    if (down.size() != SMALL_SIZE) {
        throw std::runtime_error("the answer has " + std::to_string(down.size()) + " bytes");
    }
    std::size_t same = SMALL_SIZE;
    if (up.size() > SMALL_SIZE) {
        same -= sizeof(std::uint64_t);
        if (decodeNumber(&down[same], sizeof(std::uint64_t)) != up.size()) {
            throw std::runtime_error("the server has not received all");
        }
    }
    if (std::memcmp(up.data(), down.data(), same) != 0) {
        throw std::runtime_error("the answer has other bytes");
    }
}

void checkCount(std::uint64_t expected, std::uint64_t counted) {
    if (counted != expected) {
        throw std::runtime_error("the server has received " + std::to_string(counted) + " of " +
                                 std::to_string(expected));
    }
}

/// One thread's part of a workload: operation() is called again and again, then finish() once.
struct Task {
    std::function<void()> operation;
    std::function<void()> finish = [] {};
};

Task requestTask(const Settings& settings, std::size_t size) {
    const std::shared_ptr<Client> client = makeClient(settings);
    const std::string up = makeMessage(size);
    return {[client, up] { checkAnswer(up, client->request(up)); }};
}

Task uploadTask(const Settings& settings) {
    const std::shared_ptr<Client> client = makeClient(settings);
    return {[client] { checkCount(STREAM_SIZE, client->upload(STREAM_SIZE)); }};
}

Task oneWayTask(const Settings& settings) {
    const std::shared_ptr<Client> client = makeClient(settings);
    const std::string message = makeMessage(SMALL_SIZE);
    const auto sent = std::make_shared<std::uint64_t>(0);
    return {[client, message, sent] {
                client->send(message);
                ++*sent;
            },
            [client, sent] { checkCount(*sent, client->finish()); }};
}

Task connectTask(const Settings& settings) {
    const std::string up = makeMessage(SMALL_SIZE);
    return {[settings, up] { checkAnswer(up, makeClient(settings)->request(up)); }};
}

Task makeTask(const Settings& settings) {
    switch (settings.workload) {
        case Workload::W3:
            return requestTask(settings, LARGE_SIZE);
        case Workload::W4:
            return uploadTask(settings);
        case Workload::W5:
            return oneWayTask(settings);
        case Workload::W6:
            return connectTask(settings);
        default:
            return requestTask(settings, SMALL_SIZE);
    }
}

void repeat(const Task& task, double seconds, Histogram& latencies) {
    const auto begin = Clock::now();
    const auto end = begin + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    auto last = begin;
    do {
        task.operation();
        const auto now = Clock::now();
        latencies.record(static_cast<std::uint64_t>(nanosecondsBetween(last, now)));
        last = now;
    } while (last < end);
    task.finish();
}

void warmUp(const Task& task, double seconds) {
    Histogram ignored;
    repeat(task, std::max(0.05, seconds / 10), ignored);
}

/// The times at one moment.
struct Moment {
    explicit Moment(int serverId)
        : clientCpu(cpuTime(getpid())), serverCpu(cpuTime(serverId)), time(Clock::now()) {}

    std::int64_t clientCpu;
    std::int64_t serverCpu;
    Clock::time_point time;
};

void setTimes(Result& result, const Moment& from, const Moment& to) {
    result.nanoseconds = nanosecondsBetween(from.time, to.time);
    result.clientCpu = to.clientCpu - from.clientCpu;
    result.serverCpu = to.serverCpu - from.serverCpu;
    result.operations = result.latencies.count();
}

/// Where several threads wait for each other. The last to come takes the time, before any of them goes on.
class Meeting {
 public:
    Meeting(int awaited, int serverId) : serverId(serverId), awaited(awaited) {}

    void wait() {
        std::unique_lock<std::mutex> lock(mutex);
        if (--awaited == 0) {
            taken = std::make_unique<Moment>(serverId);
            complete.notify_all();
        }
        complete.wait(lock, [this] { return awaited <= 0; });
    }

    /// After all have come.
    const Moment& moment() const { return *taken; }

 private:
    const int serverId;
    std::mutex mutex;
    std::condition_variable complete;
    int awaited;
    std::unique_ptr<Moment> taken;
};

/// One client in a thread of its own, with a histogram of its own.
class Runner {
 public:
    Runner(const Settings& settings, double seconds, Meeting& begin, Meeting& end)
        : thread([this, settings, seconds, &begin, &end] { run(settings, seconds, begin, end); }) {}

    ~Runner() { thread.join(); }

    Runner(const Runner&) = delete;
    Runner& operator=(const Runner&) = delete;

    /// To be called after the meeting at the end.
    /// @throws what went wrong in the thread.
    const Histogram& result() const {
        if (failure) {
            std::rethrow_exception(failure);
        }
        return latencies;
    }

 private:
    void run(const Settings& settings, double seconds, Meeting& begin, Meeting& end) {
        Task task;
        attempt([&] {
            task = makeTask(settings);
            warmUp(task, seconds);
        });
        begin.wait();
        attempt([&] { repeat(task, seconds, latencies); });
        end.wait();
    }

    void attempt(const std::function<void()>& part) {
        if (failure) {
            return;
        }
        try {
            part();
        } catch (...) {
            failure = std::current_exception();
        }
    }

    Histogram latencies;
    std::exception_ptr failure;
    std::thread thread;
};

Result measureOne(const Settings& settings, double seconds, int serverId) {
    const Task task = makeTask(settings);
    warmUp(task, seconds);
    Result result;
    const Moment from(serverId);
    repeat(task, seconds, result.latencies);
    setTimes(result, from, Moment(serverId));
    return result;
}

Result measureSeveral(const Settings& settings, double seconds, int serverId) {
    Meeting begin(CLIENTS_OF_W2, serverId);
    Meeting end(CLIENTS_OF_W2 + 1, serverId);
    std::vector<std::unique_ptr<Runner>> runners;
    runners.reserve(CLIENTS_OF_W2);
    for (int number = 0; number < CLIENTS_OF_W2; ++number) {
        runners.push_back(std::make_unique<Runner>(settings, seconds, begin, end));
    }
    end.wait();
    Result result;
    for (const auto& runner : runners) {
        result.latencies.add(runner->result());
    }
    setTimes(result, begin.moment(), end.moment());
    return result;
}

Result measureMemory(const Settings& settings, int serverId) {
    const std::string up = makeMessage(SMALL_SIZE);
    std::vector<std::unique_ptr<Client>> clients;
    const auto connect = [&] {
        clients.push_back(makeClient(settings));
        checkAnswer(up, clients.back()->request(up));
    };
    connect();
    Result result;
    result.before = settledMemoryOf(serverId);
    const Moment from(serverId);
    for (int number = 0; number < IDLE_CONNECTIONS; ++number) {
        const auto begin = Clock::now();
        connect();
        result.latencies.record(static_cast<std::uint64_t>(nanosecondsBetween(begin, Clock::now())));
    }
    setTimes(result, from, Moment(serverId));
    result.after = settledMemoryOf(serverId);
    // They must still be there, or it was not their memory that was measured.
    for (const auto& client : clients) {
        checkAnswer(up, client->request(up));
    }
    // Destroying them takes some peers long, and the process ends now.
    for (auto& client : clients) {
        static_cast<void>(client.release());
    }
    return result;
}

}  // namespace

Result measure(const Settings& settings, double seconds, int serverId) {
    switch (settings.workload) {
        case Workload::W2:
            return measureSeveral(settings, seconds, serverId);
        case Workload::W7:
            return measureMemory(settings, serverId);
        default:
            return measureOne(settings, seconds, serverId);
    }
}

void print(const Result& result, std::ostream& out) {
    out << "{\"operations\": " << result.operations << ", \"nanoseconds\": " << result.nanoseconds
        << ", \"client_cpu\": " << result.clientCpu << ", \"server_cpu\": " << result.serverCpu
        << ", \"p50\": " << result.latencies.percentile(0.5) << ", \"p99\": " << result.latencies.percentile(0.99)
        << ", \"p999\": " << result.latencies.percentile(0.999) << ", \"kib_before\": " << result.before.residentKib
        << ", \"kib_after\": " << result.after.residentKib << ", \"threads_before\": " << result.before.threads
        << ", \"threads_after\": " << result.after.threads << "}" << std::endl;
}

}  // namespace Bench
}  // namespace Corvane
