#include "kom/discovery/QRVPrinters.h"
#include "support/TestSupport.h"
#include "system/MockedDiscoveryTest.h"

#include <map>
#include <tuple>

using namespace vela::kom;
using vela::common::LogLevel;
using vela::test::LogCapture;
using vela::test::MockedDiscoveryTest;
using vela::test::MockUsbPrinter;
using vela::test::PrinterAt;
using vela::test::ScopedEnvironment;

using UdevDiscovery = MockedDiscoveryTest;

TEST_F(UdevDiscovery, PrintersKeepTheirOwnNodesAndVirtualPrintersFollow) {
    MockUsbPrinter noSerial = PrinterAt("1-4.2", 0, 1, ""); // reports none, on USB or in its device id
    noSerial.idProduct = "0024";
    noSerial.product = "VELA QRV 210";
    noSerial.ieee1284Id = "MANUFACTURER:VELA;MODEL:VELA QRV 210;"; // the long keys; the make repeated
    m_testbed.Add(PrinterAt("1-1", 2, 3));
    MockUsbPrinter shortModel = PrinterAt("1-2", 1, -1, "SIM0002");
    shortModel.ieee1284Id = "MFG:VELA;MDL:VELA 4;SN:SIM0002;"; // the make repeated before a one-letter model
    m_testbed.Add(shortModel);
    m_testbed.Add(noSerial);
    m_testbed.Add(PrinterAt("1-5", -1, 4, "SIM0005")); // listed, but its printer interface has no node
    ScopedEnvironment virtualPrinter("QRV_VIRTUAL_PRINTERS", L"Simulator|/dev/pts/9|/tmp/sim-hid|210|SIM-V");
    LogCapture log;
    QRVPrinters printers;

    const std::wstring first = L"VELA QRV 410 (SIM0001)", second = L"VELA QRV 410 (SIM0002)",
                       third = L"VELA QRV 210 (USB 1-4.2)";
    EXPECT_EQ(printers.GetConnectedPrinters(), (std::vector<ConnectedPrinter>{
                                                   {0x0922, 0x0025, L"/dev/usb/lp2", first},
                                                   {0x0922, 0x0025, L"/dev/usb/lp1", second},
                                                   {0x0922, 0x0024, L"/dev/usb/lp0", third},
                                                   {0x0922, 0x0024, L"/dev/pts/9", L"Simulator"},
                                               }));
    // Without a print scheduler every printer goes by its fallback name, told once.
    EXPECT_EQ(log.Count(LogLevel::info), 1u);
    EXPECT_TRUE(log.ContainsSubstring(L"Printers::GetConnectedPrinters(): no print scheduler answers at "
                                      L"'/nonexistent/qrv-no-scheduler.sock' ("));
    EXPECT_EQ(printers.GetConnectedHidDevices(),
              (std::vector<ConnectedPrinter>{
                  {0x0922, 0x0025, L"/dev/hidraw3", first},
                  {0x0922, 0x0024, L"/dev/hidraw1", third},
                  {0x0922, 0x0025, L"/dev/hidraw4", L"VELA QRV 410 (SIM0005)"},
                  {0x0922, 0x0024, L"/tmp/sim-hid", L"Simulator"},
              }));
    std::vector<std::wstring> rows; // name, model, serial, printer node, HID node, URI; queue or virtual
    for (const DiscoveredPrinter& p : printers.ListPrinters()) {
        rows.push_back(p.printerName + L"|" + p.modelName + L"|" + p.serialNumber + L"|" + p.printerPath +
                       L"|" + p.hidPath + L"|" + p.deviceUri + (p.hasQueue ? L"|queue" : L"") +
                       (p.isVirtual ? L"|virtual" : L""));
    }
    EXPECT_EQ(
        rows,
        (std::vector<std::wstring>{
            first + L"|VELA QRV 410|SIM0001|/dev/usb/lp2|/dev/hidraw3|usb://VELA/QRV%20410?serial=SIM0001",
            second + L"|VELA QRV 410|SIM0002|/dev/usb/lp1||usb://VELA/4?serial=SIM0002",
            third + L"|VELA QRV 210||/dev/usb/lp0|/dev/hidraw1|usb://VELA/QRV%20210",
            L"VELA QRV 410 (SIM0005)|VELA QRV 410|SIM0005||/dev/hidraw4|usb://VELA/QRV%20410?serial=SIM0005",
            L"Simulator|VELA QRV 210|SIM-V|/dev/pts/9|/tmp/sim-hid|usb://VELA/QRV%20210?serial=SIM-V|virtual",
        }));
    // A printer interface without a node is known from the USB device's own interfaces.
    EXPECT_TRUE(printers.ListPrinters().at(3).hasPrinterInterface);
    EXPECT_EQ(log.Count(LogLevel::warning), 0u);
    EXPECT_EQ(log.Count(LogLevel::error), 0u);
}

