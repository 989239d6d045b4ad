// The access lock keeps processes' transactions apart.

#include "support/SimulatedPrinter.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <sstream>

namespace {

using namespace vela::test;
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
    EXPECT_TRUE(printer.Printer().Violations().empty()) << "two processes' requests interleaved";
    // One whole status query, put or listing fetch per success; the busy ones sent nothing.
    const size_t operations = printer.Printer().CountRequests(RequestKind::statusQuery) +
                              printer.Printer().CountRequests(RequestKind::putFile) +
                              printer.Printer().CountRequests(RequestKind::listFolderFetch);
    EXPECT_EQ(operations, static_cast<size_t>(succeeded));
}

} // namespace
