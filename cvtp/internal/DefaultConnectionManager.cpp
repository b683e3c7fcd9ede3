#include "cvtp/internal/DefaultConnectionManager.h"

#include <atomic>
#include <locale>
#include <mutex>
#include <sstream>
#include <string_view>
#include <utility>

#include "cvtp/internal/LogAndThrow.h"
#include "io/Exceptions.h"
#include "io/platform/PipePlatform.h"
#include "support/StringUtils.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

using Io::CvPipe;
using Io::CvPipeException;
using Io::IllegalStateException;

namespace {

/// Numbers the connections of the process for the log.
std::atomic<std::uint32_t> nextBinding{1};

/// Serialises the connecting of all pipes of the process.
std::mutex creationLock;

std::string addressOf(const CvPipe* pipe) {
    std::ostringstream text;
    // The locale of the application may group digits.
    text.imbue(std::locale::classic());
    text << static_cast<const void*>(pipe);
    return text.str();
}

std::string pipeLabel(const std::string& pipeName, const PipeInfo& info) {
    return "(" + pipeName + "/" + info.bindingName + ")";
}

std::string composeKey(const std::string& pipeName, const std::string& mode) {
    return StringUtils::joined({pipeName, ".", mode});
}

/// Whether a key is the one that composeKey() would give.
bool isKeyOf(std::string_view key, std::string_view pipeName, std::string_view mode) {
    const std::size_t length = pipeName.size();
    return key.size() == length + 1 + mode.size() && key.substr(0, length) == pipeName && key[length] == '.' &&
           key.substr(length + 1) == mode;
}

[[noreturn]] void throwReturnedTwice(const PipeInfo& info) {
    // No blank stands between key and text; deliberate.
    logAndThrow<IllegalStateException>(info.poolKey + "has already been returned to the Pipe Pool");
}

}  // namespace

DefaultConnectionManager::DefaultConnectionManager(int connectTimeout, int staleTimeout)
    : connectTimeout(connectTimeout), staleTimeout(staleTimeout), mutex(std::make_unique<RecursiveMutex>()) {}

DefaultConnectionManager::~DefaultConnectionManager() = default;

CvPipe* DefaultConnectionManager::getPipe(const std::string& pipeName, const std::string& mode) {
    {
        const RecursiveLock lock(mutex.get());
        purgeStalePipes();
        if (std::unique_ptr<PipeInfo> info = takeIdlePipe(pipeName, mode)) {
            return handOut(std::move(info), pipeName);
        }
    }
    // Without the pool's lock: connecting may take as long as the connect timeout.
    std::unique_ptr<PipeInfo> info = createPipe(pipeName, mode, composeKey(pipeName, mode));
    const RecursiveLock lock(mutex.get());
    return handOut(std::move(info), pipeName);
}

/// With the pool's lock held. Null when there is none.
std::unique_ptr<PipeInfo> DefaultConnectionManager::takeIdlePipe(const std::string& pipeName,
                                                                 const std::string& mode) {
    IdlePipes& idle = idlePipesOf(pipeName, mode);
    if (idle.empty()) {
        return nullptr;
    }
    // The one that has been idle longest.
    std::unique_ptr<PipeInfo> info = std::move(idle.back());
    idle.pop_back();
    return info;
}

/// With the pool's lock held. Most clients ask for the same key again and again, and no entry ever goes.
DefaultConnectionManager::IdlePipes& DefaultConnectionManager::idlePipesOf(const std::string& pipeName,
                                                                           const std::string& mode) {
    if (lastEntry != nullptr && isKeyOf(lastEntry->first, pipeName, mode)) {
        return lastEntry->second;
    }
    return idlePipesOf(composeKey(pipeName, mode));
}

DefaultConnectionManager::IdlePipes& DefaultConnectionManager::idlePipesOf(const std::string& poolKey) {
    if (lastEntry == nullptr || lastEntry->first != poolKey) {
        lastEntry = &*availablePipes.try_emplace(poolKey).first;
    }
    return lastEntry->second;
}

std::unique_ptr<PipeInfo> DefaultConnectionManager::createPipe(const std::string& pipeName, const std::string& mode,
                                                               const std::string& poolKey) {
    auto info = std::make_unique<PipeInfo>(poolKey, "Binding-" + std::to_string(nextBinding++));
    if (isDebug()) {
        logDebug("Need a CvPipe " + pipeLabel(pipeName, *info));
    }
    const std::lock_guard<std::mutex> creation(creationLock);
    try {
        connectNewPipe(*info, pipeName, mode);
    } catch (const CvPipeException& failure) {
        logError("Failed create/connect CvPipe " + pipeLabel(pipeName, *info));
        info.reset();
        // Always this class, whatever the cause was; deliberate: callers catch CvPipeException.
        throw CvPipeException(failure);
    }
    if (isDebug()) {
        logDebug("Created CvPipe " + pipeLabel(pipeName, *info));
    }
    return info;
}

