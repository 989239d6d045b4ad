// The executable on a terminal, stopped by signals, waiting for the lock, watching an unplug.
#include "CliTestSupport.h"
#include "support/BuildPaths.h"
#include "support/linux/SpawnedProgram.h"

#include "common/StringConverter.h"
#include "support/TestSupport.h"

#include <chrono>
#include <csignal>
#include <future>

namespace vela::test {
namespace {

using Clock = std::chrono::steady_clock;
using vela::common::StringConverter;
using CliInterrupt = CliTest;

// The first Ctrl+C cancels the transfer, a second quits at once; neither leaves a host file.
TEST_F(CliInterrupt, CtrlCCancelsTheTransferAndASecondQuitsAtOnce) {
    Printer().WriteFile("/mnt/data/images/big.bin", TestBytes(48 << 20, 6));
    for (const int presses : {1, 2}) {
        SCOPED_TRACE(presses);
        TempDir host;
        SpawnedProgram tool(kQrvctlPath, {"get", "/mnt/data/images/big.bin", host.File("big.bin")},
                            SpawnedProgram::Output::terminal);
        // On a terminal the progress is a bar redrawn in place, never plain lines.
        ASSERT_TRUE(tool.ReadUntil(" / 48.0 MiB", 20000)) << tool.Out();
        EXPECT_NE(tool.Out().find("\rget big.bin  ["), std::string::npos) << tool.Out();
        tool.Signal(SIGINT);
        if (presses == 2) {
            // Signals sent together arrive as one: the second comes once the first was taken.
            ASSERT_TRUE(tool.ReadUntil("cancelling the transfer", 5000)) << tool.Out();
            tool.Signal(SIGINT);
        }
        EXPECT_EQ(tool.Wait(presses == 1 ? 10000 : 5000), 130);
        tool.ReadToEnd(1000);
        EXPECT_NE(tool.Out().find("qrvctl: interrupted"), std::string::npos) << tool.Out();
        EXPECT_EQ(tool.Out().find(" bytes ("), std::string::npos) << tool.Out();
        EXPECT_TRUE(ListDirectory(host.Path()).empty());
    }
}

TEST_F(CliInterrupt, ALockWaitNamesItsHolderAndTheTimeLimitEndsIt) {
    ChildProcess holder({"hold-lock", kPrinter, "30000"});
    ASSERT_EQ(holder.ReadLine(), "locked");
    const auto start = Clock::now();
    const CliResult status = RunTool({"--timeout", "3", "status"});
    EXPECT_LT(Clock::now() - start, std::chrono::seconds(6));
    EXPECT_EQ(status.code, 7);
    EXPECT_NE(status.err.find(std::string("waiting for another program that uses '") + kPrinter +
                              "' (qrv-test-helper, pid "),
              std::string::npos)
        << status.err;
    EXPECT_NE(status.err.find("time limit of 3 s (--timeout)"), std::string::npos) << status.err;
}

// A command without a transfer quits at the first Ctrl+C, also while it waits for the printer,
// and says so as its errors are said: a line, or the JSON error document.
TEST_F(CliInterrupt, CtrlCWhileWaitingQuitsAtOnceAndSaysSo) {
    ChildProcess holder({"hold-lock", kPrinter, "30000"});
    ASSERT_EQ(holder.ReadLine(), "locked");
    for (const bool json : {false, true}) {
        SCOPED_TRACE(json);
        SpawnedProgram tool(kQrvctlPath,
                            json ? std::vector<std::string>{"--json", "status"}
                                 : std::vector<std::string>{"status"},
                            SpawnedProgram::Output::terminal);
        ASSERT_TRUE(tool.ReadUntil("waiting for another program", 10000)) << tool.Out();
        tool.Signal(SIGINT);
        EXPECT_EQ(tool.Wait(2000), 130);
        tool.ReadToEnd(1000);
        EXPECT_NE(tool.Out().find(json ? "\"exitCode\": 130" : "\r\nqrvctl: interrupted\r\n"),
                  std::string::npos)
            << tool.Out();
    }
}

TEST_F(CliInterrupt, WatchSaysWhenThePrinterGoesAndComesBack) {
    SpawnedProgram tool(kQrvctlPath, {"--json", "status", "--watch"}, SpawnedProgram::Output::pipes);
    ASSERT_TRUE(tool.ReadUntil("\"event\":\"snapshot\"", 20000)) << tool.Out();
    Printer().SetRebootDelay(std::chrono::milliseconds(3000));
    EXPECT_EQ(RunTool({"reboot"}).code, 0);
    EXPECT_TRUE(tool.ReadUntil("\"event\":\"gone\"", 10000)) << tool.Out();
    EXPECT_TRUE(tool.ReadUntil("\"event\":\"back\"", 20000)) << tool.Out();
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(10000), 0);
}

// Two names of one device (a simulator registered twice) exclude each other on Linux.
TEST_F(CliInterrupt, TwoNamesOfOneDeviceTakeTurns) {
    auto alias = m_simulator.Entry();
    alias.name = "Alias";
    ScopedEnvironment twoNames("QRV_VIRTUAL_PRINTERS",
                               StringConverter::FromUtf8(m_simulator.EntryText() + ";" + alias.Format()));
    TempDir host;
    WriteHostFile(host.File("one.bin"), TestBytes(3 << 20, 4));
    auto first = std::async(std::launch::async, [&] {
        return RunTool({"--printer", kPrinter, "put", host.File("one.bin"), "/mnt/data/images/one.bin"});
    });
    const CliResult second =
        RunTool({"--printer", "Alias", "put", host.File("one.bin"), "/mnt/data/images/two.bin"});
    EXPECT_EQ(second.code, 0) << second.err;
    EXPECT_EQ(first.get().code, 0);
    EXPECT_EQ(Printer().ReadFile("/mnt/data/images/two.bin"), TestBytes(3 << 20, 4));
}

} // namespace
} // namespace vela::test
