#include "support/TestSupport.h"

#include "BuiltProgram.h"

#include <windows.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace vela::test {
namespace {

// Exit code of a killed child, as a shell reports SIGKILL on Linux.
constexpr UINT kKilledExitCode = 128 + 9;

} // namespace

struct ChildProcess::Impl {
    StartedProgram started;

    // A thread reads the output, because anonymous pipes have no overlapped reads to time out.
    std::mutex mutex;
    std::condition_variable arrived;
    std::string pending;
    bool ended = false;
    std::thread reader;

    void ReadOutput() {
        char buffer[512];
        DWORD count = 0;
        while (::ReadFile(started.output.Get(), buffer, sizeof buffer, &count, nullptr) && count > 0) {
            std::lock_guard<std::mutex> lock(mutex);
            pending.append(buffer, count);
            arrived.notify_all();
        }
        std::lock_guard<std::mutex> lock(mutex);
        ended = true;
        arrived.notify_all();
    }
};

ChildProcess::ChildProcess(const std::vector<std::string>& helperArgs) : m_impl(std::make_unique<Impl>()) {
    m_impl->started = StartBuiltProgram(QRV_TEST_HELPER_PATH, helperArgs, false);
    m_impl->reader = std::thread([impl = m_impl.get()] { impl->ReadOutput(); });
}

ChildProcess::~ChildProcess() {
    Kill();
    ::WaitForSingleObject(m_impl->started.process.Get(), INFINITE);
    if (m_impl->reader.joinable()) {
        m_impl->reader.join();
    }
}

std::string ChildProcess::ReadLine(uint32_t timeoutMs) {
    std::unique_lock<std::mutex> lock(m_impl->mutex);
    auto& pending = m_impl->pending;
    const bool ready = m_impl->arrived.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        return pending.find('\n') != std::string::npos || m_impl->ended;
    });
    if (!ready) {
        return std::string();
    }
    const size_t eol = pending.find('\n');
    std::string line;
    if (eol == std::string::npos) {
        line.swap(pending); // end of output: hand out an unterminated last line, then nothing
    } else {
        line = pending.substr(0, eol);
        pending.erase(0, eol + 1);
    }
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
    if (Running()) {
        ::TerminateProcess(m_impl->started.process.Get(), kKilledExitCode);
    }
}

bool ChildProcess::Running() {
    return ::WaitForSingleObject(m_impl->started.process.Get(), 0) == WAIT_TIMEOUT;
}

} // namespace vela::test
