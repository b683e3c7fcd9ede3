#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "io/platform/posix/Spinning.h"
#include "io/platform/posix/SystemCalls.h"
#include "tests/io/posix/PosixTest.h"

namespace Corvane {
namespace Testing {

/// What a call of the system is to say. Says nothing when it is empty: the system itself is asked then.
struct Answer {
    /// Not 0: the call fails with it.
    int error = 0;
    /// What the call returns instead of asking the system.
    std::optional<int> result = std::nullopt;
    /// Runs first, in the thread of the call.
    std::function<void()> before = nullptr;
    /// Of calls that move bytes: at most so many.
    std::size_t limit = 1000000;
    /// Not 0: the call fails with it after the system has done what it was asked for.
    int errorInTheEnd = 0;
};

/// A call that fails.
inline Answer failure(int error) {
    return Answer{error};
}
/// A call that fails when something has happened.
inline Answer failure(int error, std::function<void()> before) {
    return Answer{error, std::nullopt, std::move(before)};
}
inline Answer returning(int result) {
    return Answer{0, result};
}
/// A call that goes to the system, as any call for which there is no answer.
inline Answer passing(std::function<void()> before = nullptr) {
    return Answer{0, std::nullopt, std::move(before)};
}

/// A call that moves at most so many bytes.
inline Answer moving(std::size_t limit) {
    return Answer{0, std::nullopt, nullptr, limit};
}

/// Stands between the transport and the system while it lives: each call says what the test has asked for, first
/// in, first out, and goes to the system when nothing is left. Each answer must be called for before the end.
class FakeSystem {
 public:
    FakeSystem() {
        instance = this;
        // A test counts calls, and spinning makes as many as it likes.
        Io::Platform::Spinning::setLength(0);
        useSockets();
        useFiles();
        table.now = &FakeSystem::now;
        Io::Platform::substituteCalls(&table);
    }
    ~FakeSystem() {
        Io::Platform::substituteCalls(nullptr);
        Io::Platform::Spinning::setLength(-1);
        instance = nullptr;
        for (const auto& entry : planned) {
            EXPECT_EQ(entry.second.size(), 0u) << "not called for: " << entry.first;
        }
    }
    FakeSystem(const FakeSystem&) = delete;
    FakeSystem& operator=(const FakeSystem&) = delete;

    /// Adds answers to the next calls of that name.
    void on(const std::string& name, const std::vector<Answer>& answers) {
        const std::lock_guard<std::mutex> lock(mutex);
        EXPECT_EQ(names.count(name), 1u) << name;
        std::deque<Answer>& queue = planned[name];
        queue.insert(queue.end(), answers.begin(), answers.end());
    }

    /// From now on calls of that name fail, once their answers are used up.
    void always(const std::string& name, int error) {
        const std::lock_guard<std::mutex> lock(mutex);
        EXPECT_EQ(names.count(name), 1u) << name;
        lasting[name] = error;
    }

    /// What happens at the call with this number, counted from 0 and from now on, whatever call it is. No call gets
    /// an answer.
    void onCallNumber(std::size_t number, std::function<void()> action) {
        const std::lock_guard<std::mutex> lock(mutex);
        numberOfAction = made.size() + number;
        numberedAction = std::move(action);
    }
    bool isActionDone() {
        const std::lock_guard<std::mutex> lock(mutex);
        return !numberedAction;
    }

    /// From now on the clock of timeouts moves only when it is told to. Waits of the system itself go by another.
    void freezeTime() {
        frozen = true;
        offset = std::chrono::steady_clock::now().time_since_epoch();
    }
    void passTime(int milliseconds) { offset = offset.load() + std::chrono::milliseconds(milliseconds); }
    /// The same as an action.
    std::function<void()> after(int milliseconds) {
        return [this, milliseconds] { passTime(milliseconds); };
    }

    /// Each call with its chief arguments, in order.
    Lines getMade() {
        const std::lock_guard<std::mutex> lock(mutex);
        return made;
    }
    void forgetMade() {
        const std::lock_guard<std::mutex> lock(mutex);
        made.clear();
        waits.clear();
    }
    /// The calls of one kind.
    Lines madeOf(const std::string& name) {
        Lines result;
        for (const std::string& call : getMade()) {
            if (call.rfind(name + "(", 0) == 0) {
                result.push_back(call);
            }
        }
        return result;
    }
    /// The times that calls were told to wait at most, in milliseconds: those of poll() and of socket timeouts.
    std::vector<int> getWaits() {
        const std::lock_guard<std::mutex> lock(mutex);
        return waits;
    }

