#include "kom/discovery/QRVPrinters.h"
#include "support/TestSupport.h"
#include "system/linux/MockedDiscoveryTest.h"

using namespace vela::kom;
using vela::common::LogLevel;
using vela::test::LogCapture;
using vela::test::MockedDiscoveryTest;
using vela::test::MockUsbPrinter;
using vela::test::ScopedEnvironment;

using UdevDiscovery = MockedDiscoveryTest;

TEST_F(UdevDiscovery, OnePrinterWithItsHidNodeAndOneWithout) {
    MockUsbPrinter withHid;
    withHid.hidraw = 0;
    m_testbed.Add(withHid);
    LogCapture log;
    QRVPrinters printers;

    const std::wstring name = L"VELA QRV 410 (SIM0001)";
    EXPECT_EQ(printers.GetConnectedPrinters(),
              (std::vector<ConnectedPrinter>{{0x0922, 0x0025, L"/dev/usb/lp0", name}}));
    EXPECT_EQ(printers.GetConnectedHidDevices(),
              (std::vector<ConnectedPrinter>{{0x0922, 0x0025, L"/dev/hidraw0", name}}));

    std::vector<DiscoveredPrinter> listing = printers.ListPrinters();
    ASSERT_EQ(listing.size(), 1u);
    EXPECT_EQ(listing[0].printerName, name);
    EXPECT_EQ(listing[0].modelName, L"VELA QRV 410");
    EXPECT_EQ(listing[0].serialNumber, L"SIM0001");
    EXPECT_EQ(listing[0].printerPath, L"/dev/usb/lp0");
    EXPECT_EQ(listing[0].hidPath, L"/dev/hidraw0");
    EXPECT_FALSE(listing[0].hasQueue);
    EXPECT_FALSE(listing[0].isVirtual);
    EXPECT_EQ(log.Count(LogLevel::warning), 0u);
    EXPECT_EQ(log.Count(LogLevel::error), 0u);

    MockUsbPrinter withoutHid;
    withoutHid.port = "1-2";
    withoutHid.serial = "SIM0002";
    withoutHid.ieee1284Id = "MFG:VELA;MDL:QRV 410;SN:SIM0002;";
    withoutHid.lp = 1;
    m_testbed.Add(withoutHid);
    EXPECT_EQ(printers.GetConnectedPrinters().size(), 2u);
    EXPECT_EQ(printers.GetConnectedHidDevices(),
              (std::vector<ConnectedPrinter>{{0x0922, 0x0025, L"/dev/hidraw0", name}}));
    EXPECT_EQ(printers.ListPrinters().at(1).hidPath, L"");
}

TEST_F(UdevDiscovery, TwoPrintersKeepTheirOwnNodesAndVirtualPrintersFollow) {
    MockUsbPrinter first;
    first.port = "1-1";
    first.hidraw = 3;
    first.lp = 2;
    MockUsbPrinter second;
    second.port = "1-4.2";
    second.idProduct = "0024";
    second.product = "VELA QRV 210";
    second.serial = ""; // reports none, neither on USB nor in its device id
    second.ieee1284Id = "MFG:VELA;MDL:QRV 210;";
    second.lp = 0;
    second.hidraw = 1;
    m_testbed.Add(first);
    m_testbed.Add(second);
    ScopedEnvironment virtualPrinter("QRV_VIRTUAL_PRINTERS", L"Simulator|/dev/pts/9|/tmp/sim-hid|210|SIM-V");
    QRVPrinters printers;

    const std::wstring firstName = L"VELA QRV 410 (SIM0001)";
    const std::wstring secondName = L"VELA QRV 210 (USB 1-4.2)";
    EXPECT_EQ(printers.GetConnectedPrinters(), (std::vector<ConnectedPrinter>{
                                                   {0x0922, 0x0025, L"/dev/usb/lp2", firstName},
                                                   {0x0922, 0x0024, L"/dev/usb/lp0", secondName},
                                                   {0x0922, 0x0024, L"/dev/pts/9", L"Simulator"},
                                               }));
    EXPECT_EQ(printers.GetConnectedHidDevices(), (std::vector<ConnectedPrinter>{
                                                     {0x0922, 0x0025, L"/dev/hidraw3", firstName},
                                                     {0x0922, 0x0024, L"/dev/hidraw1", secondName},
                                                     {0x0922, 0x0024, L"/tmp/sim-hid", L"Simulator"},
                                                 }));
    std::vector<DiscoveredPrinter> listing = printers.ListPrinters();
    ASSERT_EQ(listing.size(), 3u);
    EXPECT_EQ(listing[1].serialNumber, L"");
    EXPECT_EQ(listing[1].hidPath, L"/dev/hidraw1");
    EXPECT_TRUE(listing[2].isVirtual);
    EXPECT_EQ(listing[2].serialNumber, L"SIM-V");
}

