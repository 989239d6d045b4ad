#include "kom/discovery/windows/DeviceEnumInfo.h"

#include "common/Log.h"

#include <algorithm>
#include <cstring>

namespace vela::kom {

// The size fields take sizeof of the system records of this build. The familiar values 28 and
// 6 are those of the 32-bit records; the 64-bit records are 32 bytes (SP_DEVINFO_DATA,
// SP_DEVICE_INTERFACE_DATA: a pointer-sized Reserved field) and 8 bytes (the detail record:
// DWORD plus one WCHAR, padded to the 8-byte packing of 64-bit SetupAPI), and SetupAPI rejects
// any other value with ERROR_INVALID_USER_BUFFER.
DeviceEnumInfo::DeviceEnumInfo() {
    std::memset(&devInfoData, 0, sizeof(devInfoData));
    devInfoData.cbSize = sizeof(SP_DEVINFO_DATA);
    std::memset(&interfaceData, 0, sizeof(interfaceData));
    interfaceData.cbSize = sizeof(SP_DEVICE_INTERFACE_DATA);
}

DeviceEnumInfo::DeviceEnumInfo(const DeviceEnumInfo& other)
    : devInfoData(other.devInfoData), interfaceData(other.interfaceData), detailBuffer(other.detailBuffer) {
    interfaceDetail = other.interfaceDetail == nullptr
                          ? nullptr
                          : reinterpret_cast<PSP_DEVICE_INTERFACE_DETAIL_DATA_W>(detailBuffer.data());
}

DeviceEnumInfo& DeviceEnumInfo::operator=(const DeviceEnumInfo& other) {
    if (this != &other) {
        DeviceEnumInfo copy(other);
        *this = std::move(copy);
    }
    return *this;
}

void DeviceEnumInfo::SetInterfaceDetail(DWORD size) {
    if (size < 1) {
        detailBuffer.clear();
        interfaceDetail = nullptr;
        common::Log::LogWarning(L"DeviceEnumInfo.SetInterfaceDetail(): DeviceInterfaceDetail = NULL");
        return;
    }
    // Never smaller than the fixed part, so that writing the size field stays inside the buffer
    // even if a caller asks for less than SetupAPI ever reports.
    detailBuffer.assign(std::max<size_t>(size, sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)), 0);
    interfaceDetail = reinterpret_cast<PSP_DEVICE_INTERFACE_DETAIL_DATA_W>(detailBuffer.data());
    interfaceDetail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
}

} // namespace vela::kom
