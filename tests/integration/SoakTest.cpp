// Long runs that leave no descriptor or thread behind; scripts/soak sets the full counts.

#include "qrv/ManagedQRVDeviceGateway.h"
#include "support/FaultChecks.h"
#include "support/PauseRecorder.h"
#include "support/SimulatedPrinter.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>

namespace {

using namespace vela::test;

uint64_t FromEnvironment(const char* name, uint64_t fallback) {
    const char* value = std::getenv(name);
    return value != nullptr && *value != '\0' ? std::strtoull(value, nullptr, 10) : fallback;
}

#ifdef _WIN32
constexpr uint64_t kDefaultTransactions = 1000;
constexpr uint64_t kDefaultCycles = 60;
#else
constexpr uint64_t kDefaultTransactions = 10000;
constexpr uint64_t kDefaultCycles = 300;
#endif

TEST(Soak, StatusTransactionsLeaveNothingBehind) {
    const uint64_t transactions = FromEnvironment("QRV_SOAK_STATUS_TRANSACTIONS", kDefaultTransactions);
    QuietLog quiet;
    SimulatedPrinter printer;
    (void)printer.Device().GetStatus();
    const ResourceSnapshot before = ResourceSnapshot::Take();
    for (uint64_t i = 0; i < transactions; ++i) {
        (void)printer.Device().GetStatus();
    }
    const ResourceSnapshot after = ResourceSnapshot::Take();
    EXPECT_EQ(SettledHandleCount(before.descriptors), before.descriptors);
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_TRUE(printer.Printer().Violations().empty());
}

TEST(Soak, GatewayOpenCloseCyclesLeaveNothingBehind) {
    const uint64_t cycles = FromEnvironment("QRV_SOAK_GATEWAY_CYCLES", kDefaultCycles);
    QuietLog quiet;
    PauseRecorder pauses;
    SimulatedPrinter::Options options;
    options.hid = true; // Open starts the status monitor thread on the printer's HID channel
    SimulatedPrinter printer(options);
    {
        vela::kom::ManagedQRVDeviceGateway warmUp;
        warmUp.Open(printer.Name());
        warmUp.Close();
    }
    const ResourceSnapshot before = ResourceSnapshot::Take();
    for (uint64_t i = 0; i < cycles; ++i) {
        vela::kom::ManagedQRVDeviceGateway gateway;
        std::atomic<int> events{0};
        gateway.OnPrinterStatusChanged().Add([&events](const auto&) { ++events; });
        gateway.Open(printer.Name());
        if (i % 10 == 0) {
            // Now and then the whole path: a query, and a change the monitor hands on as an event.
            EXPECT_EQ(gateway.GetPrinterStatus().size(), 11u);
            printer.Printer().SetDoorOpen(i % 20 == 0);
            EXPECT_TRUE(Eventually([&] { return events.load() > 0; })) << "no status event in cycle " << i;
        }
        gateway.Close();
    }
    const ResourceSnapshot after = ResourceSnapshot::Take();
    EXPECT_EQ(SettledHandleCount(before.descriptors), before.descriptors);
    EXPECT_EQ(after.threads, before.threads);
}

} // namespace
