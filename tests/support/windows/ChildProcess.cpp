#include "support/BuildPaths.h"
#include "support/TestSupport.h"

#include "BuiltProgram.h"

#include <windows.h>

#include <chrono>
#include <thread>

namespace vela::test {

struct ChildProcess::Impl {
    StartedProgram started;
    std::string pending;
    bool ended = false;

    // Anonymous pipes have no reads that time out: only what the pipe already holds is read.
    void ReadAvailable() {
        DWORD available = 0;
        if (!::PeekNamedPipe(started.output.Get(), nullptr, 0, nullptr, &available, nullptr)) {
            ended = true; // drained, and the child's end is closed
            return;
        }
        std::string buffer(available, '\0');
        DWORD count = 0;
        if (available > 0 && ::ReadFile(started.output.Get(), buffer.data(), available, &count, nullptr)) {
            pending.append(buffer, 0, count);
        }
    }
};

ChildProcess::ChildProcess(const std::vector<std::string>& helperArgs) : m_impl(std::make_unique<Impl>()) {
    m_impl->started = StartBuiltProgram(kTestHelperPath, helperArgs, false);
}

ChildProcess::~ChildProcess() {
    Kill();
    ::WaitForSingleObject(m_impl->started.process.Get(), INFINITE);
}

std::string ChildProcess::ReadLine(uint32_t timeoutMs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    std::string& pending = m_impl->pending;
    for (m_impl->ReadAvailable(); pending.find('\n') == std::string::npos && !m_impl->ended;
         m_impl->ReadAvailable()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return std::string();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    // At the end of the output an unterminated last line comes out whole, then nothing.
    const size_t eol = pending.find('\n');
    std::string line = pending.substr(0, eol);
    pending.erase(0, eol == std::string::npos ? eol : eol + 1);
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

int ChildProcess::Wait(uint32_t timeoutMs) {
    if (::WaitForSingleObject(m_impl->started.process.Get(), timeoutMs) != WAIT_OBJECT_0) {
        return -1;
    }
    DWORD code = 0;
    ::GetExitCodeProcess(m_impl->started.process.Get(), &code);
    return static_cast<int>(code);
}

void ChildProcess::Kill() {
    // As a shell reports SIGKILL; a process that already ended keeps its own exit code.
    ::TerminateProcess(m_impl->started.process.Get(), 128 + 9);
}

bool ChildProcess::Running() {
    return ::WaitForSingleObject(m_impl->started.process.Get(), 0) == WAIT_TIMEOUT;
}

} // namespace vela::test
