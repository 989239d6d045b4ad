#include "kom/discovery/QRVPrintersBase.h"

#include "common/Exception.h"
#include "common/LogAndThrow.h"

#include <algorithm>

namespace vela::kom {

QRVPrintersBase::QRVPrintersBase()
    : m_supportedPrinters{QRVDeviceInfo(L"VELA QRV 210", {0x0024}),
                          QRVDeviceInfo(L"VELA QRV 410", {0x0025})} {}

const QRVDeviceInfo* QRVPrintersBase::Find(uint32_t vendorId, uint32_t productId) const {
    for (const QRVDeviceInfo& info : m_supportedPrinters) {
        if (info.vendorId == vendorId &&
            std::find(info.productIds.begin(), info.productIds.end(), productId) != info.productIds.end()) {
            return &info;
        }
    }
    return nullptr;
}

bool QRVPrintersBase::IsSupported(uint32_t vendorId, uint32_t productId) const {
    return Find(vendorId, productId) != nullptr;
}

std::vector<QRVDeviceInfo> QRVPrintersBase::GetSupportedPrinters() const {
    return m_supportedPrinters;
}

QRVDeviceInfo QRVPrintersBase::GetPrinterHardwareInfo(uint32_t vendorId, uint32_t productId) const {
    const QRVDeviceInfo* info = Find(vendorId, productId);
    if (info == nullptr) {
        common::LogAndThrow(common::InvalidOperationException(L"printer is not supported",
                                                              L"Printers::GetPrinterHardwareInfo()"));
    }
    return *info;
}

} // namespace vela::kom
