#pragma once

#include "kom/device/ConnectedPrinter.h"
#include "support/ScopedEnvironment.h"
#include "system/UsbPrinterTestbed.h"

#include <gtest/gtest.h>

#include <ostream>

namespace vela::kom {

inline bool operator==(const ConnectedPrinter& a, const ConnectedPrinter& b) {
    return a.vendorId == b.vendorId && a.productId == b.productId && a.devicePath == b.devicePath &&
           a.printerName == b.printerName;
}

inline void PrintTo(const ConnectedPrinter& p, std::ostream* out) {
    *out << std::hex << "{0x" << p.vendorId << ", 0x" << p.productId << std::dec << ", "
         << ::testing::PrintToString(p.devicePath) << ", " << ::testing::PrintToString(p.printerName) << "}";
}

} // namespace vela::kom

namespace vela::test {

// A QRV 410 at `port` with nodes lpN and hidrawN (-1: none) and a USB serial (the device id keeps
// SIM0001: names come from the USB serial).
inline MockUsbPrinter PrinterAt(const std::string& port, int lp, int hidraw = -1,
                                const std::string& serial = "SIM0001") {
    MockUsbPrinter printer;
    printer.port = port;
    printer.lp = lp;
    printer.hidraw = hidraw;
    printer.serial = serial;
    return printer;
}

// Its own udev tree, no print scheduler unless the test starts one, no virtual printers.
class MockedDiscoveryTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::string why;
        if (!m_testbed.Active(why)) {
            GTEST_SKIP() << why;
        }
    }

    UsbPrinterTestbed m_testbed;
    ScopedEnvironment m_scheduler{"CUPS_SERVER", L"/nonexistent/qrv-no-scheduler.sock"};
    ScopedEnvironment m_virtualPrinters{"QRV_VIRTUAL_PRINTERS", L""};
};

} // namespace vela::test
