#include "support/SimulatedPrinter.h"

#include "common/StringConverter.h"
#include "support/SystemProbe.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace vela::test {

using vela::common::StringConverter;

namespace {

// A name no other test process uses at the same time.
std::string UniquePrinterName(const std::string& base) {
    static std::atomic<int> counter{0};
    return base + " " + std::to_string(CurrentProcessId()) + "-" + std::to_string(++counter);
}

} // namespace

SimulatedPrinter::SimulatedPrinter() : SimulatedPrinter(Options()) {}

SimulatedPrinter::SimulatedPrinter(Options options) {
    vela::sim::Simulator::Options simOptions;
    simOptions.name = UniquePrinterName("Simulated");
    simOptions.model = "410";
    simOptions.hid = options.hid;
    simOptions.printer.rebootDelay = std::chrono::milliseconds(300);
    if (std::getenv("QRV_TEST_TRACE") != nullptr) {
        // Every frame, fault and disconnect on standard error, to see why a case failed.
        simOptions.trace = [](const std::string& line) { std::fprintf(stderr, "%s\n", line.c_str()); };
    }
    m_sim = std::make_unique<vela::sim::Simulator>(simOptions);
    m_sim->Printer().SetUpdateBusyReports(options.updateBusyReports);
    m_connection.vendorId = 0x0922;
    m_connection.productId = m_sim->ProductId();
    m_connection.devicePath = m_sim->PrinterPath();
    m_connection.printerName = StringConverter::FromUtf8(simOptions.name);
    m_environment = std::make_unique<ScopedEnvironment>("QRV_VIRTUAL_PRINTERS",
                                                        StringConverter::FromUtf8(m_sim->EntryText()));
    m_device = std::make_unique<vela::kom::QRVDevice>(m_connection);
}

SimulatedPrinter::~SimulatedPrinter() {
    m_device.reset();
    m_sim->Stop();
}

std::string SimulatedPrinter::NameUtf8() const {
    return StringConverter::ToUtf8(m_connection.printerName);
}

std::string SimulatedPrinter::ChannelPath() const {
    return StringConverter::ToUtf8(m_connection.devicePath);
}

bool SimulatedPrinter::WaitUntilBack(uint32_t disconnects) {
    return m_sim->WaitForReconnections(disconnects, std::chrono::seconds(10));
}

OnSimulatedPrinter::OnSimulatedPrinter()
    : m_printer(SimulatedPrinter::Options{true, 2}) { // HID, a busy updater
    m_facade = std::make_unique<vela::kom::NativeQRVDevice>(Name(), 0);
    m_facade->SetPrinterName(Name());
    Printer().ClearRequests();
}

void OnSimulatedPrinter::TearDown() {
    m_facade.reset();
    EXPECT_TRUE(Printer().Violations().empty());
}

} // namespace vela::test
