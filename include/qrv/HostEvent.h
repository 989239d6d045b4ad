#pragma once

#include "qrv/Export.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace vela::printer::communication {

namespace detail {
// Logs the warning of a removal that gave up waiting for a subscriber still in a call.
QRV_API void ReportStuckSubscriber(uint64_t token, uint32_t waitedMs);
} // namespace detail

// A thread-safe subscriber list: Add, Remove and Raise may be called from any thread at any
// time, also from inside a subscriber (a subscriber may remove itself or others, or add new ones,
// while it is being called).
//
// Raise calls the subscribers that are present when it starts, in the order they were added,
// on the raising thread, and holds no lock while it calls out. A subscriber removed before its
// turn comes is skipped; one added during a raise is called from the next raise on. If
// subscribers throw, the others are still called and the first exception is rethrown at the end.
//
// Remove: when it returns, the subscriber is not running on any other thread and will not be
// called again. It waits for calls of that subscriber only, at most RemoveWaitMs() (9000 ms
// unless given to the constructor; the gateway's Close has the same bound). A call on the
// removing thread itself (a subscriber removing itself) is not waited for: the removal takes
// effect when that call returns. When the wait runs out, Remove logs a warning and returns; the
// stuck call keeps the handler alive (each raise holds its own reference) and finishes on its
// own. Add and Raise never block except on the brief internal lock.
template <class... Args> class HostEvent {
public:
    using Handler = std::function<void(Args...)>;
    using Token = uint64_t; // 0 is never issued
    static constexpr uint32_t kDefaultRemoveWaitMs = 9000;

    explicit HostEvent(uint32_t removeWaitMs = kDefaultRemoveWaitMs) : m_removeWaitMs(removeWaitMs) {}
    // A raise still running elsewhere calls no further subscriber of a destroyed event.
    ~HostEvent() {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& subscriber : m_subscribers) {
            std::lock_guard<std::mutex> subscriberLock(subscriber->mutex);
            subscriber->active = false;
        }
    }
    HostEvent(const HostEvent&) = delete;
    HostEvent& operator=(const HostEvent&) = delete;

    // Returns the token to remove the subscriber with; an empty handler is not added (0).
    Token Add(Handler handler) {
        if (!handler) {
            return 0;
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        Token token = m_nextToken++;
        m_subscribers.push_back(std::make_shared<Subscriber>(token, std::move(handler)));
        return token;
    }

    // False when the token is unknown (never issued, or already removed). A token removed
    // before whose subscriber is still in a call elsewhere (it removed itself, or that removal
    // gave up) is waited for all the same: whichever removal returns last, the caller of each
    // may rely on the subscriber having ended.
    bool Remove(Token token) {
        std::shared_ptr<Subscriber> removed;
        bool known = false;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            for (auto it = m_subscribers.begin(); it != m_subscribers.end(); ++it) {
                if ((*it)->token == token) {
                    removed = *it;
                    m_subscribers.erase(it);
                    known = true;
                    break;
                }
            }
            // Pruned below once no raise holds it any more; kept from the same moment the
            // subscriber leaves the list, so no later removal can miss a call in progress.
            for (auto it = m_leaving.begin(); it != m_leaving.end();) {
                const std::shared_ptr<Subscriber> leaving = it->lock();
                if (!leaving) {
                    it = m_leaving.erase(it);
                    continue;
                }
                if (!removed && leaving->token == token) {
                    removed = leaving;
                }
                ++it;
            }
            if (known) {
                m_leaving.push_back(removed);
            }
        }
        if (!removed) {
            return false;
        }
        std::unique_lock<std::mutex> lock(removed->mutex);
        removed->active = false;
        const auto self = std::this_thread::get_id();
        const bool ended = removed->ended.wait_for(lock, std::chrono::milliseconds(m_removeWaitMs), [&] {
            for (const auto& caller : removed->callers) {
                if (caller != self) {
                    return false;
                }
            }
            return true;
        });
        lock.unlock();
        if (!ended) {
            detail::ReportStuckSubscriber(token, m_removeWaitMs);
        }
        return known;
    }

    void Raise(Args... args) const {
        RaiseWhile([] { return true; }, args...);
    }

    // Raise that stops before the next subscriber once `keepGoing()` answers false (for a raise
    // whose source was closed meanwhile).
    template <class KeepGoing> void RaiseWhile(const KeepGoing& keepGoing, Args... args) const {
        std::vector<std::shared_ptr<Subscriber>> snapshot;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            snapshot = m_subscribers;
        }
        // From here on only the snapshot is used: the event itself may be destroyed while a
        // subscriber runs (its owner was closed by a removal that gave up waiting).
        std::exception_ptr first;
        for (const auto& subscriber : snapshot) {
            if (!keepGoing()) {
                break;
            }
            if (!subscriber->Enter()) {
                continue;
            }
            try {
                subscriber->handler(args...);
            } catch (...) {
                if (!first) {
                    first = std::current_exception();
                }
            }
            subscriber->Leave();
        }
        if (first) {
            std::rethrow_exception(first);
        }
    }

    size_t Count() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_subscribers.size();
    }

    uint32_t RemoveWaitMs() const { return m_removeWaitMs; }

private:
    struct Subscriber {
        Subscriber(Token t, Handler h) : token(t), handler(std::move(h)) {}
        // Starts a call on this thread unless the subscriber was removed.
        bool Enter() {
            std::lock_guard<std::mutex> lock(mutex);
            if (active) {
                callers.push_back(std::this_thread::get_id());
            }
            return active;
        }
        void Leave() {
            {
                std::lock_guard<std::mutex> lock(mutex);
                for (auto it = callers.begin(); it != callers.end(); ++it) {
                    if (*it == std::this_thread::get_id()) {
                        callers.erase(it);
                        break;
                    }
                }
            }
            ended.notify_all();
        }

        const Token token;
        const Handler handler;
        std::mutex mutex; // guards active and callers
        std::condition_variable ended;
        bool active = true;
        std::vector<std::thread::id> callers; // threads inside a call to it
    };

    const uint32_t m_removeWaitMs;
    mutable std::mutex m_mutex;
    std::vector<std::shared_ptr<Subscriber>> m_subscribers;
    std::vector<std::weak_ptr<Subscriber>> m_leaving; // removed, perhaps still in a call
    Token m_nextToken = 1;
};

} // namespace vela::printer::communication
