#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdlib>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "io/CvPipe.h"
#include "io/Exceptions.h"
#include "io/ServerCvPipe.h"

namespace Corvane {
namespace Testing {

/// Something that one thread waits for and another one tells. It stays told.
class Signal {
 public:
    void set() {
        const std::lock_guard<std::mutex> lock(mutex);
        told = true;
        condition.notify_all();
    }

    /// False, and a failure of the test, when it does not come within a time that is long for any test.
    bool wait() {
        std::unique_lock<std::mutex> lock(mutex);
        const bool came = condition.wait_for(lock, std::chrono::seconds(30), [this] { return told; });
        EXPECT_TRUE(came) << "waited in vain";
        return came;
    }

    bool isSet() {
        const std::lock_guard<std::mutex> lock(mutex);
        return told;
    }

 private:
    std::mutex mutex;
    std::condition_variable condition;
    bool told = false;
};

/// The server's end of one connection, as its script sees it: bytes, and nothing that knows of messages but the
/// reading of a request to its end.
class ScriptedConnection {
 public:
    /// @param record is called with each request that was read.
    ScriptedConnection(Io::CvPipe& pipe, std::function<void(const std::string&)> record)
        : pipe(pipe), record(std::move(record)) {}

    /// Up to and with `end`; less when the client closes before.
    std::string readUntil(const std::string& end) {
        std::string::size_type at = ahead.find(end);
        while (at == std::string::npos && fill()) {
            at = ahead.find(end);
        }
        return take(at == std::string::npos ? ahead.size() : at + end.size());
    }

    /// Up to and with the empty line behind a head.
    std::string readHead() { return readUntil("\r\n\r\n"); }

    /// Exactly `length` bytes; less when the client closes before.
    std::string read(std::size_t length) {
        while (ahead.size() < length && fill()) {
        }
        return take(std::min(length, ahead.size()));
    }

    /// All that comes until the client closes.
    std::string readToEnd() {
        while (fill()) {
        }
        return take(ahead.size());
    }

    /// A whole request, byte for byte, which the server keeps; "" when the client has closed.
    std::string readRequest() {
        std::string request = readHead();
        const std::string length = "\r\nContent-Length: ";
        const std::string::size_type at = request.find(length);
        if (at != std::string::npos) {
            request += read(static_cast<std::size_t>(std::atoi(request.c_str() + at + length.size())));
        } else if (request.find("\r\nTransfer-Encoding: chunked\r\n") != std::string::npos) {
            request += readChunks();
        }
        if (!request.empty()) {
            record(request);
        }
        return request;
    }

    /// True when nothing comes for so long.
    bool isSilent(int milliseconds) {
        char byte = 0;
        try {
            const int count = pipe.readPipe(&byte, 0, 1, milliseconds);
            ahead.append(&byte, count > 0 ? 1 : 0);
            return false;
        } catch (const Io::TimeoutException&) {
            return true;
        }
    }

    void write(const std::string& bytes) { pipe.writePipe(bytes.data(), 0, static_cast<int>(bytes.size())); }

    /// Answers each request that wants it, with the same bytes, until the client closes.
    void answerAll(const std::string& answer) {
        for (std::string request = readRequest(); !request.empty(); request = readRequest()) {
            // The client does not wait for the answer to a NOTIFY; it may close before one is written.
            if (request.rfind("NOTIFY ", 0) != 0) {
                write(answer);
            }
        }
    }

 private:
    static constexpr int READ_TIMEOUT_MS = 30000;

    bool fill() {
        char bytes[16384];
        const int count = pipe.readPipe(bytes, 0, sizeof bytes, READ_TIMEOUT_MS);
        ahead.append(bytes, count > 0 ? static_cast<std::size_t>(count) : 0);
        return count > 0;
    }

    std::string take(std::size_t length) {
        std::string taken = ahead.substr(0, length);
        ahead.erase(0, length);
        return taken;
    }

    std::string readChunks() {
        std::string chunks;
        for (;;) {
            const std::string line = readUntil("\r\n");
            const std::size_t size = std::strtoul(line.c_str(), nullptr, 16);
            chunks += line + read(size + 2);
            if (size == 0) {
                return chunks;
            }
        }
    }

    Io::CvPipe& pipe;
    std::function<void(const std::string&)> record;
    std::string ahead;
};

/// A server that does what its scripts say: the first connection runs the first script, and so on, each in a thread
/// of its own. A connection is closed when its script returns.
class ScriptedServer {
 public:
    using Script = std::function<void(ScriptedConnection&)>;

