// Bad replies from the simulated printer over the real channel: a corrupted header, a payload one
// byte longer or shorter than it should be, a wrong command byte, and a stale message ahead of the
// reply. Each is aimed at the reply that carries the operation's data. Every case ends as the
// protocol defines it - one of the library's exceptions, or a success where the protocol cannot
// tell (a completion poll simply asks again; a listing has no checksum) - with the lock free, no
// descriptor left open, the host file untouched, and the next run of the operation succeeding:
// nothing of the bad reply may linger in the channel and spoil the next transaction.

#include "support/FaultChecks.h"
#include "support/PauseRecorder.h"
#include "support/PrinterOperations.h"
#include "support/SimulatedPrinter.h"

#include <gtest/gtest.h>

namespace {

using namespace vela::test;
using Kind = PrinterOperations::Kind;
using vela::sim::Fault;

enum class FaultType { corruptHeader, longerPayload, shorterPayload, wrongCommand, staleMessage };

const char* FaultName(FaultType type) {
    switch (type) {
    case FaultType::corruptHeader:
        return "corruptHeader";
    case FaultType::longerPayload:
        return "longerPayload";
    case FaultType::shorterPayload:
        return "shorterPayload";
    case FaultType::wrongCommand:
        return "wrongCommand";
    case FaultType::staleMessage:
        return "staleMessage";
    }
    return "?";
}

Fault MakeFault(FaultType type) {
    switch (type) {
    case FaultType::corruptHeader:
        return Fault::CorruptStartByte();
    case FaultType::longerPayload:
        return Fault::WrongReplyLength(+1);
    case FaultType::shorterPayload:
        return Fault::WrongReplyLength(-1);
    case FaultType::wrongCommand:
        return Fault::WrongCommandByte();
    case FaultType::staleMessage:
        return Fault::StaleBytes(); // an old "finished" answer to a completion poll
    }
    return Fault::Silence();
}

struct Case {
    Kind operation;
    FaultType fault;
    const char* expected; // "" for success, else the exception's kind and message
};

// What each fault must lead to. The completion poll of a put takes a wrong-sized or foreign answer
// as "not yet" and asks again; a stale "finished" answer ahead of the real one is taken for it
// (the protocol carries no sequence number), and the real answer is what is left over. Version,
// cassette and update queries do not look at the start byte. A query or listing that meets a
// corrupt header drains the channel and is repeated once.
const Case kCases[] = {
    {Kind::status, FaultType::corruptHeader, ""},
    {Kind::status, FaultType::longerPayload, "ReplyException: 'Wrong reply size'"},
    {Kind::status, FaultType::shorterPayload, "ReplyException: 'Wrong reply size'"},
    {Kind::status, FaultType::wrongCommand, "ReplyException: 'Wrong reply'"},
    {Kind::status, FaultType::staleMessage, "ReplyException: 'Wrong reply size'"},
    {Kind::put, FaultType::corruptHeader, "ReplyException: 'Header corrupted'"},
    {Kind::put, FaultType::longerPayload, ""},
    {Kind::put, FaultType::shorterPayload, ""},
    {Kind::put, FaultType::wrongCommand, ""},
    {Kind::put, FaultType::staleMessage, ""},
    {Kind::get, FaultType::corruptHeader, "ReplyException: 'Header corrupted'"},
    {Kind::get, FaultType::longerPayload, ""},
    {Kind::get, FaultType::shorterPayload, "DeviceException: 'Corrupted data length'"},
    {Kind::get, FaultType::wrongCommand, "ReplyException: 'Wrong reply'"},
    {Kind::get, FaultType::staleMessage, "ReplyException: 'Wrong reply size'"},
    {Kind::listing, FaultType::corruptHeader, ""},
    {Kind::listing, FaultType::longerPayload, ""},
    {Kind::listing, FaultType::shorterPayload, ""},
    {Kind::listing, FaultType::wrongCommand, "ReplyException: 'Wrong reply'"},
    {Kind::listing, FaultType::staleMessage, "ReplyException: 'Wrong reply size'"},
    {Kind::update, FaultType::corruptHeader, ""},
    {Kind::update, FaultType::longerPayload, "ReplyException: 'Wrong reply size'"},
    {Kind::update, FaultType::shorterPayload, "ReplyException: 'Wrong reply size'"},
    {Kind::update, FaultType::wrongCommand, "ReplyException: 'Wrong reply'"},
    {Kind::update, FaultType::staleMessage, "ReplyException: 'Wrong reply'"},
};

void PrintTo(const Case& c, std::ostream* out) {
    *out << PrinterOperations::Name(c.operation) << " with " << FaultName(c.fault);
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
    printer.Printer().InjectFault(MakeFault(c.fault).For(DataRequest(c.operation)));
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

INSTANTIATE_TEST_SUITE_P(Operations, ReplyFault, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<Case>& info) {
                             return std::string(PrinterOperations::Name(info.param.operation)) + "_" +
                                    FaultName(info.param.fault);
                         });

} // namespace

namespace {

// A reply longer than one raw read (1024 bytes) whose header is corrupted: the library stops after
// the header, and the rest of the reply is still in the channel when the transaction ends - the
// stale message a printer can leave behind. The next transactions must not read it as their reply.
TEST(StaleInput, RestOfARejectedLongReplyDoesNotSpoilTheNextTransactions) {
    QuietLog quiet;
    PauseRecorder pauses;
    SimulatedPrinter printer;
    TempDir folder;
    std::vector<uint8_t> content(8000);
    for (size_t i = 0; i < content.size(); ++i) {
        content[i] = static_cast<uint8_t>(i * 7);
    }
    printer.Printer().WriteFile("/mnt/data/images/large.bin", content);
    const std::wstring host = folder.WFile("large.bin");

    printer.Printer().InjectFault(Fault::CorruptStartByte().For(vela::sim::RequestKind::getFileFetch));
    const Outcome rejected =
        RunCatching([&] { printer.Device().GetFile(L"/mnt/data/images/large.bin", host); });
    EXPECT_EQ(rejected.description, "ReplyException: 'Header corrupted'");
    EXPECT_FALSE(HostFileExists(folder.File("large.bin")));

    const Outcome status = RunCatching([&] { (void)printer.Device().GetStatus(); });
    EXPECT_TRUE(status.succeeded) << status.description;
    const Outcome get =
        RunCatching([&] { EXPECT_EQ(printer.Device().GetFile(L"/mnt/data/images/large.bin", host), 0); });
    EXPECT_TRUE(get.succeeded) << get.description;
    EXPECT_EQ(ReadHostFile(folder.File("large.bin")), content);
}

} // namespace
