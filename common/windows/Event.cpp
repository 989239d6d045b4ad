#include "common/Event.h"

#include "common/LogAndThrow.h"
#include "common/SystemError.h"

#include <windows.h>

namespace vela::common {

Event::Event(Mode mode, bool initiallySet) : m_mode(mode) {
    m_handle = ::CreateEventW(nullptr, mode == Mode::manualReset ? TRUE : FALSE, initiallySet ? TRUE : FALSE,
                              nullptr);
    if (m_handle == nullptr || m_handle == INVALID_HANDLE_VALUE) {
        m_handle = nullptr;
        LogAndThrow(Win32Error(LastSystemError(), L"Event::Event()"));
    }
}

Event::~Event() {
    Close();
}

bool Event::Close() {
    if (m_handle == nullptr) {
        return true;
    }
    HANDLE h = m_handle;
    m_handle = nullptr;
    return ::CloseHandle(h) != FALSE;
}

bool Event::Set() {
    return m_handle != nullptr && ::SetEvent(m_handle) != FALSE;
}

bool Event::Reset() {
    return m_handle != nullptr && ::ResetEvent(m_handle) != FALSE;
}

WaitResult Event::Wait(uint32_t milliseconds) {
    if (m_handle == nullptr) {
        ::SetLastError(ERROR_INVALID_HANDLE);
        return WaitResult::failed;
    }
    switch (::WaitForSingleObject(m_handle, milliseconds == kInfinite ? INFINITE : milliseconds)) {
    case WAIT_OBJECT_0:
        return WaitResult::signalled;
    case WAIT_TIMEOUT:
        return WaitResult::timeout;
    default:
        return WaitResult::failed;
    }
}

} // namespace vela::common