    /// What follows the last script.
    enum class Then {
        /// The name is given back as soon as the last script has its connection; nobody can connect any more.
        STOP,
        /// All further connections run the last script, too.
        REPEAT
    };

    ScriptedServer(const std::string& name, std::vector<Script> scripts, Then then = Then::STOP)
        : listener(name, true, true), scripts(std::move(scripts)), then(then), accepting([this] { accept(); }) {}

    /// Closes what is still open. A script that waits for something else than its client must have been told.
    ~ScriptedServer() {
        listener.close();
        accepting.join();
        for (Connection& connection : connections) {
            connection.pipe.close();
            if (connection.thread.joinable()) {
                connection.thread.join();
            }
        }
    }
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    /// Waits until the script of a connection, counted from 0, has returned and its connection is closed.
    bool waitForEnd(std::size_t number) {
        std::unique_lock<std::mutex> lock(mutex);
        const auto hasEnded = [this, number] {
            return connections.size() > number && connections[number].hasEnded;
        };
        const bool ended = changed.wait_for(lock, std::chrono::seconds(30), hasEnded);
        EXPECT_TRUE(ended) << "connection " << number << " did not end";
        return ended;
    }

    /// The requests that scripts have read with readRequest() so far.
    std::vector<std::string> requests() {
        const std::lock_guard<std::mutex> lock(mutex);
        return received;
    }

    /// Waits until so many requests have been read.
    bool waitForRequests(std::size_t count) {
        std::unique_lock<std::mutex> lock(mutex);
        const bool came =
            changed.wait_for(lock, std::chrono::seconds(30), [this, count] { return received.size() >= count; });
        EXPECT_EQ(received.size(), count);
        return came;
    }

    /// Those that were accepted, and the one that is waited for, if any.
    std::size_t connectionCount() {
        const std::lock_guard<std::mutex> lock(mutex);
        return connections.size();
    }

 private:
    struct Connection {
        Io::CvPipe pipe;
        std::thread thread;
        bool hasEnded = false;
    };

    void accept() {
        try {
            for (std::size_t i = 0; then == Then::REPEAT || i < scripts.size(); ++i) {
                Connection& connection = addConnection();
                if (!acceptInto(connection)) {
                    continue;
                }
                const std::size_t number = std::min(i, scripts.size() - 1);
                connection.thread = std::thread([this, number, &connection] { run(scripts[number], connection); });
            }
            listener.close();
        } catch (const Io::InterruptedException&) {
            dropLastConnection();
        } catch (const Io::IllegalStateException&) {
            // Closed between two calls of accept.
            dropLastConnection();
        }
    }

    /// @return false when the client has gone already, which some systems tell at once and others in the reading.
    bool acceptInto(Connection& connection) {
        try {
            listener.accept(connection.pipe);
            return true;
        } catch (Io::CvPipeException& e) {
            if (e.getMessage() != "acceptPipe failed") {
                throw;
            }
        }
        markEnd(connection);
        return false;
    }

    Connection& addConnection() {
        const std::lock_guard<std::mutex> lock(mutex);
        // A deque, so that the connections before it stay where they are.
        connections.emplace_back();
        return connections.back();
    }

    void dropLastConnection() {
        const std::lock_guard<std::mutex> lock(mutex);
        connections.pop_back();
    }

    void run(const Script& script, Connection& connection) {
        ScriptedConnection scripted(connection.pipe, [this](const std::string& request) {
            const std::lock_guard<std::mutex> lock(mutex);
            received.push_back(request);
            changed.notify_all();
        });
        try {
            script(scripted);
        } catch (const Io::InterruptedException&) {
            // The server goes away while the script waits for its client.
        } catch (Io::CvPipeException& e) {
            ADD_FAILURE() << "a script ended with: " << e.getMessage();
        }
        connection.pipe.close();
        markEnd(connection);
    }

    void markEnd(Connection& connection) {
        const std::lock_guard<std::mutex> lock(mutex);
        connection.hasEnded = true;
        changed.notify_all();
    }

    Io::ServerCvPipe listener;
    const std::vector<Script> scripts;
    const Then then;
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Connection> connections;
    std::vector<std::string> received;
    /// The last member: it works with the others.
    std::thread accepting;
};

/// An answer with a body by length.
inline std::string answerWith(const std::string& body, const std::string& status = "200 OK") {
    return "CVTP/1.0 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

}  // namespace Testing
}  // namespace Corvane
