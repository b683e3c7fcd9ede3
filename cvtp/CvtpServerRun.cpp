// The running server: the accept loop, the hand-over of connections to workers, and the orderly stop.

#include <Poco/Exception.h>
#include <Poco/Thread.h>
#include <Poco/ThreadPool.h>

#include <algorithm>
#include <chrono>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "cvtp/CvtpHandler.h"
#include "cvtp/CvtpServer.h"
#include "cvtp/internal/Logging.h"
#include "cvtp/internal/RequestWorker.h"
#include "io/CvPipe.h"
#include "io/Exceptions.h"
#include "io/ServerCvPipe.h"
#include "support/StringUtils.h"

namespace Corvane {
namespace Cvtp {

using Internal::Cvtp::isDebug;
using Internal::Cvtp::logDebug;
using Internal::Cvtp::logError;
using Internal::Cvtp::logInfo;
using Internal::Cvtp::RequestWorker;
using PoolLock = Poco::Mutex::ScopedLock;

namespace {

const int MIN_THREADS = 3;
const int DEFAULT_MAX_THREADS = 5;
const int THREAD_GROWTH = 2;
const int THREAD_IDLE_SECONDS = 60;
const int PLATFORM_STACK_SIZE = 0;

const int STOP_PASSES = 40;
const int STOP_PASS_MS = 100;

/// A wait for a thread that operators should know of even without the DEBUG level.
const std::int64_t LONG_WAIT_MS = 2000;

}  // namespace

void CvtpServer::run() {
    logDebug("CvTpServer is running on Pipe " + pipeName);
    if (!isReadyToRun() || !initializeThreadPool()) {
        return;
    }
    listeningPipe->setAcceptTimeout(acceptTimeout);
    running = true;
    try {
        if (!handler->doReady()) {
            running = false;
        }
        acceptClients();
    } catch (...) {
        stop();
        throw;
    }
    stop();
}

bool CvtpServer::isReadyToRun() const {
    if (listeningPipe == nullptr) {
        logError("The CvtpServer cannot run without its named pipe " + pipeName + ".");
        return false;
    }
    if (listeningPipe->isClosed()) {
        logError("The CvtpServer cannot run again on the named pipe " + pipeName + ", which is closed.");
        return false;
    }
    if (handler == nullptr) {
        logError("The CvtpServer on the named pipe " + pipeName + " cannot run without a handler.");
        return false;
    }
    return true;
}

bool CvtpServer::initializeThreadPool() {
    const int wanted = maxRequestProcessors == 0 ? DEFAULT_MAX_THREADS : maxRequestProcessors.load();
    const int maxThreads = std::max(wanted, MIN_THREADS);
    std::shared_ptr<Poco::ThreadPool> created;
    try {
        created =
            std::make_shared<Poco::ThreadPool>(MIN_THREADS, maxThreads, THREAD_IDLE_SECONDS, PLATFORM_STACK_SIZE);
    } catch (const std::bad_alloc&) {
        logError("The CvtpServer on the named pipe " + pipeName + " has no memory for its threads.");
    } catch (const Poco::Exception& failure) {
        logError("The CvtpServer on the named pipe " + pipeName + " could not start its threads. " +
                 failure.displayText());
    }
    const PoolLock lock(workerLock);
    threadPool = created;
    return threadPool != nullptr;
}

void CvtpServer::acceptClients() {
    while (running && acceptClient()) {
    }
}

/// @return whether the server goes on.
bool CvtpServer::acceptClient() {
    try {
        auto pipe = std::make_unique<Io::CvPipe>();
        listeningPipe->accept(*pipe);
        assignToWorkerThread(std::move(pipe));
    } catch (Io::InterruptedException& e) {
        logDebug("CvtpServer " + pipeName + " was interrupted. The CvtpServer will shutdown. " + e.getMessage());
        return false;
    } catch (Io::CvPipeException& e) {
        logInfo("CvtpServer failed to accept a CvPipe on the named pipe " + pipeName + ". " + e.getMessage());
    } catch (const Io::IllegalStateException& e) {
        // A shutdown that came between the look at the running flag and the accept.
        if (running) {
            throw;
        }
        logDebug("CvtpServer " + pipeName + " was interrupted. The CvtpServer will shutdown. " + e.getMessage());
        return false;
    }
    return true;
}

void CvtpServer::shutdown() {
    // Held to the end: run() waits for it before it returns, and then this object may be gone.
    const std::lock_guard<std::mutex> lock(shutdownLock);
    if (!running.exchange(false)) {
        return;
    }
    shutdownCalled.notify_all();
    listeningPipe->close();
}

int CvtpServer::idleRequestProcessors() const {
    std::shared_ptr<Poco::ThreadPool> pool;
    {
        const PoolLock lock(workerLock);
        pool = threadPool;
    }
    return pool == nullptr ? 0 : pool->available();
}

int CvtpServer::totalRequestProcessors() const {
    const PoolLock lock(workerLock);
    return static_cast<int>(workers.size());
}

void CvtpServer::assignToWorkerThread(std::unique_ptr<Io::CvPipe> pipe) {
    if (isDebug()) {
        logDebug("ServerCvPipe " + pipeName + " has accepted a CvPipe connection.");
    }
    const std::string name = "Worker-" + std::to_string(++workersUsed);
    const std::string label = StringUtils::joined({pipeName, "/", name});
    // With all the memory that its place takes: a worker that runs must not be deleted for want of that.
    WorkersMap entry;
    RequestWorker& worker = *(entry[name].worker = std::make_unique<RequestWorker>(std::move(pipe), this, name));
    freeFinishedWorkers();
    ThreadWait wait;
    do {
        if (!waitForThread(label, wait)) {
            return;
        }
    } while (!startWorker(worker, label, wait));
    const int count = activateWorker(entry);
    recordWait(label, wait);
    if (isDebug()) {
        logDebug("Activated worker thread " + label + " (" + std::to_string(count) + ").");
    }
}

/// @return false when the server was told to stop meanwhile.
bool CvtpServer::waitForThread(const std::string& workerLabel, ThreadWait& wait) {
    const int step = std::max(idleTimeout / 10, 0);
    for (;;) {
        // Asking goes through all threads of the pool.
        int available = threadPool->available();
        if (available == 0 && maxRequestProcessors == 0) {
            threadPool->addCapacity(THREAD_GROWTH);
            available = threadPool->available();
        }
        if (available > 0) {
            return true;
        }
        if (!wait.waited) {
            logInfo("Waiting for thread to process CvPipe worker " + workerLabel);
            wait.waited = true;
        }
        logDebug("Still waiting for thread to process CvPipe worker " + workerLabel);
        cancelBusyWorkers(true);
        // An idle timeout below 10 ms, or none at all, makes a step of 0, which must not become a busy loop.
        if (waitForShutdown(std::max(step, 1))) {
            return false;
        }
        wait.totalMs += step;
        freeFinishedWorkers();
    }
}

/// @return false when the pool had no thread after all.
bool CvtpServer::startWorker(RequestWorker& worker, const std::string& workerLabel, ThreadWait& wait) {
    try {
        threadPool->start(worker, workerLabel);
        return true;
    } catch (const Poco::NoThreadAvailableException&) {
        logInfo("Waiting for thread to process CvPipe worker " + workerLabel);
        wait.waited = true;
        return false;
    }
}

void CvtpServer::recordWait(const std::string& workerLabel, const ThreadWait& wait) {
    if (wait.waited) {
        ++waitsForThread;
    }
    if (wait.totalMs > LONG_WAIT_MS || (isDebug() && wait.totalMs > 0)) {
        logInfo("Done waiting for thread to process CvPipe worker " + workerLabel);
        // "propelem" is what operators look for; deliberate.
        logInfo("Increase the MAX_REQUEST_PROCESSORS value if this propelem persists.");
    }
}

/// Takes a worker that a thread is running by now into the map. Throws nothing.
///
/// @return how many there are.
int CvtpServer::activateWorker(WorkersMap& entry) {
    const PoolLock lock(workerLock);
    cancelBusyWorkers(false);
    workers.merge(entry);
    const int count = static_cast<int>(workers.size());
    peakThreads = std::max(peakThreads.load(), count);
    return count;
}

/// @return whether the server was told to stop within the time.
bool CvtpServer::waitForShutdown(int milliseconds) {
    std::unique_lock<std::mutex> lock(shutdownLock);
    return shutdownCalled.wait_for(lock, std::chrono::milliseconds(milliseconds), [this] { return !running; });
}

bool CvtpServer::freeFinishedWorkers() {
    const PoolLock lock(workerLock);
    for (auto entry = workers.begin(); entry != workers.end();) {
        if (entry->second.worker->isBusy()) {
            ++entry;
            continue;
        }
        // Counts every worker that finished, whatever ended its connection; deliberate.
        ++idleTimeouts;
        if (isDebug()) {
            logDebug("Deleting idle worker " + pipeName + "/" + entry->first);
        }
        entry = workers.erase(entry);
    }
    return true;
}

void CvtpServer::cancelBusyWorkers(bool cancel) {
    const PoolLock lock(workerLock);
    for (const auto& entry : workers) {
        entry.second.worker->setCancel(cancel);
    }
}

void CvtpServer::stop() {
    {
        const std::lock_guard<std::mutex> lock(shutdownLock);
        running = false;
    }
    stopBusyWorkers();
    stopThreads();
    waitForWorkers();
    deleteWorkers();
    if (isDebug()) {
        logDebug(summary());
    }
    logInfo("CvtpServer " + pipeName + " is stopped.");
}

void CvtpServer::stopBusyWorkers() {
    const PoolLock lock(workerLock);
    for (const auto& entry : workers) {
        if (entry.second.worker->isBusy()) {
            entry.second.worker->stop();
        }
    }
}

void CvtpServer::stopThreads() {
    // Out of the workers' reach meanwhile: the pool holds its lock while it waits for them, and a handler that asks
    // for the idle threads would wait for its own end.
    std::shared_ptr<Poco::ThreadPool> pool;
    {
        const PoolLock lock(workerLock);
        pool.swap(threadPool);
    }
    // Waits up to 10 s for each thread that is still in a handler, and then forgets it.
    pool->stopAll();
    const PoolLock lock(workerLock);
    threadPool.swap(pool);
}

void CvtpServer::waitForWorkers() {
    {
        const PoolLock lock(workerLock);
        for (const auto& entry : workers) {
            entry.second.worker->dropUnlessStarted();
        }
    }
    // A last chance for a handler that is stuck. There is nothing to wait on that would not be the server's, which
    // the handler may outlive.
    for (int pass = 0; pass < STOP_PASSES && hasBusyWorker(); ++pass) {
        Poco::Thread::sleep(STOP_PASS_MS);
    }
}

bool CvtpServer::hasBusyWorker() const {
    const PoolLock lock(workerLock);
    return std::any_of(workers.begin(), workers.end(),
                       [](const WorkersMap::value_type& entry) { return entry.second.worker->isBusy(); });
}

void CvtpServer::deleteWorkers() {
    const PoolLock lock(workerLock);
    for (auto& entry : workers) {
        if (entry.second.worker->isBusy()) {
            logInfo("************* Worker thread not deleted: " + entry.second.worker->getName());
            // Left alone for good: its thread is still in it.
            static_cast<void>(entry.second.worker.release());
        } else {
            // Not left to clear(), which goes through them in no certain order.
            entry.second.worker.reset();
        }
    }
    workers.clear();
}

std::string CvtpServer::summary() const {
    // Not through a stream, whose numbers would follow the application's locale.
    return "\nCvtpServer " + pipeName + " Summary:\n" +                                 //
           "    Total POST requests:       " + std::to_string(postRequests) + "\n" +    //
           "    Total NOTIFY requests:     " + std::to_string(notifyRequests) + "\n" +  //
           "    Total workers used:        " + std::to_string(workersUsed) + "\n" +     //
           "    Total idle timeouts:       " + std::to_string(idleTimeouts) + "\n" +    //
           "    Total waits for thread:    " + std::to_string(waitsForThread) + "\n" +  //
           "    Peak number of threads:    " + std::to_string(peakThreads) + "\n";
}

}  // namespace Cvtp
}  // namespace Corvane
