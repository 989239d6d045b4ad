#include "kom/discovery/windows/DeviceFilters.h"

#include "common/Exception.h"
#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/NativeHandle.h"
#include "common/SystemError.h"
#include "kom/discovery/ParseVidPid.h"
#include "kom/discovery/QRVPrinters.h"

// The HID header declares its functions without C linkage.
extern "C" {
#include <hidsdi.h>
}

#include <vector>

namespace vela::kom {

using common::Log;

namespace {

// Which warning a failed filter writes depends on what the record offers to name the device.
void LogFilterFailure(const wchar_t* name, const DeviceEnumInfo* info, const common::Exception& e) {
    if (info == nullptr) {
        Log::LogWarning(std::wstring(name) + L"() failed: %s", e.Message());
    } else if (info->interfaceDetail != nullptr) {
        Log::LogWarning(std::wstring(name) + L"() for '%s' failed: %s", info->interfaceDetail->DevicePath,
                        e.Message());
    } else {
        Log::LogWarning(std::wstring(name) + L"() for '%d' failed: %s", info->devInfoData.DevInst,
                        e.Message());
    }
}

DEVINST ParentOf(DEVINST node, const wchar_t* context) {
    DEVINST parent = 0;
    common::ThrowIfConfigurationManagerError(static_cast<int32_t>(::CM_Get_Parent(&parent, node, 0)),
                                             context);
    return parent;
}

DEVINST NodeOf(const DeviceEnumInfo* info, const wchar_t* context) {
    if (info == nullptr) {
        // What the configuration manager answers for a missing record.
        common::LogAndThrow(common::ConfigurationManagerError(CR_INVALID_POINTER, context));
    }
    return info->devInfoData.DevInst;
}

} // namespace

bool UsbFilter(const DeviceEnumInfo& info) {
    try {
        // 8192 bytes for the REG_MULTI_SZ list, plus one character that stays 0 so the first
        // string is terminated even if the system fills the whole buffer.
        std::vector<wchar_t> hardwareIds(8192 / sizeof(wchar_t) + 1, L'\0');
        ULONG length = 8192;
        CONFIGRET result = ::CM_Get_DevNode_Registry_PropertyW(info.devInfoData.DevInst, CM_DRP_HARDWAREID,
                                                               nullptr, hardwareIds.data(), &length, 0);
        if (result != CR_SUCCESS) {
            Log::LogWarning(L"UsbFilter: CM_Get_DevNode_Registry_Property for '%d' failed: %d",
                            info.devInfoData.DevInst, result);
        }
        uint32_t vendorId = 0;
        uint32_t productId = 0;
        ParseVidPid(hardwareIds.data(), vendorId, productId);
        return QRVPrinters().IsSupported(vendorId, productId);
    } catch (const common::Exception& e) {
        LogFilterFailure(L"UsbFilter", &info, e);
        return false;
    }
}

bool HidFilter(const DeviceEnumInfo& info) {
    const wchar_t* path = info.interfaceDetail != nullptr ? info.interfaceDetail->DevicePath : L"";
    try {
        common::UniqueHandle handle(
            ::CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
        common::ThrowIfInvalidHandle(handle.Get(), L"CreateFile");
        HIDD_ATTRIBUTES attributes{};
        attributes.Size = sizeof(attributes);
        common::ThrowIfFalse(::HidD_GetAttributes(handle.Get(), &attributes) != FALSE, L"HidD_GetAttributes");
        return QRVPrinters().IsSupported(attributes.VendorID, attributes.ProductID);
    } catch (const common::Exception& e) {
        Log::LogWarning(L"HidFilter() for '%s' failed: %s", path, e.Message());
        return false;
    }
}

bool ParentFilter::operator()(const DeviceEnumInfo* info) const {
    try {
        return ParentOf(NodeOf(info, L"ParentFilter"), L"ParentFilter") == m_parent;
    } catch (const common::Exception& e) {
        LogFilterFailure(L"ParentFilter", info, e);
        return false;
    }
}

bool GrandParentFilter::operator()(const DeviceEnumInfo* info) const {
    try {
        DEVINST parent = ParentOf(NodeOf(info, L"GrandParentFilter"), L"GrandParentFilter");
        return ParentOf(parent, L"GrandParentFilter") == m_grandParent;
    } catch (const common::Exception& e) {
        LogFilterFailure(L"GrandParentFilter", info, e);
        return false;
    }
}

} // namespace vela::kom