 private:
    Answer next(const std::string& name, const std::string& arguments) {
        std::function<void()> action;
        Answer answer;
        {
            const std::lock_guard<std::mutex> lock(mutex);
            if (numberedAction && made.size() == numberOfAction) {
                action = std::exchange(numberedAction, nullptr);
            }
            made.push_back(name + "(" + arguments + ")");
            std::deque<Answer>& queue = planned[name];
            if (!queue.empty()) {
                answer = queue.front();
                queue.pop_front();
            } else if (const auto found = lasting.find(name); found != lasting.end()) {
                answer.error = found->second;
            }
        }
        if (action) {
            action();
        }
        if (answer.before) {
            answer.before();
        }
        return answer;
    }

    template <class Real>
    static auto run(const std::string& name, const std::string& arguments, Real real) -> decltype(real(0u)) {
        const Answer answer = instance->next(name, arguments);
        if (answer.errorInTheEnd != 0) {
            real(answer.limit);
        }
        const int error = answer.error + answer.errorInTheEnd;
        if (error != 0) {
            errno = error;
            return -1;
        }
        return answer.result ? static_cast<decltype(real(0u))>(*answer.result) : real(answer.limit);
    }

    void noteWait(int milliseconds) {
        const std::lock_guard<std::mutex> lock(mutex);
        waits.push_back(milliseconds);
    }

    template <class Function, class Fake>
    void use(Function& place, const char* name, Fake fake) {
        place = fake;
        names.insert(name);
    }

    void useSockets() {
        use(table.socket, "socket", [](int domain, int type, int protocol) {
            return run("socket", "", [&](std::size_t) { return ::socket(domain, type, protocol); });
        });
        use(table.bind, "bind", [](int socket, const sockaddr* address, socklen_t length) {
            return run("bind", "", [&](std::size_t) { return ::bind(socket, address, length); });
        });
        use(table.listen, "listen", [](int socket, int backlog) {
            return run("listen", std::to_string(backlog), [&](std::size_t) { return ::listen(socket, backlog); });
        });
        use(table.accept4, "accept4", [](int socket, sockaddr* address, socklen_t* length, int flags) {
            return run("accept4", "", [&](std::size_t) { return ::accept4(socket, address, length, flags); });
        });
        use(table.connect, "connect", [](int socket, const sockaddr* address, socklen_t length) {
            return run("connect", "", [&](std::size_t) { return ::connect(socket, address, length); });
        });
        use(table.shutdown, "shutdown", [](int socket, int how) {
            return run("shutdown", std::to_string(how), [&](std::size_t) { return ::shutdown(socket, how); });
        });
        useTransfer();
    }
    void useTransfer() {
        use(table.recv, "recv", [](int socket, void* buffer, std::size_t length, int flags) {
            return run("recv", std::to_string(length) + ((flags & MSG_DONTWAIT) != 0 ? " now" : ""),
                       [&](std::size_t limit) { return ::recv(socket, buffer, std::min(length, limit), flags); });
        });
        use(table.send, "send", [](int socket, const void* buffer, std::size_t length, int flags) {
            return run("send", std::to_string(length),
                       [&](std::size_t limit) { return ::send(socket, buffer, std::min(length, limit), flags); });
        });
        use(table.recvmsg, "recvmsg", [](int socket, msghdr* message, int flags) {
            return run("recvmsg", lengthsOf(*message) + ((flags & MSG_DONTWAIT) != 0 ? " now" : ""),
                       [&](std::size_t limit) {
                           Limited part(*message, limit);
                           return ::recvmsg(socket, &part.message, flags);
                       });
        });
        use(table.sendmsg, "sendmsg", [](int socket, const msghdr* message, int flags) {
            return run("sendmsg", lengthsOf(*message), [&](std::size_t limit) {
                const Limited part(*message, limit);
                return ::sendmsg(socket, &part.message, flags);
            });
        });
        use(table.poll, "poll", [](pollfd* entries, nfds_t count, int timeoutMs) {
            instance->noteWait(timeoutMs);
            return poll(entries, count, timeoutMs);
        });
        use(table.setsockopt, "setsockopt",
            [](int socket, int level, int option, const void* value, socklen_t length) {
                return run("setsockopt", optionText(option, value),
                           [&](std::size_t) { return ::setsockopt(socket, level, option, value, length); });
            });
    }
    static std::string optionText(int option, const void* value) {
        const timeval time = *static_cast<const timeval*>(value);
        instance->noteWait(static_cast<int>(time.tv_sec * 1000 + time.tv_usec / 1000));
        return option == SO_RCVTIMEO ? "SO_RCVTIMEO" : "SO_SNDTIMEO";
    }
    static std::string lengthsOf(const msghdr& message) {
        std::string lengths;
        for (std::size_t i = 0; i < message.msg_iovlen; ++i) {
            lengths += (i == 0 ? "" : "+") + std::to_string(message.msg_iov[i].iov_len);
        }
        return lengths;
    }
    /// The first bytes of all parts together.
    struct Limited {
        Limited(const msghdr& whole, std::size_t limit)
            : parts(whole.msg_iov, whole.msg_iov + whole.msg_iovlen), message(whole) {
            message.msg_iov = parts.data();
            for (iovec& part : parts) {
                part.iov_len = std::min(part.iov_len, limit);
                limit -= part.iov_len;
            }
        }
        Limited(const Limited&) = delete;
        Limited& operator=(const Limited&) = delete;

