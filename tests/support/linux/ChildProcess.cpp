#include "support/TestSupport.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace vela::test {

struct ChildProcess::Impl {
    pid_t pid = -1;
    int output = -1; // read end of the child's standard output
    int input = -1;  // write end of the child's standard input; closing it tells the child to end
    std::string pending;
    bool reaped = false;
    int exitCode = -1;

    // Collects the child's status without blocking; true once it has ended.
    bool Reap(int options) {
        if (reaped) {
            return true;
        }
        int status = 0;
        pid_t r;
        do {
            r = ::waitpid(pid, &status, options);
        } while (r < 0 && errno == EINTR);
        if (r != pid) {
            return false;
        }
        reaped = true;
        // A child killed by a signal reports 128 + the signal, as a shell would.
        exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return true;
    }
};

ChildProcess::ChildProcess(const std::vector<std::string>& helperArgs) : m_impl(std::make_unique<Impl>()) {
    // Both pipes are close-on-exec in this process, so children started later (by other tests or
    // threads) never inherit them; dup2 in the file actions clears the flag on the child's copy.
    int out[2];
    int in[2];
    if (::pipe2(out, O_CLOEXEC) != 0) {
        throw std::runtime_error(std::string("pipe2: ") + std::strerror(errno));
    }
    if (::pipe2(in, O_CLOEXEC) != 0) {
        ::close(out[0]);
        ::close(out[1]);
        throw std::runtime_error(std::string("pipe2: ") + std::strerror(errno));
    }
    std::vector<std::string> args{QRV_TEST_HELPER_PATH};
    args.insert(args.end(), helperArgs.begin(), helperArgs.end());
    std::vector<char*> argv;
    for (auto& a : args) {
        argv.push_back(a.data());
    }
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    pid_t pid = -1;
    int rc = ::posix_spawn(&pid, args[0].c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(in[0]);
    ::close(out[1]);
    if (rc != 0) {
        ::close(in[1]);
        ::close(out[0]);
        throw std::runtime_error("posix_spawn " + args[0] + ": " + std::strerror(rc));
    }
    m_impl->pid = pid;
    m_impl->output = out[0];
    m_impl->input = in[1];
}

ChildProcess::~ChildProcess() {
    Kill();
    m_impl->Reap(0);
    if (m_impl->output >= 0) {
        ::close(m_impl->output);
    }
    ::close(m_impl->input);
}

std::string ChildProcess::ReadLine(uint32_t timeoutMs) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    auto& pending = m_impl->pending;
    for (;;) {
        auto eol = pending.find('\n');
        if (eol != std::string::npos) {
            std::string line = pending.substr(0, eol);
            pending.erase(0, eol + 1);
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            return line;
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0 || m_impl->output < 0) {
            return std::string();
        }
        pollfd p{m_impl->output, POLLIN, 0};
        int n = ::poll(&p, 1, static_cast<int>(left));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            return std::string();
        }
        char buffer[512];
        ssize_t got = ::read(m_impl->output, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            // End of output: hand out an unterminated last line, then nothing.
            std::string rest;
            rest.swap(pending);
            ::close(m_impl->output);
            m_impl->output = -1;
            return rest;
        }
        pending.append(buffer, static_cast<size_t>(got));
    }
}

int ChildProcess::Wait(uint32_t timeoutMs) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!m_impl->Reap(WNOHANG)) {
        if (Clock::now() >= deadline) {
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return m_impl->exitCode;
}

void ChildProcess::Kill() {
    if (!m_impl->Reap(WNOHANG)) {
        ::kill(m_impl->pid, SIGKILL);
    }
}

bool ChildProcess::Running() {
    return !m_impl->Reap(WNOHANG);
}

} // namespace vela::test
