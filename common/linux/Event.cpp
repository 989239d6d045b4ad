#include "common/Event.h"

#include "common/LogAndThrow.h"
#include "common/SystemError.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace vela::common {

Event::Event(Mode mode, bool initiallySet) : m_mode(mode) {
    m_handle = ::eventfd(initiallySet ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_handle < 0) {
        LogAndThrow(Win32Error(LastSystemError(), L"Event::Event()"));
    }
}

Event::~Event() {
    Close();
}

bool Event::Close() {
    if (m_handle < 0) {
        return true;
    }
    int fd = m_handle;
    m_handle = -1;
    return ::close(fd) == 0;
}

bool Event::Set() {
    if (m_handle < 0) {
        errno = EBADF;
        return false;
    }
    uint64_t one = 1;
    // A counter that is already non-zero stays signalled; EAGAIN only at the counter's limit.
    return ::write(m_handle, &one, sizeof one) == static_cast<ssize_t>(sizeof one) || errno == EAGAIN;
}

bool Event::Reset() {
    if (m_handle < 0) {
        errno = EBADF;
        return false;
    }
    uint64_t value;
    return ::read(m_handle, &value, sizeof value) == static_cast<ssize_t>(sizeof value) || errno == EAGAIN;
}

WaitResult Event::Wait(uint32_t milliseconds) {
    if (m_handle < 0) {
        errno = EBADF;
        return WaitResult::failed;
    }
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    for (;;) {
        int timeout = -1;
        if (milliseconds != kInfinite) {
            auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            timeout = left > 0 ? static_cast<int>(left) : 0;
        }
        pollfd p{m_handle, POLLIN, 0};
        int n = ::poll(&p, 1, timeout);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            return WaitResult::failed;
        }
        if (n == 0) {
            // poll may wake a little early; only a wait that reached its deadline is a time-out.
            if (milliseconds != kInfinite && Clock::now() < deadline) {
                continue;
            }
            return WaitResult::timeout;
        }
        if ((p.revents & POLLIN) == 0) {
            return WaitResult::failed;
        }
        if (m_mode == Mode::manualReset) {
            return WaitResult::signalled;
        }
        uint64_t value;
        if (::read(m_handle, &value, sizeof value) == static_cast<ssize_t>(sizeof value)) {
            return WaitResult::signalled;
        }
        if (errno != EAGAIN) {
            return WaitResult::failed;
        }
        // Another waiter consumed the signal first: keep waiting for the rest of the time.
    }
}

} // namespace vela::common