void DefaultConnectionManager::connectNewPipe(PipeInfo& info, const std::string& pipeName,
                                              const std::string& mode) {
    const bool readable = mode.find('r') != std::string::npos;
    const bool writable = mode.find('w') != std::string::npos;
    info.pipe = std::make_unique<CvPipe>();
    info.pipe->setConnectTimeout(connectTimeout);
    info.pipe->bind(pipeName, readable, writable);
    info.pipe->connect();
    info.installBuffers(readable, writable);
}

/// With the pool's lock held.
CvPipe* DefaultConnectionManager::handOut(std::unique_ptr<PipeInfo> info, const std::string& pipeName) {
    if (isDebug()) {
        logDebug("Using CvPipe " + pipeLabel(pipeName, *info));
    }
    CvPipe* const pipe = info->pipe.get();
    usedPipes[pipe] = std::move(info);
    return pipe;
}

void DefaultConnectionManager::returnPipe(CvPipe* pipe) {
    const RecursiveLock lock(mutex.get());
    if (pipe == nullptr) {
        return;
    }
    const auto used = findUsed(pipe);
    if (used != usedPipes.end()) {
        PipeInfo& info = *used->second;
        info.lastUsed = Io::Platform::coarseTime();
        IdlePipes& idle = idlePipesOf(info.poolKey);
        idle.insert(idle.begin(), std::move(used->second));
        return;
    }
    if (const PipeInfo* const info = findIdle(pipe)) {
        throwReturnedTwice(*info);
    }
    // No blank stands between address and text; deliberate.
    logAndThrow<IllegalStateException>("Can't find the pipe " + addressOf(pipe) +
                                       "in the used or available pools.");
}

void DefaultConnectionManager::removePipe(CvPipe* pipe) {
    const RecursiveLock lock(mutex.get());
    const auto used = findUsed(pipe);
    if (used != usedPipes.end()) {
        if (isDebug()) {
            logDebug("Remove CvPipe " + used->second->bindingName + "(" + addressOf(pipe) +
                     ") from used pipe list");
        }
        const std::unique_ptr<PipeInfo> removed = std::move(used->second);
        usedPipes.erase(used);
        return;
    }
    if (const PipeInfo* const info = findIdle(pipe)) {
        throwReturnedTwice(*info);
    }
    if (pipe != nullptr) {
        pipe->close();
        delete pipe;
    }
    logAndThrow<IllegalStateException>("Can't find the pipe in the Used or Available pools. Will delete it.");
}

/// With the pool's lock held. The end when it is not handed out.
std::map<CvPipe*, std::unique_ptr<PipeInfo>>::iterator DefaultConnectionManager::findUsed(CvPipe* pipe) {
    const auto place = usedPipes.find(pipe);
    return place != usedPipes.end() && place->second ? place : usedPipes.end();
}

const PipeInfo* DefaultConnectionManager::findIdle(const CvPipe* pipe) const {
    for (const auto& entry : availablePipes) {
        for (const auto& info : entry.second) {
            if (info->pipe.get() == pipe) {
                return info.get();
            }
        }
    }
    return nullptr;
}

/// With the pool's lock held.
void DefaultConnectionManager::purgeStalePipes() {
    const std::int64_t now = Io::Platform::coarseTime();
    for (auto& entry : availablePipes) {
        purgeStalePipes(entry.second, now);
    }
}

void DefaultConnectionManager::purgeStalePipes(IdlePipes& idle, std::int64_t now) {
    std::size_t i = 0;
    while (i < idle.size() && now - idle[i]->lastUsed <= staleTimeout) {
        ++i;
    }
    if (i == idle.size()) {
        return;
    }
    // The comparison is deliberate: a list of which only the last pipe is stale is emptied, the fresh ones
    // included; a list with more stale pipes is left alone. The loop ends when j wraps below zero.
    for (std::size_t j = idle.size() - 1; j <= i; --j) {
        if (isDebug()) {
            logDebug("Deleting stale CvPipe " + idle[j]->bindingName);
        }
        usedPipes.erase(idle[j]->pipe.get());
        idle.pop_back();
    }
}

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
