#include "io/CvPipe.h"

#include <algorithm>
#include <utility>

#include "cvtp/internal/Logging.h"
#include "io/Exceptions.h"
#include "io/PipeStreams.h"
#include "io/platform/PipePlatform.h"

namespace Corvane {
namespace Io {

namespace {

const std::int32_t DEFAULT_CONNECT_TIMEOUT_MS = 10000;

}  // namespace

class CvPipe::Call {
 public:
    explicit Call(CvPipe& pipe) : pipe(pipe), isAborted((pipe.calls.fetch_add(ONE_CALL) & CLOSED) != 0) {}
    ~Call() {
        if (pipe.calls.fetch_sub(ONE_CALL) == (ONE_CALL | CLOSED)) {
            pipe.letGo();
        }
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    /// Null when there is none; nothing after close().
    const std::shared_ptr<Platform::PipeChannel>* channel() const { return isAborted ? nullptr : &pipe.handle; }

 private:
    CvPipe& pipe;
    const bool isAborted;
};

CvPipe::CvPipe()
    : inputBuffer(this, std::ios_base::in),
      outputBuffer(this, std::ios_base::out),
      connectTimeout(DEFAULT_CONNECT_TIMEOUT_MS),
      readTimeout(0) {}

CvPipe::CvPipe(const std::string& name, bool readable, bool writable) : CvPipe() {
    // Unlike the default constructor; deliberate.
    connectTimeout = 0;
    connect(name, readable, writable);
}

CvPipe::~CvPipe() {
    // A pipe that is not open has nothing to close, and closing it would only leave a line in the log.
    if (handle && (calls & CLOSED) == 0) {
        closePipe();
    }
    // The streams are not destroyed, since an application may still hold them; deliberate.
    PipeStreams::keep(inputStream, streamsLent);
    PipeStreams::keep(outputStream, streamsLent);
}

void CvPipe::bind(const std::string& newName, bool newReadable, bool newWritable) {
    if (!newReadable && !newWritable) {
        throw IllegalArgumentException("Pipe must be readable or writable.");
    }
    if (isBound()) {
        throw IllegalStateException("Pipe is already bound.");
    }
    name = newName;
    readable = newReadable;
    writable = newWritable;
}

bool CvPipe::isBound() {
    return !name.empty();
}

void CvPipe::connect() {
    if (!isBound()) {
        throw IllegalStateException("Pipe not yet bound");
    }
    path = Platform::PIPE_PREFIX + name;
    forgetFormerConnection();
    connectPipe(path, name, readable, writable, connectTimeout);
}

/// What was read ahead or not written yet belongs to a connection that is gone, and so does the state of the
/// streams.
void CvPipe::forgetFormerConnection() {
    inputBuffer.discard();
    outputBuffer.discard();
    if (inputStream != nullptr) {
        inputStream->clear();
    }
    if (outputStream != nullptr) {
        outputStream->clear();
    }
}

void CvPipe::connect(const std::string& newName, bool newReadable, bool newWritable) {
    bind(newName, newReadable, newWritable);
    connect();
}

void CvPipe::connectPipe(const std::string& pipePath, const std::string&, bool mayRead, bool mayWrite,
                         int timeoutMs) {
    std::shared_ptr<Platform::PipeChannel> channel;
    const int result = Platform::openChannel(pipePath, mayRead, mayWrite, timeoutMs, channel);
    if (channel) {
        // Also after a failure that has left something open: close() releases it.
        setChannel(std::move(channel));
    }
    switch (result) {
        case Platform::SUCCESS:
            return;
        case Platform::OPEN_FAILED:
            throw ConnectException("Could not connect to pipe.");
        case Platform::OPEN_DENIED:
            throw ConnectException("Access denied.");
        case Platform::OPEN_TIMED_OUT:
            throw TimeoutException("Timed out connecting to pipe");
        default:
            throw CvPipeException("Unrecognized pipe connect error");
    }
}

void CvPipe::close() {
    closePipe();
}

void CvPipe::closePipe() {
    std::shared_ptr<Platform::PipeChannel> channel;
    {
        const std::lock_guard<std::mutex> lock(handleLock);
        const std::uint32_t before = calls.fetch_or(CLOSED);
        // One that was closed before has been let go of, or will be by its last call.
        if (before == 0) {
            channel.swap(handle);
        } else if ((before & CLOSED) == 0) {
            channel = handle;
        }
    }
    Platform::closeChannel(channel);
}

/// After close(), when the last call has ended.
void CvPipe::letGo() noexcept {
    // Goes outside the lock.
    std::shared_ptr<Platform::PipeChannel> channel;
    const std::lock_guard<std::mutex> lock(handleLock);
    if ((calls & CLOSED) != 0) {
        channel.swap(handle);
    }
}

void CvPipe::setChannel(std::shared_ptr<Platform::PipeChannel> channel) {
    // Of the connection before.
    forgetUnread();
    // What was open before goes with `channel`, outside the lock.
    const std::lock_guard<std::mutex> lock(handleLock);
    handle.swap(channel);
    calls &= ~CLOSED;
}

void CvPipe::takeOver(const std::string& newPath, bool newReadable, bool newWritable,
                      std::shared_ptr<Platform::PipeChannel> channel) {
    // The name of an accepted pipe is the whole path, unlike a client's; deliberate.
    name = newPath;
    path = newPath;
    readable = newReadable;
    writable = newWritable;
    setChannel(std::move(channel));
}

std::istream* CvPipe::getInputStream() {
    streamsLent = true;
    return PipeStreams::inputOf(*this);
}

std::ostream* CvPipe::getOutputStream() {
    streamsLent = true;
    return PipeStreams::outputOf(*this);
}

std::istream* PipeStreams::inputOf(CvPipe& pipe) {
    if (!pipe.isBound() || !pipe.readable) {
        throw IllegalStateException("Pipe is not bound with read access.");
    }
    if (pipe.inputStream == nullptr) {
        pipe.inputStream = takeInput(&pipe.inputBuffer);
    }
    return pipe.inputStream;
}

std::ostream* PipeStreams::outputOf(CvPipe& pipe) {
    if (!pipe.isBound() || !pipe.writable) {
        throw IllegalStateException("Pipe is not bound with write access.");
    }
    if (pipe.outputStream == nullptr) {
        pipe.outputStream = takeOutput(&pipe.outputBuffer);
    }
    return pipe.outputStream;
}

void PipeStreams::setIdleMemory(CvPipe& pipe, char* memory, std::size_t length) {
    pipe.idleMemory = memory;
    pipe.idleLength = length;
}

void CvPipe::setReadTimeout(int ms) {
    readTimeout = ms;
}

int CvPipe::getReadTimeout() {
    return readTimeout;
}

void CvPipe::setConnectTimeout(int ms) {
    connectTimeout = ms;
}

int CvPipe::getConnectTimeout() {
    return connectTimeout;
}

int CvPipe::readPipe(char* buffer, int offset, int length, int timeoutMs) {
    const Call call(*this);
    const auto* const channel = call.channel();
    if (channel == nullptr) {
        return countOrThrow(Platform::ABORTED);
    }
    if (unreadMemory != nullptr) {
        const Platform::Room room{buffer + offset, length};
        return countOrThrow(readAgain(&room, &room + 1));
    }
    return countOrThrow(
        Platform::readChannel(*channel, buffer + offset, length, timeoutMs, {idleMemory, idleLength}));
}

int CvPipe::readBlocks(const Platform::Room* begin, const Platform::Room* end) {
    const Call call(*this);
    const auto* const channel = call.channel();
    if (channel == nullptr) {
        return countOrThrow(Platform::ABORTED);
    }
    return countOrThrow(unreadMemory != nullptr ? readAgain(begin, end)
                                                : Platform::readChannel(*channel, begin, end, readTimeout));
}

void CvPipe::unread(std::unique_ptr<char[]> memory, std::size_t length) {
    if (unreadMemory != nullptr) {
        // They were read from there, and still stand there.
        unreadBegin -= length;
    } else if (length > 0) {
        unreadMemory = std::move(memory);
        unreadBegin = 0;
        unreadEnd = length;
    }
}

int CvPipe::readAgain(const Platform::Room* begin, const Platform::Room* end) {
    std::size_t total = 0;
    for (; begin != end && begin->length > 0; ++begin) {
        const std::size_t count = std::min(static_cast<std::size_t>(begin->length), unreadEnd - unreadBegin);
        std::copy_n(unreadMemory.get() + unreadBegin, count, begin->data);
        unreadBegin += count;
        total += count;
    }
    if (unreadBegin == unreadEnd) {
        forgetUnread();
    }
    return static_cast<int>(total);
}

void CvPipe::forgetUnread() {
    unreadMemory.reset();
    unreadBegin = 0;
    unreadEnd = 0;
}

int CvPipe::countOrThrow(int result) {
    switch (result) {
        case Platform::READ_TIMED_OUT:
            throw TimeoutException("CvPipe read timeout.");
        case Platform::ABORTED:
            throw InterruptedException("CvPipe read aborted.");
        case Platform::READ_FAILED:
            throw CvPipeException("CvPipe read failed.");
        default:
            return result < 1 ? -1 : result;
    }
}

void CvPipe::writePipe(const char* buffer, int offset, int length) {
    if (length <= 0) {
        return;
    }
    const Call call(*this);
    const auto* const channel = call.channel();
    throwUnlessWritten(channel != nullptr ? Platform::writeChannel(*channel, buffer + offset, length)
                                          : writeAborted());
}

void CvPipe::writeBlocks(std::vector<std::string_view>& blocks, std::size_t piece) {
    const Call call(*this);
    const auto* const channel = call.channel();
    throwUnlessWritten(channel != nullptr ? Platform::writeBlocks(*channel, blocks, piece) : writeAborted());
}

int CvPipe::writeAborted() const {
    if (Internal::Cvtp::isInfo()) {
        Internal::Cvtp::logInfo("WriteFile aborted.");
    }
    return Platform::ABORTED;
}

void CvPipe::throwUnlessWritten(int result) {
    switch (result) {
        case Platform::SUCCESS:
            return;
        case Platform::WRITE_BROKEN:
            throw BrokenPipeException("Pipe was closed at other end.");
        case Platform::ABORTED:
            throw InterruptedException("Pipe write aborted.");
        case Platform::WRITE_FAILED:
            throw CvPipeException("Pipe write failed");
        case Platform::WRITE_TIMED_OUT:
            throw TimeoutException("Pipe write timed out");
        default:
            throw CvPipeException("Unexpected writePipe failure.");
    }
}

}  // namespace Io
}  // namespace Corvane
