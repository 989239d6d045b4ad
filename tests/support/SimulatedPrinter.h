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

// A simulated printer on the system's own channel (a pseudo-terminal, named pipes on Windows) and
// a protocol object over the production transport and lock. Its name is unique to the process;
// QRV_VIRTUAL_PRINTERS names it while it lives, so the facade and the gateway find it too.
class SimulatedPrinter {
public:
    struct Options {
        bool hid = false;
        uint32_t updateBusyReports = 0; // reports the updater stays busy for (0: installs at once)
    };

    SimulatedPrinter();
    explicit SimulatedPrinter(Options options);
    ~SimulatedPrinter();
    SimulatedPrinter(const SimulatedPrinter&) = delete;
    SimulatedPrinter& operator=(const SimulatedPrinter&) = delete;

    vela::sim::SimPrinter& Printer() { return m_sim->Printer(); }
    vela::kom::QRVDevice& Device() { return *m_device; }
    const vela::kom::ConnectedPrinter& Connection() const { return m_connection; }
    std::wstring Name() const { return m_connection.printerName; }
    std::string NameUtf8() const;
    std::string ChannelPath() const;
    // Off the channel after an injected disconnect.
    static std::chrono::milliseconds ReconnectAfter() { return std::chrono::milliseconds(20); }

    // Until it is back after `disconnects` injected disconnects in all; false after ten seconds.
    bool WaitUntilBack(uint32_t disconnects);

private:
    std::unique_ptr<vela::sim::Simulator> m_sim;
    vela::kom::ConnectedPrinter m_connection;
    std::unique_ptr<ScopedEnvironment> m_environment;
    std::unique_ptr<vela::kom::QRVDevice> m_device;
};

// A simulated printer with HID and a facade bound to it; the printer must see no malformed request.
class OnSimulatedPrinter : public ::testing::Test {
protected:
    OnSimulatedPrinter();
    void TearDown() override;

    vela::sim::SimPrinter& Printer() { return m_printer.Printer(); }
    vela::kom::NativeQRVDevice& Facade() { return *m_facade; }
    std::wstring Name() const { return m_printer.Name(); }
    const vela::kom::ConnectedPrinter& Record() const { return m_printer.Connection(); }

    SimulatedPrinter m_printer;
    std::unique_ptr<vela::kom::NativeQRVDevice> m_facade;
};

} // namespace vela::test
