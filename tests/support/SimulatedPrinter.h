#pragma once

#include "kom/connection/NativeQRVDevice.h"
#include "kom/connection/QRVDevice.h"
#include "sim/Simulator.h"
#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

namespace vela::test {

// A simulated printer served over the system's own channel (a pseudo-terminal on Linux, named
// pipes on Windows), with a protocol object that reaches it through the production transport and
// the production access lock. Its name is unique to the process, so that tests running side by
// side never share a lock. QRV_VIRTUAL_PRINTERS names it while the object lives, so the facade
// and the gateway find it too.
class SimulatedPrinter {
public:
    struct Options {
        bool hid = false;
        // How long the printer stays off the channel after an injected disconnect.
        std::chrono::milliseconds reconnectAfter{20};
        std::chrono::milliseconds rebootDelay{300};
        // Reports the updater stays busy for (0: an update installs at once).
        uint32_t updateBusyReports = 0;
    };

    SimulatedPrinter();
    explicit SimulatedPrinter(Options options);
    ~SimulatedPrinter();
    SimulatedPrinter(const SimulatedPrinter&) = delete;
    SimulatedPrinter& operator=(const SimulatedPrinter&) = delete;

    vela::sim::Simulator& Sim() { return *m_sim; }
    vela::sim::SimPrinter& Printer() { return m_sim->Printer(); }
    vela::kom::QRVDevice& Device() { return *m_device; }
    // The printer as discovery lists it.
    const vela::kom::ConnectedPrinter& Connection() const { return m_connection; }
    std::wstring Name() const { return m_connection.printerName; }
    std::string NameUtf8() const;
    std::string ChannelPath() const;
    std::chrono::milliseconds ReconnectAfter() const { return m_options.reconnectAfter; }

    // Waits until the printer has come back on its channel after `disconnects` injected
    // disconnects in all. False after ten seconds.
    bool WaitUntilBack(uint32_t disconnects);

private:
    Options m_options;
    std::unique_ptr<vela::sim::Simulator> m_sim;
    vela::kom::ConnectedPrinter m_connection;
    std::unique_ptr<ScopedEnvironment> m_environment;
    std::unique_ptr<vela::kom::QRVDevice> m_device;
};

// The fixture of the facade's tests: a simulated printer with HID reports (the updater keeps its
// default busy time) and a facade bound to it. The printer must see no malformed request.
class OnSimulatedPrinter : public ::testing::Test {
protected:
    OnSimulatedPrinter();
    void TearDown() override;

    vela::sim::SimPrinter& Printer() { return m_printer.Printer(); }
    vela::sim::Simulator& Sim() { return m_printer.Sim(); }
    vela::kom::NativeQRVDevice& Facade() { return *m_facade; }
    std::wstring Name() const { return m_printer.Name(); }
    const vela::kom::ConnectedPrinter& Record() const { return m_printer.Connection(); }

    SimulatedPrinter m_printer;
    std::unique_ptr<vela::kom::NativeQRVDevice> m_facade;
};

} // namespace vela::test
