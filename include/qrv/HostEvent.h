#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace vela::printer::communication {

// A thread-safe subscriber list: Add, Remove and Raise may be called from any thread at any
// time, also from inside a subscriber (a subscriber may remove itself or others, or add new ones,
// while it is being called).
//
// Raise calls the subscribers that are present when it starts, in the order they were added,
// on the raising thread, and holds no lock while it calls out. A subscriber removed before its
// turn comes is skipped; one added during a raise is called from the next raise on. A raise that
// is already running on another thread may still be inside a subscriber when Remove returns.
// If subscribers throw, the others are still called and the first exception is rethrown at the
// end. Never blocks except on the brief internal lock.
template <class... Args> class HostEvent {
public:
    using Handler = std::function<void(Args...)>;
    using Token = uint64_t; // 0 is never issued

    HostEvent() = default;
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

    // False when the token is unknown (never issued, or already removed).
    bool Remove(Token token) {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto it = m_subscribers.begin(); it != m_subscribers.end(); ++it) {
            if ((*it)->token == token) {
                (*it)->active = false;
                m_subscribers.erase(it);
                return true;
            }
        }
        return false;
    }

    void Raise(Args... args) const {
        std::vector<std::shared_ptr<Subscriber>> snapshot;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            snapshot = m_subscribers;
        }
        std::exception_ptr first;
        for (const auto& subscriber : snapshot) {
            if (!subscriber->active) {
                continue;
            }
            try {
                subscriber->handler(args...);
            } catch (...) {
                if (!first) {
                    first = std::current_exception();
                }
            }
        }
        if (first) {
            std::rethrow_exception(first);
        }
    }

    size_t Count() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_subscribers.size();
    }

private:
    struct Subscriber {
        Subscriber(Token t, Handler h) : token(t), handler(std::move(h)) {}
        const Token token;
        const Handler handler;
        std::atomic<bool> active{true};
    };

    mutable std::mutex m_mutex;
    std::vector<std::shared_ptr<Subscriber>> m_subscribers;
    Token m_nextToken = 1;
};

} // namespace vela::printer::communication
