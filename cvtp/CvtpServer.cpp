#include "cvtp/CvtpServer.h"

#include <Poco/ThreadPool.h>

#include "cvtp/internal/FaultGuard.h"
#include "cvtp/internal/Logging.h"
#include "cvtp/internal/RequestWorker.h"
#include "io/Exceptions.h"
#include "io/ServerCvPipe.h"

namespace Corvane {
namespace Cvtp {

using Internal::Cvtp::FaultGuard;
using Internal::Cvtp::logDebug;
using Internal::Cvtp::logError;

CvtpServer::CvtpServer(const std::string& pipeName, int accessMode)
    : pipeName(pipeName), pipeWritable(accessMode == 1) {
    setOption(ACCESS_MODE, accessMode);
    try {
        listeningPipe = std::make_unique<Io::ServerCvPipe>(pipeName, true, pipeWritable);
        logDebug("CvTpServer is using Pipe " + pipeName);
    } catch (Io::CvPipeException& failure) {
        logError("Failed to create the CvtpServer with the named pipe " + pipeName + ". " + failure.getMessage());
    }
}

CvtpServer::~CvtpServer() {
    shutdown();
}

void CvtpServer::setHandler(CvtpHandler* newHandler) {
    handler = newHandler;
}

CvtpHandler* CvtpServer::getHandler() {
    return handler;
}

bool CvtpServer::isRunning() const {
    return running;
}

bool CvtpServer::isBound() const {
    return listeningPipe != nullptr;
}

bool CvtpServer::acceptsPost() const {
    return accessMode && pipeWritable;
}

void CvtpServer::setOption(ServerOptions option, int value) {
    // An option that is set leaves no line in the log, on purpose.
    switch (option) {
        case ACCESS_MODE:
            // Whatever the value: the access mode cannot be switched off; deliberate.
            accessMode = true;
            return;
        case MAX_REQUEST_PROCESSORS:
            maxRequestProcessors = value;
            return;
        case ACCEPT_TIMEOUT:
            acceptTimeout = value;
            return;
        case IDLE_TIMEOUT:
            idleTimeout = value;
            return;
        case RECEIVE_TIMEOUT:
            receiveTimeout = value;
            return;
        case BUFFER_SIZE:
            bufferSize = value;
            return;
        case SERVER_NAME:
            break;
    }
    logError("Attempt to set a non integer option.");
}

void CvtpServer::setOption(ServerOptions option, const std::string& value) {
    if (option != SERVER_NAME) {
        logError("Attempt to set a non string option.");
        return;
    }
    serverName = value;
}

int CvtpServer::getIntegerOption(ServerOptions option) const {
    switch (option) {
        case ACCESS_MODE:
            return accessMode ? 1 : 0;
        case MAX_REQUEST_PROCESSORS:
            return maxRequestProcessors;
        case ACCEPT_TIMEOUT:
            return acceptTimeout;
        case IDLE_TIMEOUT:
            return idleTimeout;
        case RECEIVE_TIMEOUT:
            return receiveTimeout;
        case BUFFER_SIZE:
            return bufferSize;
        case SERVER_NAME:
            break;
    }
    logError("Attempt to get a non integer option.");
    return -1;
}

std::string CvtpServer::getStringOption(ServerOptions option) const {
    if (option != SERVER_NAME) {
        logError("Attempt to get a non string option.");
        return std::string();
    }
    return serverName;
}

void CvtpServer::setExceptionHandler(int (*filter)(unsigned int code, void* info)) {
    if (filter == nullptr) {
        FaultGuard::setFilter(FaultGuard::Filter());
        return;
    }
    installExceptionFilter(reinterpret_cast<AnyFunction>(filter),
                           [](AnyFunction function, unsigned int code, void* info) {
                               return reinterpret_cast<int (*)(unsigned int, void*)>(function)(code, info);
                           });
}

void CvtpServer::installExceptionFilter(AnyFunction filter,
                                        int (*invoke)(AnyFunction filter, unsigned int code, void* info)) {
    FaultGuard::Filter guarded;
    if (filter != nullptr) {
        guarded.function = filter;
        guarded.invoke = invoke;
    }
    FaultGuard::setFilter(guarded);
}

}  // namespace Cvtp
}  // namespace Corvane
