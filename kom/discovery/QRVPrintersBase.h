#pragma once

#include "kom/device/ConnectedPrinter.h"
#include "kom/discovery/QRVDeviceInfo.h"

#include <cstdint>
#include <vector>

namespace vela::kom {

// The table of supported printer models and its look-ups. Derived classes add the enumeration
// of attached printers. The table is filled by the constructor and never changes, so every
// const member may be called from any thread at the same time.
class QRVPrintersBase {
public:
    QRVPrintersBase();

    // The attached supported printers; see QRVPrinters.
    virtual std::vector<ConnectedPrinter> GetConnectedPrinters() = 0;
    virtual ~QRVPrintersBase() = default;

    // True when some model of the table has this vendor id and lists this product id.
    bool IsSupported(uint32_t vendorId, uint32_t productId) const;
    // A copy of the whole table, in table order.
    std::vector<QRVDeviceInfo> GetSupportedPrinters() const;
    // The first model with this vendor id that lists this product id. Throws
    // InvalidOperationException "printer is not supported" when there is none.
    QRVDeviceInfo GetPrinterHardwareInfo(uint32_t vendorId, uint32_t productId) const;

private:
    const QRVDeviceInfo* Find(uint32_t vendorId, uint32_t productId) const;

    std::vector<QRVDeviceInfo> m_supportedPrinters;
};

} // namespace vela::kom
