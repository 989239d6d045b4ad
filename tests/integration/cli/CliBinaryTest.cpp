// The real qrvctl with its own simulator (--simulate); spawned, it pauses for real: one order only.
#include "CliTestSupport.h"

#include "support/TestSupport.h"

#include <chrono>

namespace vela::test {
namespace {

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