// Devices of other kinds are skipped silently, whatever the letter case of their ids; devices
// that cannot be read are skipped after one warning each.
TEST_F(UdevDiscovery, OtherDevicesAreSkippedSilentlyUnreadableOnesAfterOneWarningEach) {
    // Other products and vendors, in either letter case; no ids at all; a product id that is no number.
    std::map<std::string, std::wstring> syspaths;
    for (const auto& [port, lp, hidraw, vendor, product] :
         std::vector<std::tuple<std::string, int, int, std::string, std::string>>{
             {"1-1", 0, 0, "0922", "0026"},
             {"1-2", 1, -1, "fe1a", "0b2c"},
             {"1-3", 2, -1, "FE1A", "0B2C"},
             {"1-4", 4, -1, "", ""},
             {"1-5", -1, 1, "0922", "zz25"}}) {
        MockUsbPrinter other = PrinterAt(port, lp, hidraw);
        other.idVendor = vendor;
        other.idProduct = product;
        const std::string syspath = m_testbed.Add(other);
        syspaths[port] = std::wstring(syspath.begin(), syspath.end());
    }
    MockUsbPrinter supported = PrinterAt("2-1", 3, -1, "abc-def"); // lower case goes into the name as it is
    supported.idProduct = "0024";
    m_testbed.Add(PrinterAt("1-6", 5, 2, "GOOD1"));
    // A node of the printer class's subsystem that is not a printer node.
    m_testbed.AddDevice("usbmisc", "hiddev0", m_testbed.Add(supported) + "/2-1:1.0", "/dev/usb/hiddev0", {});
    // A mouse: hidraw on a USB device of another vendor.
    std::string mouse =
        m_testbed.AddDevice("usb", "3-1", "", "", {"idVendor", "fe2b", "idProduct", "0c0d"}, "usb_device");
    m_testbed.AddDevice("hidraw", "hidraw7", mouse, "/dev/hidraw7", {});
    // A printer-class node that does not hang below a USB device.
    std::string platform = m_testbed.AddDevice("platform", "lpbridge", "", "", {});
    m_testbed.AddDevice("usbmisc", "lp6", platform, "/dev/usb/lp6", {});

    LogCapture log;
    QRVPrinters printers;
    const std::wstring good = L"VELA QRV 410 (GOOD1)";
    EXPECT_EQ(printers.GetConnectedPrinters(),
              (std::vector<ConnectedPrinter>{
                  {0x0922, 0x0025, L"/dev/usb/lp5", good},
                  {0x0922, 0x0024, L"/dev/usb/lp3", L"VELA QRV 210 (abc-def)"},
              }));
    EXPECT_EQ(log.Count(LogLevel::warning), 2u);
    EXPECT_TRUE(
        log.Contains(L"UsbFilter() for '/dev/usb/lp4' failed: cannot read idVendor of " + syspaths["1-4"]));
    EXPECT_TRUE(log.Contains(L"UsbFilter() for '/dev/usb/lp6' failed: it is not on a USB device"));

    log.Clear();
    EXPECT_EQ(printers.GetConnectedHidDevices(),
              (std::vector<ConnectedPrinter>{{0x0922, 0x0025, L"/dev/hidraw2", good}}));
    EXPECT_EQ(log.Count(LogLevel::warning), 1u);
    EXPECT_TRUE(log.Contains(L"HidFilter() for '/dev/hidraw1' failed: idProduct 'zz25' of " +
                             syspaths["1-5"] + L" is not a USB id"));
    EXPECT_EQ(log.Count(LogLevel::error), 0u);
}
