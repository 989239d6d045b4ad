#include "kom/discovery/windows/DeviceInfoSet.h"

#include "common/Log.h"
#include "common/SystemError.h"

namespace vela::kom {

DeviceInfoSet::DeviceInfoSet(const GUID* classGuid, DWORD flags, const std::wstring& context)
    : m_set(::SetupDiGetClassDevsW(classGuid, nullptr, nullptr, flags)) {
    common::ThrowIfInvalidHandle(m_set, context);
}

DeviceInfoSet::~DeviceInfoSet() {
    if (!::SetupDiDestroyDeviceInfoList(m_set)) {
        common::Log::LogWarning(L"DeviceInfoSet: SetupDiDestroyDeviceInfoList failed: %s",
                                common::Win32Error::Format(::GetLastError()));
    }
}

} // namespace vela::kom
