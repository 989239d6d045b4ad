#include "InterruptSignal.h"

#include <atomic>
#include <csignal>
#include <thread>

namespace vela::qrvctl {

namespace {

std::atomic<bool> g_raised{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the signal handler needs a lock-free flag");

extern "C" void OnInterrupt(int signal) {
    g_raised.store(true);
    // Some C libraries reset the handler after one delivery: keep catching until the guard ends.
    std::signal(signal, OnInterrupt);
}

std::atomic<bool> g_active{false};

} // namespace

InterruptSignal::InterruptSignal() {
    g_raised.store(false);
    m_previousInt = std::signal(SIGINT, OnInterrupt);
    m_previousTerm = std::signal(SIGTERM, OnInterrupt);
    g_active.store(true);
}

InterruptSignal::~InterruptSignal() {
    g_active.store(false);
    std::signal(SIGINT, m_previousInt == SIG_ERR ? SIG_DFL : m_previousInt);
    std::signal(SIGTERM, m_previousTerm == SIG_ERR ? SIG_DFL : m_previousTerm);
}

bool InterruptSignal::Active() {
    return g_active.load();
}

bool InterruptSignal::Raised() const {
    return g_raised.load();
}

bool InterruptSignal::WaitFor(std::chrono::milliseconds timeout) const {
    // A signal handler can only set a flag; polling it in short steps keeps the wait simple and
    // the reaction under 50 ms.
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!g_raised.load()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

} // namespace vela::qrvctl
