// The access lock keeps processes' transactions apart; a killed one blocks nobody.

#include "support/FaultChecks.h"
#include "support/PauseRecorder.h"
#include "support/SimulatedPrinter.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <thread>

namespace {

using namespace vela::test;
using Clock = std::chrono::steady_clock;
using vela::sim::RequestKind;

constexpr int kProcesses = 4;
constexpr int kRounds = 40;

struct HammerResult {
    int ok = -1, busy = -1, other = -1;
    std::string failures;
};

HammerResult ReadResult(ChildProcess& child) {
    HammerResult result;
    for (std::string line = child.ReadLine(120000); !line.empty(); line = child.ReadLine(120000)) {
        if (line.rfind("done ", 0) == 0) {
            std::istringstream(line.substr(5)) >> result.ok >> result.busy >> result.other;
            break;
        }
        result.failures += line + "\n";
    }
    return result;
}

TEST(Contention, ProcessesHammeringOnePrinterNeverInterleave) {
    SimulatedPrinter printer;
    TempDir folder;
    std::vector<std::unique_ptr<ChildProcess>> children;
    for (int i = 0; i < kProcesses; ++i) {
        children.push_back(std::make_unique<ChildProcess>(
            std::vector<std::string>{"hammer", printer.ChannelPath(), printer.NameUtf8(),
                                     std::to_string(kRounds), std::to_string(1000 + i), folder.Path()}));
    }
    int succeeded = 0;
    for (auto& child : children) {
        const HammerResult result = ReadResult(*child);
        EXPECT_EQ(child->Wait(60000), 0) << result.failures;
        EXPECT_EQ(result.other, 0) << result.failures;
        EXPECT_EQ(result.ok + result.busy, kRounds);
        succeeded += result.ok;
    }
    const auto violations = printer.Printer().Violations();
    EXPECT_TRUE(violations.empty()) << violations.size() << " framing violations, first: "
                                    << (violations.empty() ? "" : violations.front().detail);
    // One whole status query, put or listing fetch per success; the busy ones sent nothing.
    const size_t operations = printer.Printer().CountRequests(RequestKind::statusQuery) +
                              printer.Printer().CountRequests(RequestKind::putFile) +
                              printer.Printer().CountRequests(RequestKind::listFolderFetch);
    EXPECT_EQ(operations, static_cast<size_t>(succeeded));
}

// A killed process leaves at most an unread answer; the next one gets the lock at once. (A Windows
// event lock goes with the killed holder's handle while nobody else has it open, as here.)
TEST(Contention, KillingAProcessMidTransactionCostsTheNextOneNothing) {
    QuietLog quiet;
    SimulatedPrinter printer;
    const ResourceSnapshot baseline = ResourceSnapshot::Take();
    for (int round = 0; round < 5; ++round) {
        ChildProcess looper({"status-loop", printer.ChannelPath(), printer.NameUtf8()});
        ASSERT_EQ(looper.ReadLine(), "running");
        std::this_thread::sleep_for(std::chrono::milliseconds(20 + 13 * round));
        looper.Kill();
        looper.Wait();

        const auto start = Clock::now();
        for (int i = 0; i < 3; ++i) {
            const Outcome outcome = RunCatching([&] { (void)printer.Device().GetStatus(); });
            EXPECT_TRUE(outcome.succeeded)
                << "round " << round << ", query " << i << ": " << outcome.description;
        }
        EXPECT_LT(Clock::now() - start, std::chrono::seconds(2)) << "round " << round;
    }
    ExpectReleased(printer, baseline);
    EXPECT_TRUE(printer.Printer().Violations().empty());
}

} // namespace
