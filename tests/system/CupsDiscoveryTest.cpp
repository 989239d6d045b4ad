#include "kom/discovery/QRVPrinters.h"
#include "kom/discovery/linux/PrintSchedulerQueues.h"
#include "support/TestSupport.h"
#include "system/MockedDiscoveryTest.h"
#include "system/PrivateCupsd.h"

#include <chrono>

using namespace vela::kom;
using vela::common::LogLevel;
using vela::test::LogCapture;
using vela::test::MockUsbPrinter;
using vela::test::PrivateCupsd;
using vela::test::ScopedEnvironment;

namespace {

// Two printers on the mocked USB bus and a print scheduler of the test's own.
class CupsDiscovery : public vela::test::MockedDiscoveryTest {
protected:
    void SetUp() override {
        MockedDiscoveryTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        m_testbed.Add(vela::test::PrinterAt("1-1", 0, 0));
        MockUsbPrinter office = vela::test::PrinterAt("1-2", 1, -1, "QRV-0002"); // a 210 whose device id
        office.idProduct = "0024"; // repeats the make in the model
        office.product = "VELA QRV 210";
        office.ieee1284Id = "MANUFACTURER:VELA;MODEL:VELA QRV 210;SERIALNUMBER:QRV-0002;";
        m_testbed.Add(office);
    }

    // Starts the scheduler with the remote queues given so far; skips the test if it cannot.
    void StartScheduler() {
        std::string problem;
        if (!m_cupsd.Start(problem)) {
            GTEST_SKIP() << "no private print scheduler: " << problem;
        }
        ScopedEnvironment::Set("CUPS_SERVER", std::wstring(m_cupsd.Socket().begin(), m_cupsd.Socket().end()));
    }

    void AddQueue(const std::string& name, const std::string& uri) {
        std::string problem;
        ASSERT_TRUE(m_cupsd.AddQueue(name, uri, problem)) << name << ": " << problem;
    }

    PrivateCupsd m_cupsd;
};

} // namespace

TEST_F(CupsDiscovery, QueuesNameTheirPrintersThroughEitherInterface) {
    StartScheduler();
    if (IsSkipped()) {
        return;
    }
    // Non-ASCII names; one URI in the backend's usual form, one differing in case, '+' for the
    // space and an interface parameter behind the serial.
    AddQueue("Étiquettes-Lager", "usb://VELA/QRV%20410?serial=SIM0001");
    AddQueue("Büro_210", "usb://vela/qrv+210?serial=qrv-0002&interface=0");
    AddQueue("Netzwerk", "socket://192.0.2.10:9100");
    LogCapture log;
    QRVPrinters printers;

    EXPECT_EQ(printers.GetConnectedPrinters(), (std::vector<ConnectedPrinter>{
                                                   {0x0922, 0x0025, L"/dev/usb/lp0", L"Étiquettes-Lager"},
                                                   {0x0922, 0x0024, L"/dev/usb/lp1", L"Büro_210"},
                                               }));
    EXPECT_EQ(printers.GetConnectedHidDevices(),
              (std::vector<ConnectedPrinter>{{0x0922, 0x0025, L"/dev/hidraw0", L"Étiquettes-Lager"}}));
    std::vector<DiscoveredPrinter> listing = printers.ListPrinters();
    ASSERT_EQ(listing.size(), 2u);
    EXPECT_TRUE(listing[0].hasQueue);
    EXPECT_TRUE(listing[1].hasQueue);
    EXPECT_EQ(log.Count(LogLevel::warning), 0u);
    EXPECT_EQ(log.Count(LogLevel::info), 0u);
}

