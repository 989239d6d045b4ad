#include "kom/discovery/QRVPrinters.h"
#include "kom/discovery/linux/PrintSchedulerClient.h"
#include "kom/discovery/linux/PrintSchedulerQueues.h"
#include "support/TestSupport.h"
#include "system/MockedDiscoveryTest.h"
#include "system/PrivateCupsd.h"

using namespace vela::kom;
using vela::common::LogLevel;
using vela::test::LogCapture;
using vela::test::MockUsbPrinter;
using vela::test::PrivateCupsd;
using vela::test::ScopedEnvironment;

using CupsDiscovery = vela::test::MockedDiscoveryTest;

// The scheduler's listing as reported, and each printer named after its first local queue.
// Two printers on the mocked USB bus; a 210 whose device id repeats the make in the model.
TEST_F(CupsDiscovery, QueuesOfTheSchedulerNameTheirPrinters) {
    m_testbed.Add(vela::test::PrinterAt("1-1", 0, 0));
    MockUsbPrinter office = vela::test::PrinterAt("1-2", 1, -1, "QRV-0002");
    office.idProduct = "0024";
    office.product = "VELA QRV 210";
    office.ieee1284Id = "MANUFACTURER:VELA;MODEL:VELA QRV 210;SERIALNUMBER:QRV-0002;";
    m_testbed.Add(office);
    PrivateCupsd cupsd({{"Zentrale", "usb://VELA/QRV%20410?serial=SIM0001", true},
                        {"Étiquettes-Lager", "usb://VELA/QRV%20410?serial=SIM0001"},
                        {"Lager_B", "usb://vela/qrv+210?serial=qrv-0002&interface=0"},
                        {"Lager_A", "usb://VELA/QRV%20210?serial=QRV-0002"},
                        {"Andere", "usb://VELA/QRV%20410?serial=SIM0009"},
                        {"Netzwerk", "socket://192.0.2.10:9100"}});
    std::string problem;
    if (!cupsd.Start(problem)) {
        GTEST_SKIP() << "no private print scheduler: " << problem;
    }
    ScopedEnvironment server("CUPS_SERVER", std::wstring(cupsd.Socket().begin(), cupsd.Socket().end()));

    PrintSchedulerListing queues = ListPrintSchedulerQueues();
    ASSERT_TRUE(queues.reachable) << queues.problem;
    EXPECT_EQ(queues.server, cupsd.Socket());
    // By name, as the scheduler sorts them.
    std::vector<std::string> rows;
    for (const PrintQueue& queue : queues.queues) {
        rows.push_back(queue.name + (queue.isRemote ? " remote " : " ") + queue.deviceUri);
    }
    EXPECT_EQ(rows, (std::vector<std::string>{"Étiquettes-Lager usb://VELA/QRV%20410?serial=SIM0001",
                                              "Andere usb://VELA/QRV%20410?serial=SIM0009",
                                              "Lager_A usb://VELA/QRV%20210?serial=QRV-0002",
                                              "Lager_B usb://vela/qrv+210?serial=qrv-0002&interface=0",
                                              "Netzwerk socket://192.0.2.10:9100",
                                              "Zentrale remote usb://VELA/QRV%20410?serial=SIM0001"}));

    LogCapture log;
    QRVPrinters printers;
    EXPECT_EQ(printers.GetConnectedPrinters(), (std::vector<ConnectedPrinter>{
                                                   {0x0922, 0x0025, L"/dev/usb/lp0", L"Étiquettes-Lager"},
                                                   {0x0922, 0x0024, L"/dev/usb/lp1", L"Lager_A"},
                                               }));
    EXPECT_EQ(printers.GetConnectedHidDevices(),
              (std::vector<ConnectedPrinter>{{0x0922, 0x0025, L"/dev/hidraw0", L"Étiquettes-Lager"}}));
    EXPECT_TRUE(log.Contains(L"Printers::GetConnectedPrinters(): printer /dev/usb/lp1 has 2 print queues: "
                             L"'Lager_A', 'Lager_B'; using 'Lager_A'"));
    EXPECT_EQ(log.Count(LogLevel::warning), 1u);
    EXPECT_EQ(log.Count(LogLevel::info), 0u);
    std::vector<DiscoveredPrinter> listing = printers.ListPrinters();
    ASSERT_EQ(listing.size(), 2u);
    EXPECT_TRUE(listing[0].hasQueue);
}

// Nobody listens there: the host and port asked for come from the setting, else the library's port.
TEST_F(CupsDiscovery, TheServerSettingGivesHostAndPort) {
    for (const auto& [setting, server] : std::vector<std::pair<std::wstring, std::string>>{
             {L"[::1]:47", "::1:47"}, {L"[::1]", "::1:"}, {L"localhost:47/version=1.1", "localhost:47"}}) {
        ScopedEnvironment scheduler("CUPS_SERVER", setting);
        const PrintSchedulerListing queues = ListPrintSchedulerQueues();
        const bool portGiven = server.back() != ':';
        EXPECT_EQ(queues.server,
                  portGiven ? server : server + std::to_string(PrintSchedulerClient::Load().ippPort()));
        EXPECT_FALSE(queues.reachable);
    }
}
