// Broken exchanges of each operation: a pulled cable after k bytes, and a bad reply to its data
// request. Each ends as defined with everything released and nothing half-written, and the
// operation then succeeds.

#include "support/FaultChecks.h"
#include "support/PauseRecorder.h"
#include "support/PrinterOperations.h"
#include "support/SimulatedPrinter.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <mutex>
#include <regex>

namespace {

using namespace vela::test;
using Kind = PrinterOperations::Kind;
using vela::sim::ByteDirection;
using vela::sim::Fault;

// One operation on its own simulated printer, quiet and with instant pauses.
template <class Param> class OnOperations : public ::testing::TestWithParam<Param> {
protected:
    QuietLog quiet;
    PauseRecorder pauses;
    SimulatedPrinter printer;
    PrinterOperations operations{printer};
};

// Bytes of one healthy run of the operation in both directions, from the printer's trace.
uint64_t ExchangeSize(SimulatedPrinter& printer, PrinterOperations& operations, Kind kind) {
    std::mutex mutex;
    uint64_t total = 0;
    const std::regex request(R"(^sim <- .*\((\d+) bytes\):)");
    const std::regex reply(R"(^sim -> (\d+) bytes)");
    operations.Prepare(kind); // before the count: the facade's first binding probes the printer
    printer.Printer().SetTrace([&](const std::string& line) {
        std::smatch match;
        if (std::regex_search(line, match, request) || std::regex_search(line, match, reply)) {
            std::lock_guard<std::mutex> lock(mutex);
            total += std::stoull(match[1].str());
        }
    });
    operations.Run(kind);
    printer.Printer().SetTrace(nullptr);
    std::lock_guard<std::mutex> lock(mutex);
    return total;
}

// Every byte of the first and last kEdge bytes (headers, short replies, the end of the data) and
// about kSpread cuts between; wine reconnects slowly, so Windows samples thinner.
// QRV_SWEEP_EVERY_BYTE=1 cuts after every byte.
#ifdef _WIN32
constexpr uint64_t kEdge = 8;
constexpr uint64_t kSpread = 12;
#else
constexpr uint64_t kEdge = 32;
constexpr uint64_t kSpread = 48;
#endif

uint64_t NextCut(uint64_t k, uint64_t total) {
    static const bool everyByte = std::getenv("QRV_SWEEP_EVERY_BYTE") != nullptr;
    if (everyByte || k < kEdge || k + kEdge >= total) {
        return k + 1;
    }
    const uint64_t step = std::max<uint64_t>(1, (total - 2 * kEdge) / kSpread);
    return std::min(total - kEdge, k + step + k % 5);
}

using DisconnectSweep = OnOperations<Kind>;

TEST_P(DisconnectSweep, EveryCutFailsCleanlyAndTheNextRunSucceeds) {
    const Kind kind = GetParam();
    const uint64_t total = ExchangeSize(printer, operations, kind);
    ASSERT_GT(total, 0u);
    const ResourceSnapshot baseline = ResourceSnapshot::Take();

    uint32_t disconnects = 0;
    for (uint64_t k = 1; k <= total; k = NextCut(k, total)) {
        SCOPED_TRACE(std::string(PrinterOperations::Name(kind)) + " cut after " + std::to_string(k) + " of " +
                     std::to_string(total) + " bytes");
        operations.Prepare(kind);
        printer.Printer().InjectFault(
            Fault::DisconnectAfter(k, ByteDirection::both, printer.ReconnectAfter()));
        const Outcome outcome = RunCatching([&] { operations.Run(kind); });
        ASSERT_FALSE(outcome.foreign) << outcome.description;
        ASSERT_TRUE(printer.Printer().ArmedFaults().empty()) << "the cut did not happen within the exchange";
        ASSERT_TRUE(printer.WaitUntilBack(++disconnects));

        if (outcome.succeeded) {
            // Only after the last byte, or (the update's several transactions) between two of them.
            EXPECT_TRUE(k == total || kind == Kind::update) << "an operation survived a cut inside it";
            operations.CheckAfterSuccess(kind);
        } else {
            operations.CheckAfterFailure(kind);
        }
        ExpectReleased(printer, baseline);

        operations.Prepare(kind);
        const Outcome next = RunCatching([&] { operations.Run(kind); });
        ASSERT_TRUE(next.succeeded) << "the run after the cut failed: " << next.description;
        operations.CheckAfterSuccess(kind);
    }
    EXPECT_TRUE(printer.Printer().Violations().empty()) << "a request went out broken";
}

INSTANTIATE_TEST_SUITE_P(Operations, DisconnectSweep, ::testing::ValuesIn(PrinterOperations::All()),
                         [](const ::testing::TestParamInfo<Kind>& info) {
                             return std::string(PrinterOperations::Name(info.param));
                         });

// The faults by name; a stale message is an old "finished" answer to a completion poll.
enum FaultType { corruptHeader, longerPayload, shorterPayload, wrongCommand, staleMessage };
const std::pair<const char*, Fault (*)()> kFaults[] = {
    {"corruptHeader", [] { return Fault::CorruptStartByte(); }},
    {"longerPayload", [] { return Fault::WrongReplyLength(+1); }},
    {"shorterPayload", [] { return Fault::WrongReplyLength(-1); }},
    {"wrongCommand", [] { return Fault::WrongCommandByte(); }},
    {"staleMessage", [] { return Fault::StaleBytes(); }},
};

struct Case {
    Kind operation;
    FaultType fault;
    const char* expected; // "" for success, else the exception's kind and message
};

// In the order of kFaults. A put's completion poll takes a wrong answer as "not yet" and a stale
// "finished" as the real one (there is no sequence number); update queries ignore the start byte;
// a query or listing drains a corrupt header and is repeated once.
std::vector<Case> Cases() {
    const char* header = "ReplyException: 'Header corrupted'";
    const char* size = "ReplyException: 'Wrong reply size'";
    const char* wrong = "ReplyException: 'Wrong reply'";
    const char* length = "DeviceException: 'Corrupted data length'";
    const std::pair<Kind, std::array<const char*, 5>> rows[] = {
        {Kind::status, {"", size, size, wrong, size}},  {Kind::put, {header, "", "", "", ""}},
        {Kind::get, {header, "", length, wrong, size}}, {Kind::listing, {"", "", "", wrong, size}},
        {Kind::update, {"", size, size, wrong, wrong}},
    };
    std::vector<Case> cases;
    for (const auto& [operation, expected] : rows) {
        for (int fault = corruptHeader; fault <= staleMessage; ++fault) {
            cases.push_back({operation, static_cast<FaultType>(fault), expected[fault]});
        }
    }
    return cases;
}

using ReplyFault = OnOperations<Case>;

TEST_P(ReplyFault, EndsAsDefinedAndLeavesNothingBehind) {
    const Case c = GetParam();
    operations.Prepare(c.operation);
    operations.Run(c.operation); // a healthy run first: the set-up works, the baseline is steady
    const ResourceSnapshot baseline = ResourceSnapshot::Take();

    operations.Prepare(c.operation);
    printer.Printer().InjectFault(kFaults[c.fault].second().For(DataRequest(c.operation)));
    const Outcome outcome = RunCatching([&] { operations.Run(c.operation); });
    ASSERT_FALSE(outcome.foreign) << outcome.description;
    EXPECT_TRUE(printer.Printer().ArmedFaults().empty()) << "the fault never met its reply";
    if (c.expected[0] == '\0') {
        EXPECT_TRUE(outcome.succeeded) << outcome.description;
        operations.CheckAfterSuccess(c.operation);
    } else {
        EXPECT_EQ(outcome.description, c.expected);
        operations.CheckAfterFailure(c.operation);
    }
    ExpectReleased(printer, baseline);

    // Twice: whatever the fault left in the channel must not cost the next run, nor the one after.
    for (int run = 0; run < 2; ++run) {
        operations.Prepare(c.operation);
        const Outcome next = RunCatching([&] { operations.Run(c.operation); });
        EXPECT_TRUE(next.succeeded) << "run " << run + 1 << " after the fault: " << next.description;
    }
    EXPECT_TRUE(printer.Printer().Violations().empty());
}

INSTANTIATE_TEST_SUITE_P(Operations, ReplyFault, ::testing::ValuesIn(Cases()),
                         [](const ::testing::TestParamInfo<Case>& info) {
                             return std::string(PrinterOperations::Name(info.param.operation)) + "_" +
                                    kFaults[info.param.fault].first;
                         });

} // namespace