        std::vector<iovec> parts;
        msghdr message;
    };
    /// A result that was asked for is what has happened to the descriptor.
    static int poll(pollfd* entries, nfds_t count, int timeoutMs) {
        bool isReal = false;
        const int result = run("poll", std::to_string(entries->events), [&](std::size_t) {
            isReal = true;
            return ::poll(entries, count, timeoutMs);
        });
        if (!isReal && result > 0) {
            entries->revents = static_cast<short>(result);
            return 1;
        }
        return result;
    }
    void useFiles() {
        use(table.madvise, "madvise", [](void* address, std::size_t length, int advice) {
            return run("madvise", std::to_string(length),
                       [&](std::size_t) { return ::madvise(address, length, advice); });
        });
        use(table.fcntl, "fcntl", &FakeSystem::fcntl);
        use(table.open, "open", &FakeSystem::open);
        use(table.fstat, "fstat", [](int descriptor, Io::Platform::FileStatus* status) {
            return run("fstat", "", [&](std::size_t) { return ::fstat(descriptor, status); });
        });
        use(table.flock, "flock", [](int descriptor, int operation) {
            return run("flock", std::to_string(operation),
                       [&](std::size_t) { return ::flock(descriptor, operation); });
        });
        use(table.close, "close",
            [](int descriptor) { return run("close", "", [&](std::size_t) { return ::close(descriptor); }); });
        use(table.mkdir, "mkdir", [](const char* directory, mode_t mode) {
            return run("mkdir", directory, [&](std::size_t) { return ::mkdir(directory, mode); });
        });
        useNamedFiles();
    }
    void useNamedFiles() {
        use(table.stat, "stat", [](const char* file, Io::Platform::FileStatus* status) {
            return run("stat", nameOf(file), [&](std::size_t) { return ::stat(file, status); });
        });
        use(table.lstat, "lstat", [](const char* file, Io::Platform::FileStatus* status) {
            return run("lstat", nameOf(file), [&](std::size_t) { return ::lstat(file, status); });
        });
        use(table.readlink, "readlink", [](const char* file, char* buffer, std::size_t size) {
            return run("readlink", nameOf(file), [&](std::size_t) { return ::readlink(file, buffer, size); });
        });
        use(table.symlink, "symlink", [](const char* text, const char* file) {
            return run("symlink", text, [&](std::size_t) { return ::symlink(text, file); });
        });
        use(table.unlink, "unlink", [](const char* file) {
            return run("unlink", nameOf(file), [&](std::size_t) { return ::unlink(file); });
        });
        useAccess();
    }
    void useAccess() {
        use(table.fchmod, "fchmod", [](int descriptor, mode_t mode) {
            return run("fchmod", octal(mode), [&](std::size_t) { return ::fchmod(descriptor, mode); });
        });
        use(table.fchownat, "fchownat", [](int descriptor, const char* file, uid_t user, gid_t group, int flags) {
            return run("fchownat", std::to_string(group),
                       [&](std::size_t) { return ::fchownat(descriptor, file, user, group, flags); });
        });
        use(table.chmod, "chmod", [](const char* file, mode_t mode) {
            return run("chmod", octal(mode), [&](std::size_t) { return ::chmod(file, mode); });
        });
        // Returns its reason for a failure, so a failure is an answer that returns something.
        use(table.getgrnam_r, "getgrnam_r",
            [](const char* name, Io::Platform::GroupEntry* entry, char* buffer, std::size_t size,
               Io::Platform::GroupEntry** result) {
                return run("getgrnam_r", std::string(name) + ", " + std::to_string(size),
                           [&](std::size_t) { return ::getgrnam_r(name, entry, buffer, size, result); });
            });
    }
    static std::string octal(mode_t mode) {
        std::ostringstream text;
        text << std::oct << mode;
        return text.str();
    }
    static int fcntl(int descriptor, int command, ...) {
        va_list rest;
        va_start(rest, command);
        const int flags = va_arg(rest, int);
        va_end(rest);
        return run("fcntl", std::to_string(flags),
                   [&](std::size_t) { return ::fcntl(descriptor, command, flags); });
    }
    static int open(const char* file, int flags, ...) {
        va_list rest;
        va_start(rest, flags);
        const unsigned mode = va_arg(rest, unsigned);
        va_end(rest);
        // Whatever lies there, it is not followed, not waited for, and nobody else's.
        const bool isPathAlone = (flags & O_PATH) != 0;
        const int careful = O_CLOEXEC | O_NOFOLLOW | (isPathAlone ? 0 : O_NONBLOCK | O_NOCTTY);
        EXPECT_EQ(flags & careful, careful);
        return run("open", nameOf(file), [&](std::size_t) { return ::open(file, flags, mode); });
    }

