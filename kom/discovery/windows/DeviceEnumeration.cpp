#include "kom/discovery/windows/DeviceEnumeration.h"

#include "common/LogAndThrow.h"
#include "common/SystemError.h"

namespace vela::kom {

namespace {

const wchar_t* const Context = L"EnumDeviceInterfaces";

[[noreturn]] void Throw(DWORD code) {
    common::LogAndThrow(common::Win32Error(code, Context));
}

} // namespace

std::vector<DeviceEnumInfo> EnumDeviceInterfaces(HDEVINFO deviceInfoSet, const GUID& interfaceClassGuid,
                                                 const DeviceFilter& filter) {
    std::vector<DeviceEnumInfo> result;
    for (DWORD index = 0;; ++index) {
        DeviceEnumInfo info;
        if (!::SetupDiEnumDeviceInterfaces(deviceInfoSet, nullptr, &interfaceClassGuid, index,
                                           &info.interfaceData)) {
            DWORD code = ::GetLastError();
            if (code == ERROR_NO_MORE_ITEMS) {
                break;
            }
            Throw(code);
        }
        DWORD required = 0;
        if (!::SetupDiGetDeviceInterfaceDetailW(deviceInfoSet, &info.interfaceData, nullptr, 0, &required,
                                                nullptr)) {
            DWORD code = ::GetLastError();
            if (code != ERROR_INSUFFICIENT_BUFFER) {
                Throw(code);
            }
        }
        info.SetInterfaceDetail(required);
        if (!::SetupDiGetDeviceInterfaceDetailW(deviceInfoSet, &info.interfaceData, info.interfaceDetail,
                                                static_cast<DWORD>(info.detailBuffer.size()), nullptr,
                                                &info.devInfoData)) {
            Throw(::GetLastError());
        }
        if (filter(info)) {
            result.push_back(std::move(info));
        }
    }
    return result;
}

std::vector<DeviceEnumInfo> EnumDevices(HDEVINFO deviceInfoSet, const DeviceFilter& filter) {
    std::vector<DeviceEnumInfo> result;
    for (DWORD index = 0;; ++index) {
        DeviceEnumInfo info;
        info.devInfoData.cbSize = sizeof(SP_DEVINFO_DATA);
        if (!::SetupDiEnumDeviceInfo(deviceInfoSet, index, &info.devInfoData)) {
            DWORD code = ::GetLastError();
            if (code == ERROR_NO_MORE_ITEMS) {
                break;
            }
            Throw(code);
        }
        if (filter(info)) {
            result.push_back(std::move(info));
        }
    }
    return result;
}

} // namespace vela::kom
