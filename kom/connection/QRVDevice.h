#pragma once

#include "common/StringConverter.h"
#include "common/UsbPrintDevice.h"
#include "kom/connection/PrinterAccessSynchronizer.h"
#include "kom/protocol/PrinterDeviceBase.h"

namespace vela::kom {

using QRVDeviceBase =
    PrinterDeviceBase<vela::common::UsbPrintDevice, PrinterAccessSynchronizer, vela::common::StringConverter>;

// The protocol class over the production policies, plus its small per-device monitor: a thread
// that holds the access lock and the channel for up to about five seconds and reports −1 to its
// callback when nobody stopped it. Nothing in the library starts it; hosts may.
class QRVDevice : public QRVDeviceBase {
public:
    explicit QRVDevice(const ConnectedPrinter& printer);
    ~QRVDevice() override; // runs Stop()

    // Return −1 while the monitor still runs, else start it (mode 1 / mode 2) and return 0, or the
    // last system error when no thread could be made. Callable from any thread.
    int32_t StartMonitor(std::function<void(int32_t)> callback) override;
    int32_t StartMonitorExclusive(std::function<void(int32_t)> callback) override;
    // Signals the monitor and waits up to 5000 ms for it. Never throws.
    void Stop();
};

} // namespace vela::kom
