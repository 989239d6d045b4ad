// The executable on a pseudo-terminal (progress bars) and stopped by a real SIGINT (the watch).
#include "CliTestSupport.h"
#include "SpawnedTool.h"

#include "support/TestSupport.h"

#include <csignal>

namespace vela::test {
namespace {

// The spawned tool finds the fixture's simulator through QRV_VIRTUAL_PRINTERS.
using CliTerminal = CliTest;

TEST_F(CliTerminal, TransfersDrawABarOnATerminal) {
    TempDir host;
    WriteHostFile(host.File("big.bin"), TestBytes(2 << 20, 5));
    SpawnedTool tool({"put", host.File("big.bin"), "/mnt/data/images/big.bin"},
                     SpawnedTool::Output::terminal);
    tool.ReadToEnd(30000);
    ASSERT_EQ(tool.Wait(5000), 0) << tool.Out();
    const std::string& text = tool.Out();
    EXPECT_NE(text.find("\rput big.bin  ["), std::string::npos) << text;
    EXPECT_NE(text.find("#]  100%"), std::string::npos) << text;
    EXPECT_NE(text.find("2.0 MiB / 2.0 MiB"), std::string::npos) << text;
    // No plain progress lines on a terminal.
    EXPECT_EQ(text.find("bytes (100%)"), std::string::npos) << text;
}

TEST_F(CliTerminal, WatchStreamsEventsAndEndsCleanlyOnSigint) {
    SpawnedTool tool({"--json", "status", "--watch"}, SpawnedTool::Output::pipes);
    ASSERT_TRUE(tool.ReadUntil("\"event\":\"snapshot\"", 20000)) << tool.Out();
    Printer().SetCutterJammed(true);
    ASSERT_TRUE(tool.ReadUntil("\"issue\":\"cutterJammedOrLabelNotTaken\"", 20000)) << tool.Out();
    ASSERT_TRUE(tool.ReadUntil("\"cutter\":\"jammed\"", 20000)) << tool.Out();
    tool.Signal(SIGINT);
    EXPECT_EQ(tool.Wait(10000), 0);
    tool.ReadToEnd(1000);
    for (size_t start = 0; start < tool.Out().size();) {
        const size_t end = tool.Out().find('\n', start);
        EXPECT_TRUE(nlohmann::json::accept(tool.Out().substr(start, end - start)));
        start = end == std::string::npos ? tool.Out().size() : end + 1;
    }
}

} // namespace
} // namespace vela::test
