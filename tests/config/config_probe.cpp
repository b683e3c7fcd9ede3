// A process of its own that uses the configuration the way an application does. The configuration of a process is
// read once, so each test of that needs another process.
//
// config_probe FOLDER LEVEL [ACTION...]: works in the folder, and logs to standard output at the level (0 to 4).
// Each action is one of these; the options that come of it are printed.
//     get                        makes the configuration, between two attempts to open files that do not exist,
//                                which show in a list of system calls; prints whether it is loaded
//     threads                    gets the configuration in several threads at once, which set options then
//     client FUNCTION COMPONENT  sets the options of a new client; tells of an exception
//     server FUNCTION COMPONENT  sets the options of a new server

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "cvtp/CvtpClient.h"
#include "cvtp/CvtpConfig.h"
#include "cvtp/CvtpMessage.h"
#include "cvtp/CvtpServer.h"

namespace {

using namespace Corvane::Cvtp;

using Options = std::vector<int>;

void print(const std::string& line) {
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

std::string textOf(const Options& options) {
    std::string text;
    for (const int option : options) {
        text += " " + std::to_string(option);
    }
    return text;
}

void tryToOpen(const char* name) {
    if (std::FILE* const file = std::fopen(name, "rb")) {
        std::fclose(file);
    }
}

void get() {
    tryToOpen("config-probe-begin");
    const bool isLoaded = CvtpConfig::getInstance().isLoaded();
    tryToOpen("config-probe-end");
    print(isLoaded ? "loaded" : "not loaded");
}

Options clientOptions(const std::string& function, const std::string& component) {
    CvtpClient client;
    try {
        CvtpConfig::getInstance().setCvtpClientOptions(client, function, component);
    } catch (const std::exception&) {
        print("standard exception");
    } catch (...) {
        print("exception");
    }
    return {client.getIntegerOption(CvtpClient::CONNECTION_TIMEOUT),
            client.getIntegerOption(CvtpClient::STALE_TIMEOUT), client.getIntegerOption(CvtpClient::BUFFER_SIZE)};
}

Options serverOptions(const std::string& function, const std::string& component) {
    // No pipe can have this name, so none is made.
    CvtpServer server("\\", 1);
    CvtpConfig::getInstance().setCvtpServerOptions(server, function, component);
    return {server.getIntegerOption(CvtpServer::MAX_REQUEST_PROCESSORS),
            server.getIntegerOption(CvtpServer::ACCEPT_TIMEOUT), server.getIntegerOption(CvtpServer::IDLE_TIMEOUT),
            server.getIntegerOption(CvtpServer::RECEIVE_TIMEOUT), server.getIntegerOption(CvtpServer::BUFFER_SIZE)};
}

void useInThreads() {
    const std::size_t count = 8;
    std::atomic<std::size_t> waiting{0};
    std::vector<const CvtpConfig*> instances(count);
    std::vector<Options> options(count);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < count; ++i) {
        threads.emplace_back([&, i] {
            ++waiting;
            while (waiting < count) {
                std::this_thread::yield();
            }
            instances[i] = &CvtpConfig::getInstance();
            for (int round = 0; round < 20; ++round) {
                options[i] = clientOptions("f", "c");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    print("instances " + std::to_string(std::set<const CvtpConfig*>(instances.begin(), instances.end()).size()));
    for (const Options& each : std::set<Options>(options.begin(), options.end())) {
        print("client" + textOf(each));
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    std::filesystem::current_path(arguments.at(0));
    CvtpMessage::setLoggingLevel(stdout, static_cast<CvtpMessage::LoggingLevel>(std::stoi(arguments.at(1))),
                                 nullptr, CvtpMessage::COMMUNICATION_OFF);
    for (std::size_t i = 2; i < arguments.size(); ++i) {
        if (arguments[i] == "get") {
            get();
        } else if (arguments[i] == "threads") {
            useInThreads();
        } else if (arguments[i] == "client") {
            print("client" + textOf(clientOptions(arguments.at(i + 1), arguments.at(i + 2))));
            i += 2;
        } else if (arguments[i] == "server") {
            print("server" + textOf(serverOptions(arguments.at(i + 1), arguments.at(i + 2))));
            i += 2;
        } else {
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}