TEST_F(CupsDiscovery, RemoteQueuesAndQueuesOfOtherPrintersNeverMatch) {
    m_cupsd.AddRemoteQueue("Zentrale", "usb://VELA/QRV%20410?serial=SIM0001");
    StartScheduler();
    if (IsSkipped()) {
        return;
    }
    AddQueue("Andere", "usb://VELA/QRV%20410?serial=SIM0009");
    AddQueue("Ohne_Seriennummer", "usb://VELA/QRV%20210");
    LogCapture log;
    QRVPrinters printers;

    EXPECT_EQ(printers.GetConnectedPrinters(),
              (std::vector<ConnectedPrinter>{
                  {0x0922, 0x0025, L"/dev/usb/lp0", L"VELA QRV 410 (SIM0001)"},
                  {0x0922, 0x0024, L"/dev/usb/lp1", L"VELA QRV 210 (QRV-0002)"},
              }));
    EXPECT_FALSE(printers.ListPrinters().at(0).hasQueue);
    EXPECT_EQ(log.Count(LogLevel::warning), 0u);
}

TEST_F(CupsDiscovery, OfTwoQueuesForOnePrinterTheFirstWinsWithAWarning) {
    StartScheduler();
    if (IsSkipped()) {
        return;
    }
    AddQueue("Lager_B", "usb://VELA/QRV%20410?serial=SIM0001");
    AddQueue("Lager_A", "usb://VELA/QRV%20410?serial=SIM0001&interface=0");
    LogCapture log;
    QRVPrinters printers;

    // The scheduler lists its queues by name.
    EXPECT_EQ(printers.GetConnectedPrinters().at(0).printerName, L"Lager_A");
    EXPECT_TRUE(log.Contains(L"Printers::GetConnectedPrinters(): printer /dev/usb/lp0 has 2 print queues: "
                             L"'Lager_A', 'Lager_B'; using 'Lager_A'"));
    EXPECT_EQ(log.Count(LogLevel::warning), 1u);
}

TEST_F(CupsDiscovery, WithoutASchedulerEveryPrinterGoesByItsFallbackNameQuickly) {
    // CUPS_SERVER names a socket nobody listens on (the fixture's default).
    LogCapture log;
    QRVPrinters printers;
    auto start = std::chrono::steady_clock::now();
    std::vector<ConnectedPrinter> found = printers.GetConnectedPrinters();
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
    EXPECT_EQ(found, (std::vector<ConnectedPrinter>{
                         {0x0922, 0x0025, L"/dev/usb/lp0", L"VELA QRV 410 (SIM0001)"},
                         {0x0922, 0x0024, L"/dev/usb/lp1", L"VELA QRV 210 (QRV-0002)"},
                     }));
    EXPECT_EQ(log.Count(LogLevel::info), 1u);
    EXPECT_TRUE(log.ContainsSubstring(L"Printers::GetConnectedPrinters(): no print scheduler answers at "
                                      L"'/nonexistent/qrv-no-scheduler.sock' ("));
    EXPECT_EQ(log.Count(LogLevel::warning), 0u);
}

// The scheduler query on its own (no device tree needed): names, URIs and the remote bit as
// the scheduler reports them, in its order.
TEST(PrintSchedulerQueues, ListsEveryQueueWithItsUriAndWhetherItIsRemote) {
    PrivateCupsd cupsd;
    cupsd.AddRemoteQueue("Zentrale", "usb://VELA/QRV%20410?serial=SIM0001");
    std::string problem;
    if (!cupsd.Start(problem)) {
        GTEST_SKIP() << "no private print scheduler: " << problem;
    }
    ASSERT_TRUE(cupsd.AddQueue("Étiquettes", "usb://VELA/QRV%20210?serial=A%2B1", problem)) << problem;
    ScopedEnvironment server("CUPS_SERVER", std::wstring(cupsd.Socket().begin(), cupsd.Socket().end()));

    PrintSchedulerListing listing = ListPrintSchedulerQueues();
    ASSERT_TRUE(listing.reachable) << listing.problem;
    EXPECT_EQ(listing.server, cupsd.Socket());
    ASSERT_EQ(listing.queues.size(), 2u);
    EXPECT_EQ(listing.queues[0].name, "Étiquettes");
    EXPECT_EQ(listing.queues[0].deviceUri, "usb://VELA/QRV%20210?serial=A%2B1");
    EXPECT_FALSE(listing.queues[0].isRemote);
    EXPECT_EQ(listing.queues[1].name, "Zentrale");
    EXPECT_TRUE(listing.queues[1].isRemote);
}