TEST_F(UdevDiscovery, OtherDevicesAreSkippedSilentlyWhateverTheLetterCaseOfTheirIds) {
    MockUsbPrinter otherProduct;
    otherProduct.idProduct = "0026";
    otherProduct.hidraw = 0;
    MockUsbPrinter otherVendorLower;
    otherVendorLower.port = "1-2";
    otherVendorLower.idVendor = "fe1a";
    otherVendorLower.idProduct = "0b2c";
    otherVendorLower.lp = 1;
    MockUsbPrinter otherVendorUpper = otherVendorLower;
    otherVendorUpper.port = "1-3";
    otherVendorUpper.idVendor = "FE1A";
    otherVendorUpper.idProduct = "0B2C";
    otherVendorUpper.lp = 2;
    MockUsbPrinter supported;
    supported.port = "2-1";
    supported.idVendor = "0922";
    supported.idProduct = "0024";
    supported.serial = "abc-def"; // lower-case serial goes into the name as it is
    supported.lp = 3;
    for (const MockUsbPrinter& printer : {otherProduct, otherVendorLower, otherVendorUpper, supported}) {
        m_testbed.Add(printer);
    }
    // A mouse: hidraw on a USB device of another vendor.
    std::string mouse =
        m_testbed.AddDevice("usb", "3-1", "", "", {"idVendor", "fe2b", "idProduct", "0c0d"}, "usb_device");
    m_testbed.AddDevice("hidraw", "hidraw7", mouse, "/dev/hidraw7", {});

    LogCapture log;
    QRVPrinters printers;
    EXPECT_EQ(printers.GetConnectedPrinters(),
              (std::vector<ConnectedPrinter>{{0x0922, 0x0024, L"/dev/usb/lp3", L"VELA QRV 210 (abc-def)"}}));
    EXPECT_TRUE(printers.GetConnectedHidDevices().empty());
    EXPECT_EQ(log.Count(LogLevel::warning), 0u);
}

TEST_F(UdevDiscovery, UnreadableDevicesAreSkippedAfterOneWarningEach) {
    MockUsbPrinter noIds;
    noIds.idVendor = "";
    noIds.idProduct = "";
    noIds.lp = 0;
    std::string noIdsPath = m_testbed.Add(noIds);
    MockUsbPrinter badProduct;
    badProduct.port = "1-2";
    badProduct.idProduct = "zz25";
    badProduct.lp = -1;
    badProduct.hidraw = 1;
    std::string badProductPath = m_testbed.Add(badProduct);
    MockUsbPrinter good;
    good.port = "1-3";
    good.serial = "GOOD1";
    good.lp = 2;
    good.hidraw = 2;
    m_testbed.Add(good);
    // A printer-class node that does not hang below a USB device.
    std::string platform = m_testbed.AddDevice("platform", "lpbridge", "", "", {});
    m_testbed.AddDevice("usbmisc", "lp5", platform, "/dev/usb/lp5", {});

    LogCapture log;
    QRVPrinters printers;
    const std::wstring name = L"VELA QRV 410 (GOOD1)";
    EXPECT_EQ(printers.GetConnectedPrinters(),
              (std::vector<ConnectedPrinter>{{0x0922, 0x0025, L"/dev/usb/lp2", name}}));
    EXPECT_EQ(log.Count(LogLevel::warning), 2u);
    EXPECT_TRUE(log.Contains(L"UsbFilter() for '/dev/usb/lp0' failed: cannot read idVendor of " +
                             std::wstring(noIdsPath.begin(), noIdsPath.end())));
    EXPECT_TRUE(log.Contains(L"UsbFilter() for '/dev/usb/lp5' failed: it is not on a USB device"));

    log.Clear();
    EXPECT_EQ(printers.GetConnectedHidDevices(),
              (std::vector<ConnectedPrinter>{{0x0922, 0x0025, L"/dev/hidraw2", name}}));
    EXPECT_EQ(log.Count(LogLevel::warning), 1u);
    EXPECT_TRUE(log.Contains(L"HidFilter() for '/dev/hidraw1' failed: idProduct 'zz25' of " +
                             std::wstring(badProductPath.begin(), badProductPath.end()) +
                             L" is not a USB id"));
    EXPECT_EQ(log.Count(LogLevel::error), 0u);
}

TEST_F(UdevDiscovery, APrinterWhoseInterfaceHasNoNodeIsListedButCannotBeOpened) {
    MockUsbPrinter hidOnly;
    hidOnly.lp = -1;
    hidOnly.hidraw = 0;
    m_testbed.Add(hidOnly);
    QRVPrinters printers;
    EXPECT_TRUE(printers.GetConnectedPrinters().empty());
    EXPECT_EQ(printers.GetConnectedHidDevices(),
              (std::vector<ConnectedPrinter>{{0x0922, 0x0025, L"/dev/hidraw0", L"VELA QRV 410 (SIM0001)"}}));
    std::vector<DiscoveredPrinter> listing = printers.ListPrinters();
    ASSERT_EQ(listing.size(), 1u);
    EXPECT_EQ(listing[0].printerPath, L"");
    EXPECT_EQ(listing[0].hidPath, L"/dev/hidraw0");
}
