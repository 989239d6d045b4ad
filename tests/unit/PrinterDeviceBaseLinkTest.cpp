#include "common/StringConverter.h"
#include "kom/protocol/PrinterDeviceBase.h"
#include "support/FakePrinter.h"

#include <gtest/gtest.h>

using Device = vela::kom::PrinterDeviceBase<vela::test::FakeTransport, vela::test::NoOpSynchronizer,
                                            vela::common::StringConverter>;

TEST(PrinterDeviceBase, ConstructionDoesNoIo) {
    vela::test::FakePrinter printer;
    Device device(vela::kom::ConnectedPrinter{0x0922, 0x0025, L"fake", L"Queue"});
    EXPECT_EQ(printer.Opens(), 0);
    EXPECT_EQ(device.Printer().printerName, L"Queue");
}
