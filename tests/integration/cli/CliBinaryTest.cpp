// The real qrvctl executable with its own in-process simulator (--simulate). Spawned programs
// pause for real, so only one print order runs here.
#include "CliTestSupport.h"

#include "support/TestSupport.h"

#include <chrono>

namespace vela::test {
namespace {

// Its own simulator, with the real fixed pause after a print order, and the exit code and JSON
// error of a printer that is not there.
TEST(CliBinary, SimulateAnswersAndExitsWithTheCodeOfTheFailure) {
    ScopedEnvironment none("QRV_VIRTUAL_PRINTERS", std::wstring());
    const auto start = std::chrono::steady_clock::now();
    const CliResult feed = RunTool({"--simulate", "--json", "feed"});
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5000));
    ASSERT_EQ(feed.code, 0) << feed.err;
    EXPECT_EQ(feed.Json()["printer"], "QRV Simulator");

    const CliResult missing = RunTool({"--printer", "Nobody Here", "--json", "status"});
    EXPECT_EQ(missing.code, 3);
    EXPECT_EQ(missing.Json()["error"]["kind"], "printerNotFound");
}

} // namespace
} // namespace vela::test
