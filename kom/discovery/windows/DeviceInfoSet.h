#pragma once

#include "common/NotCopyable.h"

#include <windows.h>

#include <setupapi.h>

#include <string>

namespace vela::kom {

// Owns one SetupAPI device information set and destroys it on every exit.
class DeviceInfoSet : common::NotCopyable {
public:
    // SetupDiGetClassDevsW with these arguments. Throws Win32Error (the last error, `context`)
    // when the system gives no set.
    DeviceInfoSet(const GUID* classGuid, DWORD flags, const std::wstring& context);
    ~DeviceInfoSet(); // a failed destroy is logged as a warning, never thrown

    HDEVINFO Get() const { return m_set; }

private:
    HDEVINFO m_set;
};

} // namespace vela::kom
