#include "io/ServerCvPipe.h"

#include <exception>
#include <string>
#include <utility>

#include "cvtp/internal/Logging.h"
#include "io/CvPipe.h"
#include "io/Exceptions.h"
#include "io/platform/PipePlatform.h"

namespace Corvane {
namespace Io {

using Internal::Cvtp::isDebug;
using Internal::Cvtp::isError;
using Internal::Cvtp::isInfo;
using Internal::Cvtp::logDebug;
using Internal::Cvtp::logError;
using Internal::Cvtp::logInfo;

namespace {

/// Nothing may leave a destructor: without memory for the line it is missing.
void logDestruction(const std::string& name) noexcept {
    try {
        if (isDebug()) {
            logDebug("Closing server pipe: " + name);
        }
    } catch (const std::exception&) {
        return;
    }
}

}  // namespace

ServerCvPipe::ServerCvPipe() : prefix(Platform::PIPE_PREFIX) {}

ServerCvPipe::ServerCvPipe(const std::string& name, bool readable, bool writable) : prefix(Platform::PIPE_PREFIX) {
    bind(name, readable, writable);
}

ServerCvPipe::ServerCvPipe(const ServerCvPipe& other)
    : name(other.name),
      readable(other.readable),
      writable(other.writable),
      reserved(other.reserved),
      acceptTimeout(other.acceptTimeout),
      prefix(other.prefix),
      closed(other.closed.load()),
      handle(other.currentInstance()) {}

ServerCvPipe& ServerCvPipe::operator=(const ServerCvPipe& other) {
    if (this != &other) {
        name = other.name;
        readable = other.readable;
        writable = other.writable;
        reserved = other.reserved;
        acceptTimeout = other.acceptTimeout;
        prefix = other.prefix;
        closed = other.closed.load();
        std::shared_ptr<Platform::PipeListener> instance = other.currentInstance();
        // What this one had before goes with `instance`, outside the lock.
        const std::lock_guard<std::mutex> lock(handleLock);
        handle.swap(instance);
    }
    return *this;
}

ServerCvPipe::~ServerCvPipe() {
    logDestruction(name);
    close();
}

void ServerCvPipe::bind(const std::string& newName, bool newReadable, bool newWritable) {
    if (!newReadable && !newWritable) {
        throw IllegalArgumentException("Pipe must be readable or writable.");
    }
    if (isBound()) {
        throw IllegalStateException("Pipe is already bound.");
    }
    name = newName;
    readable = newReadable;
    writable = newWritable;
    bindPipe(prefix + name, true);
}

bool ServerCvPipe::isBound() {
    return !name.empty();
}

void ServerCvPipe::bindPipe(const std::string& path, bool firstInstance) {
    std::shared_ptr<Platform::PipeListener> instance = currentInstance();
    if (!firstInstance && isClosed()) {
        // close() came while a client was being accepted: no instance is to wait any more.
        return;
    }
    const int result = Platform::createInstance(path, readable, writable, firstInstance, instance);
    if (result == Platform::SUCCESS && !keepInstance(instance)) {
        Platform::closeListener(instance);
    }
    if (result != Platform::SUCCESS) {
        throw BindException("CreateNamedPipe failed");
    }
}

bool ServerCvPipe::keepInstance(std::shared_ptr<Platform::PipeListener> instance) {
    const std::lock_guard<std::mutex> lock(handleLock);
    if (closed) {
        return false;
    }
    handle.swap(instance);
    return true;
}

std::shared_ptr<Platform::PipeListener> ServerCvPipe::currentInstance() const {
    const std::lock_guard<std::mutex> lock(handleLock);
    return handle;
}

void ServerCvPipe::accept(CvPipe& pipe) {
    if (!isBound()) {
        throw IllegalStateException("Pipe is not bound.");
    }
    if (closed) {
        throw IllegalStateException("Pipe is closed.");
    }
    if (pipe.isBound()) {
        throw IllegalStateException("Cannot provide a bound CvPipe to accept().");
    }
    try {
        acceptPipe(prefix + name, name, reserved, readable, writable, acceptTimeout, pipe);
    } catch (TimeoutException& e) {
        throw TimeoutException(e.getMessage());
    } catch (CvPipeException& e) {
        if (closed) {
            throw InterruptedException("accept aborted");
        }
        // The class of the failure is dropped; deliberate.
        throw CvPipeException(e.getMessage());
    }
}

void ServerCvPipe::acceptPipe(const std::string& path, const std::string&, long, bool mayRead, bool mayWrite,
                              int timeoutMs, CvPipe& pipe) {
    const std::shared_ptr<Platform::PipeListener> instance = currentInstance();
    std::shared_ptr<Platform::PipeChannel> channel;
    // A pipe that was closed just before this call is no failure of the system, and not to be logged as one.
    const bool isAborted = instance == nullptr && isClosed();
    switch (isAborted ? static_cast<int>(Platform::ABORTED) : Platform::awaitClient(instance, timeoutMs, channel)) {
        case Platform::SUCCESS:
            pipe.takeOver(path, mayRead, mayWrite, std::move(channel));
            bindPipe(path, false);
            return;
        case Platform::ACCEPT_FAILED:
            bindPipe(path, false);
            throw CvPipeException("acceptPipe failed");
        case Platform::ACCEPT_TIMED_OUT:
            throw TimeoutException("CvPipe accept timeout");
        case Platform::ABORTED:
            if (isInfo()) {
                logInfo("Accept aborted.");
            }
            throw InterruptedException("acceptPipe aborted.");
        default:
            if (isError()) {
                logError("Wait failed in Accept.");
            }
            throw CvPipeException("CvPipe wait failed in accept");
    }
}

void ServerCvPipe::close() {
    if (!closed.exchange(true)) {
        closePipe();
    }
}

void ServerCvPipe::closePipe() {
    std::shared_ptr<Platform::PipeListener> instance;
    {
        const std::lock_guard<std::mutex> lock(handleLock);
        instance.swap(handle);
    }
    Platform::closeListener(instance);
}

bool ServerCvPipe::isClosed() {
    return closed;
}

void ServerCvPipe::setClosed(bool value) {
    closed = value;
}

void ServerCvPipe::setAcceptTimeout(int ms) {
    acceptTimeout = ms;
}

int ServerCvPipe::getAcceptTimeout() {
    return acceptTimeout;
}

}  // namespace Io
}  // namespace Corvane
