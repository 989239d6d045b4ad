#pragma once

#include "common/Pause.h"

#include <cstdint>
#include <mutex>
#include <vector>

namespace vela::test {

// While it lives, the library's long fixed pauses (4 s and more: after print orders and in the
// update) are recorded and end at once, so that the suite stays within its time budget under
// software emulation; the short ones (completion polls, listings, retries) are waited for
// really, so the transfers meet the printer with their real timing.
class LongPauses {
public:
    static constexpr uint32_t kThresholdMs = 4000;

    LongPauses();
    ~LongPauses();
    LongPauses(const LongPauses&) = delete;
    LongPauses& operator=(const LongPauses&) = delete;

    // The long pauses requested so far, in order.
    std::vector<uint32_t> Skipped() const;

private:
    mutable std::mutex m_mutex;
    std::vector<uint32_t> m_skipped;
    vela::common::PauseHandler m_previous;
};

} // namespace vela::test
