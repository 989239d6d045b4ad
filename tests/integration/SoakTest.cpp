// Long runs that leave no descriptor or thread behind; scripts/soak sets the full counts.

#include "support/FaultChecks.h"
#include "support/SimulatedPrinter.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

namespace {

using namespace vela::test;

#ifdef _WIN32
constexpr uint64_t kDefaultTransactions = 1000;
#else
constexpr uint64_t kDefaultTransactions = 10000;
#endif

TEST(Soak, StatusTransactionsLeaveNothingBehind) {
    const char* set = std::getenv("QRV_SOAK_STATUS_TRANSACTIONS");
    const uint64_t transactions =
        set != nullptr && *set != '\0' ? std::strtoull(set, nullptr, 10) : kDefaultTransactions;
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

} // namespace
