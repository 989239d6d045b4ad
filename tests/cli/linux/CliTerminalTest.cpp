// The executable on a pseudo-terminal (progress bars) and stopped by a real SIGINT (the watch).
#include "CliTestSupport.h"

#include "common/StringConverter.h"
#include "support/TestSupport.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vela::test {
namespace {

using Clock = std::chrono::steady_clock;

// qrvctl started with its output on `outputFd` (a pipe or a terminal), read as it comes.
class SpawnedTool {
public:
    // On a new pseudo-terminal (standard output and error both on it).
    static SpawnedTool OnTerminal(const std::vector<std::string>& arguments) {
        Command command(arguments);
        int master = -1;
        winsize size{};
        size.ws_col = 100;
        size.ws_row = 30;
        const pid_t pid = ::forkpty(&master, nullptr, nullptr, &size);
        if (pid == 0) {
            command.Exec();
        }
        return SpawnedTool(pid, master);
    }
    // With standard output on a pipe (standard error goes to the test's).
    static SpawnedTool Piped(const std::vector<std::string>& arguments) {
        Command command(arguments);
        int out[2];
        if (::pipe(out) != 0) {
            throw std::runtime_error("pipe");
        }
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::dup2(out[1], STDOUT_FILENO);
            ::close(out[0]);
            ::close(out[1]);
            command.Exec();
        }
        ::close(out[1]);
        return SpawnedTool(pid, out[0]);
    }
    SpawnedTool(SpawnedTool&& other) noexcept : m_pid(other.m_pid), m_fd(other.m_fd) {
        other.m_pid = -1;
        other.m_fd = -1;
    }
    ~SpawnedTool() {
        if (m_pid > 0 && Wait(0) < 0) {
            ::kill(m_pid, SIGKILL);
            Wait(5000);
        }
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }

    // Reads until `part` has arrived (true) or `timeoutMs` passed or the output ended (false).
    bool ReadUntil(const std::string& part, uint32_t timeoutMs) {
        const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
        while (m_text.find(part) == std::string::npos) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
            if (left <= 0 || !ReadSome(static_cast<int>(left))) {
                return false;
            }
        }
        return true;
    }
    void ReadToEnd(uint32_t timeoutMs) {
        const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
        for (;;) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
            if (left <= 0 || !ReadSome(static_cast<int>(left))) {
                return;
            }
        }
    }
    // The exit code, or -1 while it still runs after `timeoutMs`.
    int Wait(uint32_t timeoutMs) {
        const auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
        for (;;) {
            int status = 0;
            const pid_t r = ::waitpid(m_pid, &status, WNOHANG);
            if (r == m_pid) {
                m_pid = -1;
                return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            }
            if (Clock::now() >= end) {
                return -1;
            }
            ::usleep(10000);
        }
    }
    void Signal(int signal) { ::kill(m_pid, signal); }
    const std::string& Text() const { return m_text; }

private:
    SpawnedTool(pid_t pid, int fd) : m_pid(pid), m_fd(fd) {}

    // The argument vector, built before fork: the child of a threaded process may only exec.
    struct Command {
        explicit Command(const std::vector<std::string>& arguments) : args{QRVCTL_PATH} {
            args.insert(args.end(), arguments.begin(), arguments.end());
            for (auto& a : args) {
                argv.push_back(a.data());
            }
            argv.push_back(nullptr);
        }
        [[noreturn]] void Exec() {
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        std::vector<std::string> args;
        std::vector<char*> argv;
    };

    bool ReadSome(int timeoutMs) {
        pollfd p{m_fd, POLLIN, 0};
        const int n = ::poll(&p, 1, timeoutMs);
        if (n <= 0) {
            return n < 0 && errno == EINTR;
        }
        char buffer[4096];
        const ssize_t got = ::read(m_fd, buffer, sizeof buffer);
        if (got <= 0) {
            return false; // EIO on a terminal whose program has ended
        }
        m_text.append(buffer, static_cast<size_t>(got));
        return true;
    }

    pid_t m_pid;
    int m_fd;
    std::string m_text;
};

class CliTerminal : public ::testing::Test {
protected:
    CliTerminal()
        : m_printer([] {
              vela::sim::Simulator::Options options;
              options.name = "Terminal Printer";
              return options;
          }()),
          m_entry("QRV_VIRTUAL_PRINTERS", vela::common::StringConverter::FromUtf8(m_printer.EntryText())) {}

    vela::sim::Simulator m_printer;
    ScopedEnvironment m_entry;
};

TEST_F(CliTerminal, TransfersDrawABarOnATerminal) {
    TempDir host;
    WriteHostFile(host.File("big.bin"), TestBytes(2 << 20, 5));
    SpawnedTool tool = SpawnedTool::OnTerminal({"put", host.File("big.bin"), "/mnt/data/images/big.bin"});
    tool.ReadToEnd(30000);
    ASSERT_EQ(tool.Wait(5000), 0) << tool.Text();
    const std::string& text = tool.Text();
    EXPECT_NE(text.find("\rput big.bin  ["), std::string::npos) << text;
    EXPECT_NE(text.find("#]  100%"), std::string::npos) << text;
    EXPECT_NE(text.find("2.0 MiB / 2.0 MiB"), std::string::npos) << text;
    // No plain progress lines on a terminal.
    EXPECT_EQ(text.find("bytes (100%)"), std::string::npos) << text;
}

TEST_F(CliTerminal, WatchStreamsEventsAndEndsCleanlyOnSigint) {
    SpawnedTool tool = SpawnedTool::Piped({"--json", "status", "--watch"});
    ASSERT_TRUE(tool.ReadUntil("\"event\":\"snapshot\"", 20000)) << tool.Text();
    m_printer.Printer().SetCutterJammed(true);
    ASSERT_TRUE(tool.ReadUntil("\"issue\":\"cutterJammedOrLabelNotTaken\"", 20000)) << tool.Text();
    ASSERT_TRUE(tool.ReadUntil("\"cutter\":\"jammed\"", 20000)) << tool.Text();
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(10000), 0);
    tool.ReadToEnd(1000);
    for (size_t start = 0; start < tool.Text().size();) {
        const size_t end = tool.Text().find('\n', start);
        EXPECT_TRUE(nlohmann::json::accept(tool.Text().substr(start, end - start)));
        start = end == std::string::npos ? tool.Text().size() : end + 1;
    }
}

} // namespace
} // namespace vela::test
