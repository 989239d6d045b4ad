// A bad reply to each operation's data request ends as defined and leaves nothing behind.

#include "support/FaultChecks.h"
#include "support/PauseRecorder.h"
#include "support/PrinterOperations.h"
#include "support/SimulatedPrinter.h"

#include <gtest/gtest.h>

#include <array>

namespace {

using namespace vela::test;
using Kind = PrinterOperations::Kind;
using vela::sim::Fault;

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

class ReplyFault : public ::testing::TestWithParam<Case> {
protected:
    QuietLog quiet;
    PauseRecorder pauses;
    SimulatedPrinter printer;
    PrinterOperations operations{printer};
};

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
