#pragma once

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <exception>
#include <functional>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "cvtp/CvtpHandler.h"
#include "cvtp/CvtpServer.h"
#include "cvtp/CvtpServerRequest.h"
#include "cvtp/CvtpServerResponse.h"
#include "io/Exceptions.h"

namespace Corvane {
namespace Testing {

/// A handler made of functions. Without one, a NOTIFY is let pass, and a POST gets its body back by length.
class FunctionHandler : public Cvtp::CvtpHandler {
 public:
    std::function<bool()> onReady;
    std::function<void(Cvtp::CvtpServerRequest&)> onNotify;
    std::function<void(Cvtp::CvtpServerRequest&, Cvtp::CvtpServerResponse&)> onPost;

    bool doReady() override { return onReady ? onReady() : true; }

    void doNotify(Cvtp::CvtpServerRequest& request) override {
        if (onNotify) {
            onNotify(request);
        }
    }

    void doPost(Cvtp::CvtpServerRequest& request, Cvtp::CvtpServerResponse& response) override {
        if (onPost) {
            onPost(request, response);
        } else {
            echo(request, response);
        }
    }

    static void echo(Cvtp::CvtpServerRequest& request, Cvtp::CvtpServerResponse& response) {
        reply(response, bodyText(request));
    }

    static void reply(Cvtp::CvtpServerResponse& response, const std::string& body) {
        response.setStatusCode(Cvtp::CvtpMessage::STATUS_OK);
        response.setBody(body.data(), body.size());
        response.send();
    }

    static std::string bodyText(Cvtp::CvtpServerRequest& request) {
        char* data = nullptr;
        std::size_t length = 0;
        request.getBody(data, length);
        const std::string text(data, length);
        std::free(data);
        return text;
    }
};

/// A server that runs on a thread of its own, and is shut down at the end whatever happens before.
///
///     RunningServer service("orders");
///     service.handler.onPost = ...;
///     service.server.setOption(...);
///     service.start();
class RunningServer {
 public:
    explicit RunningServer(const std::string& pipeName, int accessMode = 1) : server(pipeName, accessMode) {
        server.setHandler(&relay);
    }
    ~RunningServer() { stop(); }
    RunningServer(const RunningServer&) = delete;
    RunningServer& operator=(const RunningServer&) = delete;

    /// Returns when the handler is about to be asked whether it is ready, or the server has ended before that.
    void start() {
        std::promise<void> end;
        ended = end.get_future();
        std::future<void> begun = begin.get_future();
        thread = std::thread([this](std::promise<void> promise) { runServer(promise); }, std::move(end));
        begun.wait();
    }

    /// Waits until the server has ended by itself. Throws what came out of run().
    void join() {
        if (thread.joinable()) {
            thread.join();
            ended.get();
        }
    }

    /// Ends the server. What came out of run() makes the test fail.
    void stop() {
        if (!thread.joinable()) {
            return;
        }
        server.shutdown();
        thread.join();
        try {
            ended.get();
        } catch (const Poco::Exception& e) {
            ADD_FAILURE() << "run() ended with: " << e.displayText();
        } catch (const std::exception& e) {
            ADD_FAILURE() << "run() ended with: " << e.what();
        } catch (const Io::IllegalStateException& e) {
            ADD_FAILURE() << "run() ended with: " << e.getMessage();
        } catch (...) {
            ADD_FAILURE() << "run() ended with an exception of an unknown class";
        }
    }

    FunctionHandler handler;
    Cvtp::CvtpServer server;

 private:
    /// Tells that the server is running, and passes everything on.
    class Relay : public Cvtp::CvtpHandler {
     public:
        explicit Relay(RunningServer& owner) : owner(owner) {}
        bool doReady() override {
            owner.tellBegin();
            return owner.handler.doReady();
        }
        void doNotify(Cvtp::CvtpServerRequest& request) override { owner.handler.doNotify(request); }
        void doPost(Cvtp::CvtpServerRequest& request, Cvtp::CvtpServerResponse& response) override {
            owner.handler.doPost(request, response);
        }

     private:
        RunningServer& owner;
    };

    void runServer(std::promise<void>& promise) {
        try {
            server.run();
            promise.set_value();
        } catch (...) {
            promise.set_exception(std::current_exception());
        }
        tellBegin();
    }

    void tellBegin() {
        std::call_once(begunOnce, [this] { begin.set_value(); });
    }

    Relay relay{*this};
    std::promise<void> begin;
    std::once_flag begunOnce;
    std::future<void> ended;
    std::thread thread;
};

}  // namespace Testing
}  // namespace Corvane
