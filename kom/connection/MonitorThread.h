#pragma once

#include "common/NotCopyable.h"

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace vela::kom {

// The handle of one background thread, with what the monitors need from a system thread
// handle: "is it still active" (an exit code check) and a wait with a time limit. A thread that
// outlives the wait can be forgotten without being joined, as closing a system handle would.
//
// Not thread-safe: the owner serialises calls (the monitors guard their handle with a mutex).
// The body must capture everything it touches by value or shared ownership, because a thread
// that was forgotten while running may outlive the owner.
class MonitorThread : vela::common::NotCopyable {
public:
    MonitorThread() = default;
    ~MonitorThread(); // Close()

    // Starts `body` on a new thread (any previous one is forgotten first). Returns 0, or the
    // system's error code when no thread could be made.
    uint32_t Start(std::function<void()> body);

    // A thread was started and not yet closed (it may have ended).
    bool Exists() const { return m_shared != nullptr; }
    // The thread exists and its body has not returned yet.
    bool IsStillActive() const;
    // Blocks until the body returned or `milliseconds` passed; true when it returned. A thread
    // that does not exist counts as ended.
    bool Wait(uint32_t milliseconds) const;
    // Forgets the thread: joins it when it has ended, otherwise lets it run on detached.
    void Close();

private:
    struct Shared {
        std::mutex mutex;
        std::condition_variable ended;
        bool active = true;
    };
    std::shared_ptr<Shared> m_shared;
    std::thread m_thread;
};

} // namespace vela::kom
