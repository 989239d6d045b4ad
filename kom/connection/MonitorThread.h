#pragma once

#include "common/NotCopyable.h"

#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace vela::kom {

// The system errors a monitor reports for a wait on a stop event that is gone, and for a wait on
// a thread that ran out of time: the codes a Windows wait would leave, their errno kin elsewhere.
#ifdef _WIN32
constexpr uint32_t kInvalidHandleError = 6; // ERROR_INVALID_HANDLE
constexpr uint32_t kWaitTimeoutError = 258; // WAIT_TIMEOUT
#else
constexpr uint32_t kInvalidHandleError = EBADF;
constexpr uint32_t kWaitTimeoutError = ETIMEDOUT;
#endif

// The handle of one background thread, with what the monitors need from a system thread
// handle: "is it still active" (an exit code check) and a wait with a time limit. A thread that
// outlives the wait can be forgotten without being joined, as closing a system handle would.
//
// Not thread-safe: the owner serialises calls (the monitors guard their handle with a mutex, or
// move it out of the shared state and use it alone). The body must capture everything it touches
// by value or shared ownership, because a thread that was forgotten while running may outlive
// the owner.
class MonitorThread : vela::common::NotCopyable {
public:
    MonitorThread() = default;
    MonitorThread(MonitorThread&& other) noexcept;
    MonitorThread& operator=(MonitorThread&& other) noexcept; // forgets its own thread first
    ~MonitorThread();                                         // Close()

    // Starts `body` on a new thread (any previous one is forgotten first). Returns 0, or the
    // system's error code when no thread could be made.
    uint32_t Start(std::function<void()> body);

    // A thread was started and not yet closed (it may have ended).
    bool Exists() const { return m_shared != nullptr; }
    // The thread exists and its body has not returned yet.
    bool IsStillActive() const;
    // The caller is this thread (a wait for it would wait for itself).
    bool IsCurrentThread() const;
    std::thread::id Id() const { return m_id; }
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
    std::thread::id m_id; // kept after a detach, so that the thread can still recognise itself
};

} // namespace vela::kom
