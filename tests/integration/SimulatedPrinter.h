#pragma once

// A simulated printer on the real OS channels, registered for discovery through
// QRV_VIRTUAL_PRINTERS, with a facade bound to it.
#include "common/StringConverter.h"
#include "kom/connection/NativeQRVDevice.h"
#include "sim/Simulator.h"
#include "support/ScopedEnvironment.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <thread>

namespace vela::test {

class SimulatedPrinter : public ::testing::Test {
protected:
    void SetUp() override {
        // A name of its own per test, so that parallel test processes never share a lock.
        static std::atomic<int> counter{0};
        m_name = "Conn Printer " + std::to_string(std::random_device()()) + "-" + std::to_string(counter++);
        vela::sim::Simulator::Options options;
        options.name = m_name;
        options.printer.rebootDelay = std::chrono::milliseconds(300);
        m_sim = std::make_unique<vela::sim::Simulator>(options);
        m_environment = std::make_unique<ScopedEnvironment>(
            "QRV_VIRTUAL_PRINTERS", vela::common::StringConverter::FromUtf8(m_sim->EntryText()));
        m_facade = std::make_unique<vela::kom::NativeQRVDevice>(Name(), 0);
        m_facade->SetPrinterName(Name());
        Printer().ClearRequests();
    }
    void TearDown() override {
        m_facade.reset();
        // The library's framing must be exact: the printer saw no malformed request.
        EXPECT_TRUE(m_sim->Printer().Violations().empty());
        m_sim.reset();
    }

    std::wstring Name() const { return vela::common::StringConverter::FromUtf8(m_name); }
    vela::sim::SimPrinter& Printer() { return m_sim->Printer(); }
    vela::kom::NativeQRVDevice& Facade() { return *m_facade; }
    // The printer as discovery would list it.
    vela::kom::ConnectedPrinter Record() const {
        return vela::kom::ConnectedPrinter{0x0922, m_sim->ProductId(), m_sim->PrinterPath(), Name()};
    }

    // Polls `condition` every 10 ms for up to `timeoutMs`.
    template <class Condition> static bool Eventually(Condition condition, uint32_t timeoutMs = 5000) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return true;
    }

    std::string m_name;
    std::unique_ptr<vela::sim::Simulator> m_sim;
    std::unique_ptr<ScopedEnvironment> m_environment;
    std::unique_ptr<vela::kom::NativeQRVDevice> m_facade;
};

} // namespace vela::test
