#include "support/ProcessHandles.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace vela::test {

size_t BaselineHandleCount() {
    size_t count = OpenHandleCount();
    for (int i = 0; i < 10; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        count = std::min(count, OpenHandleCount());
    }
    return count;
}

size_t SettledHandleCount(size_t expected) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
    size_t count = OpenHandleCount();
    while (count != expected && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        count = OpenHandleCount();
    }
    return count;
}

} // namespace vela::test
