#pragma once

#include "common/NativeHandle.h"
#include "common/NotCopyable.h"

#include <cstdint>

namespace vela::common {

enum class WaitResult { signalled, timeout, failed };

constexpr uint32_t kInfinite = 0xFFFFFFFFu;

// An unnamed event: a Win32 event object on Windows, an eventfd on Linux, so that a thread can
// wait on it together with a device handle (WaitForMultipleObjects / poll).
// Auto-reset: a successful wait consumes the signal. Manual-reset: it stays set until Reset.
// Set and Wait may be called from any thread.
class Event : NotCopyable {
public:
    enum class Mode { autoReset, manualReset };
    // Throws Win32Error when the system cannot create the event.
    explicit Event(Mode mode = Mode::autoReset, bool initiallySet = false);
    ~Event();

    bool Set();   // false when the system refused (last system error set)
    bool Reset(); // false when the system refused
    // Blocks up to `milliseconds` (kInfinite: no limit).
    WaitResult Wait(uint32_t milliseconds);
    // Closes the handle now; false when the system refused. Further calls fail.
    bool Close();

    NativeHandle Handle() const { return m_handle; }

private:
    Mode m_mode;
    NativeHandle m_handle;
};

} // namespace vela::common