    /// Without its folder, which has another name each time.
    static std::string nameOf(const std::string& file) { return file.substr(file.rfind('/') + 1); }

    static std::chrono::steady_clock::time_point now() {
        const auto offset = std::chrono::steady_clock::time_point(instance->offset.load());
        return instance->frozen ? offset : std::chrono::steady_clock::now() + offset.time_since_epoch();
    }

    static inline FakeSystem* instance = nullptr;
    std::atomic<bool> frozen{false};
    std::atomic<std::chrono::steady_clock::duration> offset{std::chrono::steady_clock::duration::zero()};
    Io::Platform::SystemCalls table;
    std::set<std::string> names;
    /// Guards all that follows.
    std::mutex mutex;
    std::map<std::string, std::deque<Answer>> planned;
    std::map<std::string, int> lasting;
    Lines made;
    std::vector<int> waits;
    std::size_t numberOfAction = 0;
    std::function<void()> numberedAction;
};

/// What a call ended with: its result, or the class and message of its exception.
template <class Action>
std::string outcomeOf(Action action) {
    try {
        return action();
    } catch (Io::TimeoutException& e) {
        return "TimeoutException " + e.getMessage();
    } catch (Io::InterruptedException& e) {
        return "InterruptedException " + e.getMessage();
    } catch (Io::BrokenPipeException& e) {
        return "BrokenPipeException " + e.getMessage();
    } catch (Io::ConnectException& e) {
        return "ConnectException " + e.getMessage();
    } catch (Io::BindException& e) {
        return "BindException " + e.getMessage();
    } catch (Io::CvPipeException& e) {
        return "CvPipeException " + e.getMessage();
    } catch (const Io::IllegalStateException& e) {
        return "IllegalStateException " + e.getMessage();
    }
}

/// Gives each test a pipe folder of its own and looks afterwards at what was left behind: no descriptor may be open
/// that was not open before, and no file may be in the folder but those that the test expects.
class FaultTest : public PipeTest {
 protected:
    void TearDown() override {
        EXPECT_EQ(openDescriptors(), descriptorsBefore);
        EXPECT_THAT(folder.names(), ::testing::UnorderedElementsAreArray(expectedFiles));
    }

    const std::set<int> descriptorsBefore = openDescriptors();
    Lines expectedFiles;
};

}  // namespace Testing
}  // namespace Corvane
