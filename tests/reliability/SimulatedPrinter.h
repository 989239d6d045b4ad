#pragma once

#include "kom/connection/QRVDevice.h"
#include "sim/Simulator.h"
#include "support/ScopedEnvironment.h"

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

namespace vela::test {

// A simulated printer served over the system's own channel (a pseudo-terminal on Linux, named
// pipes on Windows), with a protocol
// object that reaches it through the production transport and the production access lock: the
// set-up of every reliability test. The printer's name is unique to the process, so that tests
// running side by side never share a lock. QRV_VIRTUAL_PRINTERS names it while the object lives,
// so the facade and the gateway find it too.
class SimulatedPrinter {
public:
    struct Options {
        bool hid = false;
        // How long the printer stays off the channel after an injected disconnect.
        std::chrono::milliseconds reconnectAfter{20};
    };

    SimulatedPrinter();
    explicit SimulatedPrinter(Options options);
    ~SimulatedPrinter();
    SimulatedPrinter(const SimulatedPrinter&) = delete;
    SimulatedPrinter& operator=(const SimulatedPrinter&) = delete;

    vela::sim::Simulator& Sim() { return *m_sim; }
    vela::sim::SimPrinter& Printer() { return m_sim->Printer(); }
    vela::kom::QRVDevice& Device() { return *m_device; }
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

// A printer name no other test process uses at the same time.
std::string UniquePrinterName(const std::string& base);

} // namespace vela::test
