#pragma once

#include <Poco/Mutex.h>
#include <Poco/Runnable.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "support/Export.h"

namespace Poco {
class ThreadPool;
}

namespace Corvane {

namespace Io {
class CvPipe;
class ServerCvPipe;
}  // namespace Io

namespace Internal {
namespace Cvtp {
class RequestWorker;
}
}  // namespace Internal

namespace Cvtp {

class CvtpHandler;

/// Serves requests on one named pipe. Created on a name, given a handler, tuned with options, and run: run()
/// accepts clients until shutdown() is called, and gives each connection to a worker thread of a bounded pool,
/// which reads one request after another and calls the handler.
///
/// Set handler and options before run(). It may be destroyed after run() has returned, not before.
class CVTP_EXPORT CvtpServer : public Poco::Runnable {
 public:
    /// The numbers are part of the interface: the configuration file maps to them. Any value is taken as it is.
    enum ServerOptions : std::int32_t {
        /// 1 while POST is accepted. It cannot be switched off: any value stores 1, on purpose.
        ACCESS_MODE = 0,
        /// The value of the header "Server" of each response, and the first part of the workers' names in the log.
        /// Default "CvtpServer".
        SERVER_NAME = 1,
        /// The most worker threads, and so the most connections at once. Default 5; a number below 3 gives 3, but
        /// 0 means no bound.
        MAX_REQUEST_PROCESSORS = 2,
        /// How long one wait for a client lasts before the server logs that it goes on waiting, in ms. Default 0:
        /// without end.
        ACCEPT_TIMEOUT = 3,
        /// How long a connection may be quiet between requests before it is closed, in ms. Default 13000; 0 is
        /// without end.
        IDLE_TIMEOUT = 4,
        /// How long each read of the rest of a request may wait once its start line is there, in ms. Default 3000;
        /// 0 is without end.
        RECEIVE_TIMEOUT = 5,
        /// The buffers of each connection, in bytes; also the size of a chunk. Default 4096; below 1 counts as 1.
        BUFFER_SIZE = 6
    };

    /// Takes the name, so that clients can open the pipe from now on. A pipe that cannot be created is logged at
    /// ERROR and not thrown: ask isBound().
    ///
    /// @param pipeName without prefix; see Corvane::Io::ServerCvPipe::bind().
    /// @param accessMode 1 to receive POST and NOTIFY and to reply; any other number makes a pipe that clients can
    ///        only write to: NOTIFY alone.
    CvtpServer(const std::string& pipeName, int accessMode);

    /// Gives the name back. Does not delete the handler.
    ~CvtpServer() override;

    CvtpServer(const CvtpServer&) = delete;
    CvtpServer& operator=(const CvtpServer&) = delete;

    /// Serves until shutdown(), the handler's doReady() being false, or a fault in a worker; then stops the workers
    /// and returns. Stopping takes a moment with well-behaved handlers; each worker that is stuck in one holds it
    /// up by 10 seconds, and all together by 4 more. Such a worker is given up, named in the log, and its memory
    /// stays. To be called once. Without a pipe or a handler it logs at ERROR and returns.
    ///
    /// What the handler's doReady() throws comes out of it, after the workers have been stopped.
    void run() override;

    /// Ends run(), from any thread and without blocking. Does nothing on a server that is not running.
    void shutdown();

    /// The threads that could take a connection now; 0 before run() and while the server stops.
    int idleRequestProcessors() const;
    /// The workers that exist: those with a connection, and finished ones that were not cleared away yet.
    int totalRequestProcessors() const;

    /// Not owned; must outlive run(), and any call of it that does not return.
    void setHandler(CvtpHandler* handler);
    CvtpHandler* getHandler();

    /// From run() being called until it was told to stop.
    bool isRunning() const;

    /// True when the pipe could be created.
    bool isBound() const;

    /// Set an option. One of the other kind, or of no known number, is logged at ERROR and changes nothing.
    void setOption(ServerOptions option, int value);
    void setOption(ServerOptions option, const std::string& value);

    /// The value, or -1 with a line at ERROR for anything but the integer options.
    int getIntegerOption(ServerOptions option) const;
    /// The value, or "" with a line at ERROR for anything but SERVER_NAME.
    std::string getStringOption(ServerOptions option) const;

