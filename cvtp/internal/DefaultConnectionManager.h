#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cvtp/CvtpConnectionManager.h"
#include "cvtp/internal/PipeInfo.h"
#include "cvtp/internal/RecursiveMutex.h"

namespace Corvane {
namespace Internal {
namespace Cvtp {

/// The pool of a client: pipes by name and mode, each list first in, first out. Pipes that have lain idle for
/// longer than the stale timeout are closed when the next pipe is asked for. All pipes of the process are created
/// and connected one at a time, across all pools.
class DefaultConnectionManager : public Corvane::Cvtp::CvtpConnectionManager {
 public:
    /// Both in milliseconds.
    DefaultConnectionManager(int connectTimeout, int staleTimeout);
    ~DefaultConnectionManager() override;

    Io::CvPipe* getPipe(const std::string& pipeName, const std::string& mode) override;
    void returnPipe(Io::CvPipe* pipe) override;
    void removePipe(Io::CvPipe* pipe) override;

 private:
    using IdlePipes = std::vector<std::unique_ptr<PipeInfo>>;

    std::unique_ptr<PipeInfo> takeIdlePipe(const std::string& pipeName, const std::string& mode);
    IdlePipes& idlePipesOf(const std::string& pipeName, const std::string& mode);
    IdlePipes& idlePipesOf(const std::string& poolKey);
    std::unique_ptr<PipeInfo> createPipe(const std::string& pipeName, const std::string& mode,
                                         const std::string& poolKey);
    void connectNewPipe(PipeInfo& info, const std::string& pipeName, const std::string& mode);
    Io::CvPipe* handOut(std::unique_ptr<PipeInfo> info, const std::string& pipeName);
    void purgeStalePipes();
    void purgeStalePipes(IdlePipes& idle, std::int64_t now);
    std::map<Io::CvPipe*, std::unique_ptr<PipeInfo>>::iterator findUsed(Io::CvPipe* pipe);
    const PipeInfo* findIdle(const Io::CvPipe* pipe) const;

    /// The idle pipes of each key, the one given back last at the front. Guarded by mutex, as usedPipes is.
    std::map<std::string, IdlePipes> availablePipes;
    /// The entry that was asked for last; null at first. Guarded by mutex.
    std::map<std::string, IdlePipes>::value_type* lastEntry = nullptr;
    /// The pipes that are handed out. The place of an idle one stays here, empty: to take places out and put them
    /// in again would be a tenth of the library's time in a request.
    std::map<Io::CvPipe*, std::unique_ptr<PipeInfo>> usedPipes;
    std::int32_t connectTimeout;
    std::int32_t staleTimeout;
    std::unique_ptr<RecursiveMutex> mutex;
};

}  // namespace Cvtp
}  // namespace Internal
}  // namespace Corvane
