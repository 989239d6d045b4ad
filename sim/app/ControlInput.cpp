#include "sim/app/ControlInput.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#ifdef _WIN32
#include <io.h>
#define QRV_READ_STDIN(buffer, size) _read(0, buffer, static_cast<unsigned>(size))
#else
#include <unistd.h>
#define QRV_READ_STDIN(buffer, size) ::read(0, buffer, size)
#endif

namespace vela::sim {

struct ControlInput::Shared {
    std::mutex mutex;
    std::condition_variable arrived;
    std::deque<std::string> lines;
};

void ControlInput::ReadLines(const std::shared_ptr<Shared>& shared) {
    std::string pending;
    char buffer[512];
    for (;;) {
        const auto count = QRV_READ_STDIN(buffer, sizeof buffer);
        if (count <= 0) {
            return; // end of input or an error: no more commands
        }
        pending.append(buffer, static_cast<size_t>(count));
        for (size_t end; (end = pending.find('\n')) != std::string::npos; pending.erase(0, end + 1)) {
            std::string line = pending.substr(0, end);
            if (!line.empty() && line.back() == '\r') {
                line.pop_back();
            }
            std::lock_guard<std::mutex> lock(shared->mutex);
            shared->lines.push_back(std::move(line));
            shared->arrived.notify_one();
        }
    }
}

ControlInput::ControlInput() : m_shared(std::make_shared<Shared>()) {
    std::thread([shared = m_shared] { ReadLines(shared); }).detach();
}

std::optional<std::string> ControlInput::WaitLine(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_shared->mutex);
    if (!m_shared->arrived.wait_for(lock, timeout, [&] { return !m_shared->lines.empty(); })) {
        return std::nullopt;
    }
    std::string line = std::move(m_shared->lines.front());
    m_shared->lines.pop_front();
    return line;
}

} // namespace vela::sim
