#include "tests/support_code/StartedProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <stdexcept>
#include <thread>

extern char** environ;

namespace Corvane {
namespace Testing {

namespace {

static_assert(StartedProcess::KILLED == -SIGKILL, "the number of the signal that ended it, negative");

void require(bool succeeded, const char* what) {
    if (!succeeded) {
        throw std::runtime_error(what);
    }
}

/// Two connected sockets, which do not pass on to other processes. Sockets, because writing to one whose other end
/// is gone can be told not to raise a signal.
void makePair(int& own, int& others) {
    int pair[2] = {-1, -1};
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair) == 0, "no socket pair");
    own = pair[0];
    others = pair[1];
}

class Process : public StartedProcess {
 public:
    Process(const std::vector<std::string>& command, const std::string& errorFile) {
        int childInput = -1;
        int childOutput = -1;
        makePair(input, childInput);
        makePair(output, childOutput);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, childInput, STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, childOutput, STDOUT_FILENO);
        if (!errorFile.empty()) {
            posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errorFile.c_str(),
                                             O_WRONLY | O_CREAT | O_TRUNC, 0600);
        }
        std::vector<std::string> texts = command;
        std::vector<char*> arguments;
        for (std::string& text : texts) {
            arguments.push_back(text.data());
        }
        arguments.push_back(nullptr);
        const int result = posix_spawn(&process, arguments.front(), &actions, nullptr, arguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(childInput);
        close(childOutput);
        require(result == 0, "the process does not start");
        number = process;
        watchdog = std::thread([this] { watch(); });
    }

    ~Process() override {
        kill();
        wait();
        watchdog.join();
        endInput();
        close(output);
    }

    void write(const std::string& text) override { send(input, text.data(), text.size(), MSG_NOSIGNAL); }

    void endInput() override {
        if (input >= 0) {
            close(input);
            input = -1;
        }
    }

    bool readMore(std::string& text) override {
        char block[4096];
        ssize_t count = -1;
        do {
            count = read(output, block, sizeof block);
        } while (count < 0 && errno == EINTR);
        text.append(block, count > 0 ? static_cast<std::size_t>(count) : 0);
        return count > 0;
    }

    void kill() override {
        const std::lock_guard<std::mutex> guard(lock);
        if (process != 0) {
            ::kill(process, SIGKILL);
        }
    }

    int wait() override {
        pid_t waited = 0;
        {
            const std::lock_guard<std::mutex> guard(lock);
            waited = process;
        }
        if (waited == 0) {
            return result;
        }
        // Without reaping it, so that its number stays its own until the watchdog knows.
        siginfo_t info = {};
        while (waitid(P_PID, static_cast<id_t>(waited), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
        }
        int status = 0;
        {
            const std::lock_guard<std::mutex> guard(lock);
            waitpid(waited, &status, 0);
            process = 0;
        }
        over.notify_all();
        result = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
        return result;
    }

    unsigned long id() const override { return static_cast<unsigned long>(number); }

 private:
    void watch() {
        std::unique_lock<std::mutex> guard(lock);
        if (!over.wait_for(guard, LIMIT, [this] { return process == 0; })) {
            ::kill(process, SIGKILL);
        }
    }

    int input = -1;
    int output = -1;
    pid_t number = 0;
    int result = 0;
    /// Guards process, which is 0 once the process was waited for.
    std::mutex lock;
    std::condition_variable over;
    pid_t process = 0;
    std::thread watchdog;
};

}  // namespace

std::unique_ptr<StartedProcess> StartedProcess::start(const std::vector<std::string>& command,
                                                      const std::string& errorFile) {
    return std::make_unique<Process>(command, errorFile);
}

}  // namespace Testing
}  // namespace Corvane
