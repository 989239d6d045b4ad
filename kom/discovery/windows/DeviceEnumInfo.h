#pragma once

#include <windows.h>

#include <setupapi.h>

#include <cstdint>
#include <vector>

namespace vela::kom {

// One enumerated device (and, from EnumDeviceInterfaces, one of its interfaces). The system
// records have their size fields preset, as SetupAPI requires before every call that fills them.
// Copies re-point interfaceDetail into their own buffer. Any thread; not shared.
struct DeviceEnumInfo {
    DeviceEnumInfo();
    DeviceEnumInfo(const DeviceEnumInfo& other);
    DeviceEnumInfo& operator=(const DeviceEnumInfo& other);
    DeviceEnumInfo(DeviceEnumInfo&&) noexcept = default; // the heap buffer moves with its pointer
    DeviceEnumInfo& operator=(DeviceEnumInfo&&) noexcept = default;
    ~DeviceEnumInfo() = default;

    SP_DEVINFO_DATA devInfoData; // DevInst: the device node
    SP_DEVICE_INTERFACE_DATA interfaceData;
    PSP_DEVICE_INTERFACE_DETAIL_DATA_W interfaceDetail = nullptr; // DevicePath: what to open; or null
    std::vector<uint8_t> detailBuffer;                            // owns *interfaceDetail

    // Sizes the detail record for `size` bytes (what SetupDiGetDeviceInterfaceDetailW asked for)
    // and presets its size field. 0 empties it: interfaceDetail becomes null after the warning
    // "DeviceEnumInfo.SetInterfaceDetail(): DeviceInterfaceDetail = NULL".
    void SetInterfaceDetail(DWORD size);
};

} // namespace vela::kom