    /// Guards the workers of all servers of the process against faults of their handlers; null takes the guard
    /// away, which is how it is at first: a fault then ends the process as it always did.
    ///
    /// The filter is called in the thread that faulted, on Linux inside the signal handler, with the number of the
    /// signal (SIGSEGV, SIGBUS, SIGFPE, SIGILL) and its `siginfo_t*`; on Windows with the exception code and the
    /// `_EXCEPTION_POINTERS*`. It answers 1 to stop the server in order, and the process goes on living; 0 to let
    /// the fault go where it would have gone without a guard; -1 to go on where the fault was.
    ///
    /// Set it before run(): a connection is guarded by the filter that was set when its worker began. Null also
    /// takes the guard from the connections that are there.
    static void setExceptionHandler(int (*filter)(unsigned int code, void* info));

    /// The same for a filter that names the platform's types, such as `int (*)(unsigned int, siginfo_t*)`.
    template <class Code, class Info>
    static void setExceptionHandler(int (*filter)(Code code, Info* info)) {
        installExceptionFilter(reinterpret_cast<AnyFunction>(filter),
                               [](AnyFunction function, unsigned int code, void* info) {
                                   return reinterpret_cast<int (*)(Code, Info*)>(function)(
                                       static_cast<Code>(code), static_cast<Info*>(info));
                               });
    }

    /// The same for a lambda that captures nothing.
    template <class Lambda, class = decltype(&Lambda::operator())>
    static void setExceptionHandler(Lambda filter) {
        setLambda(filter, &Lambda::operator());
    }

 private:
    friend class Internal::Cvtp::RequestWorker;

    using AnyFunction = void (*)();

    /// The second slot is always null.
    struct WorkerRecord {
        std::unique_ptr<Internal::Cvtp::RequestWorker> worker;
        void* reserved = nullptr;
    };
    using WorkersMap = std::map<std::string, WorkerRecord>;

    /// The wait of one connection for a worker thread.
    struct ThreadWait {
        bool waited = false;
        std::int64_t totalMs = 0;
    };

    /// The second argument tells the types of the first. To ask the lambda itself for a pointer, with +, is
    /// ambiguous where a compiler has several kinds of functions.
    template <class Lambda, class Code, class Info>
    static void setLambda(const Lambda& lambda, int (Lambda::*)(Code code, Info* info) const) {
        int (*const filter)(Code code, Info * info) = lambda;
        setExceptionHandler(filter);
    }

    static void installExceptionFilter(AnyFunction filter,
                                       int (*invoke)(AnyFunction filter, unsigned int code, void* info));

    bool isReadyToRun() const;
    bool initializeThreadPool();
    void acceptClients();
    bool acceptClient();
    void assignToWorkerThread(std::unique_ptr<Io::CvPipe> pipe);
    bool waitForThread(const std::string& workerLabel, ThreadWait& wait);
    bool startWorker(Internal::Cvtp::RequestWorker& worker, const std::string& workerLabel, ThreadWait& wait);
    void recordWait(const std::string& workerLabel, const ThreadWait& wait);
    int activateWorker(WorkersMap& entry);
    bool waitForShutdown(int milliseconds);
    bool freeFinishedWorkers();
    void cancelBusyWorkers(bool cancel);
    void stopBusyWorkers();
    void stopThreads();
    void waitForWorkers();
    bool hasBusyWorker() const;
    void deleteWorkers();
    void stop();
    std::string summary() const;
    bool acceptsPost() const;

    std::string pipeName;
    std::unique_ptr<Io::ServerCvPipe> listeningPipe;
    CvtpHandler* handler = nullptr;
    std::atomic<bool> running{false};
    std::string serverName = "CvtpServer";
    std::atomic<bool> accessMode{true};
    std::atomic<std::int32_t> maxRequestProcessors{5};
    std::atomic<std::int32_t> acceptTimeout{0};
    std::atomic<std::int32_t> idleTimeout{13000};
    std::atomic<std::int32_t> receiveTimeout{3000};
    std::atomic<std::int32_t> bufferSize{4096};
    /// By name. Guarded by workerLock, as is threadPool.
    WorkersMap workers;
    std::shared_ptr<Poco::ThreadPool> threadPool;
    mutable Poco::Mutex workerLock;
    std::atomic<std::int32_t> postRequests{0};
    std::atomic<std::int32_t> notifyRequests{0};
    std::atomic<std::int32_t> workersUsed{0};
    std::atomic<std::int32_t> idleTimeouts{0};
    std::atomic<std::int32_t> waitsForThread{0};
    std::atomic<std::int32_t> peakThreads{0};
    /// What the constructor was asked for, which the option does not tell.
    bool pipeWritable;
    /// Wakes the accepting thread while it waits for a worker thread; goes with running.
    std::mutex shutdownLock;
    std::condition_variable shutdownCalled;
};

}  // namespace Cvtp
}  // namespace Corvane
