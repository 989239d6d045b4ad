#include "common/Pause.h"

#include <memory>
#include <mutex>

namespace vela::common {

namespace {

std::mutex& HandlerMutex() {
    static std::mutex mutex;
    return mutex;
}

std::shared_ptr<PauseHandler>& Handler() {
    static std::shared_ptr<PauseHandler> handler;
    return handler;
}

} // namespace

WaitResult Pause(uint32_t milliseconds) {
    std::shared_ptr<PauseHandler> handler;
    {
        std::lock_guard<std::mutex> lock(HandlerMutex());
        handler = Handler();
    }
    if (handler) {
        return (*handler)(milliseconds);
    }
    Event timer(Event::Mode::autoReset, false);
    return timer.Wait(milliseconds);
}

PauseHandler SetPauseHandler(PauseHandler handler) {
    std::shared_ptr<PauseHandler> replacement =
        handler ? std::make_shared<PauseHandler>(std::move(handler)) : nullptr;
    std::lock_guard<std::mutex> lock(HandlerMutex());
    std::shared_ptr<PauseHandler> previous = std::move(Handler());
    Handler() = std::move(replacement);
    return previous ? *previous : PauseHandler();
}

} // namespace vela::common
