#include "SpawnedTool.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace vela::test {

namespace {

using Clock = std::chrono::steady_clock;

int MillisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

} // namespace

SpawnedTool::SpawnedTool(const std::vector<std::string>& arguments, Output output) {
    // The argument vector is built before fork: the child of a threaded process may only exec.
    std::vector<std::string> args{QRVCTL_PATH};
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
    } else {
        int out[2], err[2];
        if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
            throw std::runtime_error(std::string("pipe2: ") + std::strerror(errno));
        }
        m_pid = ::fork();
        if (m_pid == 0) {
            const int null = ::open("/dev/null", O_RDONLY);
            ::dup2(null, STDIN_FILENO);
            ::dup2(out[1], STDOUT_FILENO);
            ::dup2(err[1], STDERR_FILENO);
        }
        ::close(out[1]);
        ::close(err[1]);
        m_fds[0] = out[0];
        m_fds[1] = err[0];
    }
    if (m_pid == 0) {
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }
    if (m_pid < 0) {
        throw std::runtime_error(std::string("fork: ") + std::strerror(errno));
    }
}

SpawnedTool::~SpawnedTool() {
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

bool SpawnedTool::ReadSome(int timeoutMs) {
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

bool SpawnedTool::ReadUntil(const std::string& part, uint32_t timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (m_text[0].find(part) == std::string::npos) {
        if (MillisecondsUntil(deadline) == 0 || !ReadSome(MillisecondsUntil(deadline))) {
            return false;
        }
    }
    return true;
}

bool SpawnedTool::ReadToEnd(uint32_t timeoutMs) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (MillisecondsUntil(deadline) > 0 && ReadSome(MillisecondsUntil(deadline))) {
    }
    return m_fds[0] < 0 && m_fds[1] < 0;
}

int SpawnedTool::Wait(uint32_t timeoutMs) {
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

void SpawnedTool::Signal(int signal) {
    ::kill(m_pid, signal);
}

} // namespace vela::test
