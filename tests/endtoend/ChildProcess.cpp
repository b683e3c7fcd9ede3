#include "tests/endtoend/ChildProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

extern char** environ;

namespace Corvane {
namespace Testing {

namespace {

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

}  // namespace

ChildProcess::ChildProcess(const std::string& program, const std::string& argument) {
    int childInput = -1;
    int childOutput = -1;
    makePair(input, childInput);
    makePair(output, childOutput);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, childInput, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, childOutput, STDOUT_FILENO);
    std::string name = program;
    std::string text = argument;
    char* arguments[] = {name.data(), text.data(), nullptr};
    const int result = posix_spawn(&process, program.c_str(), &actions, nullptr, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    close(childInput);
    close(childOutput);
    require(result == 0, "the process does not start");
    watchdog = std::thread([this] { watch(); });
}

ChildProcess::~ChildProcess() {
    kill();
    wait();
    watchdog.join();
    endInput();
    close(output);
}

void ChildProcess::watch() {
    std::unique_lock<std::mutex> guard(lock);
    if (!over.wait_for(guard, LIMIT, [this] { return process == 0; })) {
        ::kill(process, SIGKILL);
    }
}

void ChildProcess::tell(const std::string& line) {
    const std::string text = line + "\n";
    send(input, text.data(), text.size(), MSG_NOSIGNAL);
}

std::string ChildProcess::hear() {
    std::string::size_type end = held.find('\n');
    while (end == std::string::npos) {
        char block[4096];
        const ssize_t count = read(output, block, sizeof block);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return "end";
        }
        held.append(block, static_cast<std::size_t>(count));
        end = held.find('\n');
    }
    const std::string line = held.substr(0, end);
    held.erase(0, end + 1);
    return line;
}

void ChildProcess::kill() {
    signal(SIGKILL);
}

void ChildProcess::signal(int number) {
    const std::lock_guard<std::mutex> guard(lock);
    if (process != 0) {
        ::kill(process, number);
    }
}

int ChildProcess::finish() {
    endInput();
    return wait();
}

void ChildProcess::endInput() {
    if (input >= 0) {
        close(input);
        input = -1;
    }
}

int ChildProcess::wait() {
    pid_t waited = 0;
    {
        const std::lock_guard<std::mutex> guard(lock);
        waited = process;
    }
    if (waited == 0) {
        return 0;
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
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace Testing
}  // namespace Corvane
