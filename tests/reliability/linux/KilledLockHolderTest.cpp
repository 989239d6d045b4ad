// A holder killed while it holds the printer's access lock. The Linux lock is a file lock, which
// the kernel drops with the process; the named event of Windows stays taken as long as any other
// process keeps it open, so this promise is Linux's alone.

#include "common/StringConverter.h"
#include "kom/connection/PrinterAccessSynchronizer.h"
#include "reliability/SimulatedPrinter.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace vela::test;
using Clock = std::chrono::steady_clock;

// SIGKILL: no destructor runs, and still the lock is free for the next program at once.
TEST(Contention, LockOfAKilledHolderIsFreeAtOnce) {
    const std::string name = UniquePrinterName("Killed holder");
    ChildProcess holder({"hold-lock", name, "60000"});
    ASSERT_EQ(holder.ReadLine(), "locked");
    holder.Kill();
    holder.Wait();

    vela::kom::ConnectedPrinter printer;
    printer.printerName = vela::common::StringConverter::FromUtf8(name);
    const auto start = Clock::now();
    { vela::kom::PrinterAccessSynchronizer lock(printer); }
    EXPECT_LT(Clock::now() - start, std::chrono::milliseconds(500));
}

} // namespace
