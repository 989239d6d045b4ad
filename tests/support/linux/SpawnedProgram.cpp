#include "support/linux/SpawnedProgram.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace vela::test {

namespace {

using Clock = std::chrono::steady_clock;

int MillisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

} // namespace

SpawnedProgram::SpawnedProgram(const std::string& program, const std::vector<std::string>& arguments,
                               Output output) {
    // The argument vector is built before fork: the child of a threaded process may only exec.
    std::vector<std::string> args{program};
    args.insert(args.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (auto& a : args) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);
    if (output == Output::terminal) {
        winsize size{};
        size.ws_col = 100;
        size.ws_row = 30;
        m_pid = ::forkpty(&m_fds[0], nullptr, nullptr, &size);
        if (m_pid == 0) {
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        if (m_pid < 0) {
            throw std::runtime_error(std::string("forkpty: ") + std::strerror(errno));
        }
        return;
    }
    // Close-on-exec, so that children started by other threads never inherit them.
    int out[2], err[2];
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("pipe2: ") + std::strerror(errno));
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    const int result = ::posix_spawn(&m_pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    ::close(err[1]);
    m_fds[0] = out[0];
    m_fds[1] = err[0];
    if (result != 0) {
        m_pid = -1;
        throw std::runtime_error("posix_spawn " + program + ": " + std::strerror(result));
    }
}

SpawnedProgram::~SpawnedProgram() {
    if (m_pid > 0 && Wait(0) < 0) {
        ::kill(m_pid, SIGKILL);
        Wait(5000);
    }
    for (int fd : m_fds) {
        if (fd >= 0) {
            ::close(fd);
        }
    }
}

bool SpawnedProgram::ReadSome(int timeoutMs) {
    pollfd fds[2] = {{m_fds[0], POLLIN, 0}, {m_fds[1], POLLIN, 0}};
    if (m_fds[0] < 0 && m_fds[1] < 0) {
        return false;
    }
    const int n = ::poll(fds, 2, timeoutMs);
    if (n <= 0) {
        return n < 0 && errno == EINTR;
    }
    for (int i = 0; i < 2; ++i) {
        if (fds[i].fd < 0 || fds[i].revents == 0) {
            continue;
        }
        char buffer[4096];
        const ssize_t got = ::read(fds[i].fd, buffer, sizeof buffer);
        if (got > 0) {
            m_text[i].append(buffer, static_cast<size_t>(got));
        } else if (got == 0 || errno != EINTR) { // the end, or EIO on a terminal whose program ended
            ::close(m_fds[i]);
            m_fds[i] = -1;
        }
    }
    return true;
}

bool SpawnedProgram::ReadUntil(const std::string& part, uint32_t timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (m_text[0].find(part) == std::string::npos) {
        if (MillisecondsUntil(deadline) == 0 || !ReadSome(MillisecondsUntil(deadline))) {
            return false;
        }
    }
    return true;
}

bool SpawnedProgram::ReadToEnd(uint32_t timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (MillisecondsUntil(deadline) > 0 && ReadSome(MillisecondsUntil(deadline))) {
    }
    return m_fds[0] < 0 && m_fds[1] < 0;
}

int SpawnedProgram::Wait(uint32_t timeoutMs) {
    if (m_pid <= 0) {
        return m_exitCode;
    }
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        int status = 0;
        if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_pid = -1;
            m_exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            return m_exitCode;
        }
        if (Clock::now() >= deadline) {
            return -1;
        }
        ::usleep(10000);
    }
}

void SpawnedProgram::Signal(int signal) {
    if (m_pid > 0) { // never -1 once reaped: that would signal every process
        ::kill(m_pid, signal);
    }
}

} // namespace vela::test
