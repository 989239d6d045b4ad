#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vela::kom {

// One row of the supported-model table: a display name and the USB ids it is sold under.
// Every supported model comes from one vendor, so the vendor id is not a parameter.
struct QRVDeviceInfo {
    static constexpr uint32_t VelaVendorId = 0x0922;

    QRVDeviceInfo(std::wstring modelName, std::vector<uint32_t> productIds)
        : modelName(std::move(modelName)), vendorId(VelaVendorId), productIds(std::move(productIds)) {}

    std::wstring modelName;
    uint32_t vendorId;
    std::vector<uint32_t> productIds;
};

} // namespace vela::kom
