// The real qrvctl at the keyboard (in process where fixed pauses would make it slow).
#include "CliTestSupport.h"

#include "TextTable.h"
#include "support/TestSupport.h"

#include <chrono>

namespace vela::test {
namespace {

using vela::sim::RequestKind;
using CliKeyboard = CliTest;

TEST_F(CliKeyboard, HostFileProblemsAreFoundBeforeThePrinterIsTouched) {
    TempDir host;
    WriteHostFile(host.File("here.bin"), TestBytes(10));
    WriteHostFile(host.File("empty.pkg"), {});
    const struct {
        std::vector<std::string> arguments;
        int code;
        std::string part;
    } cases[] = {
        {{"put", host.File("none.bin"), "/mnt/data/images/"}, 5, "no file '" + host.File("none.bin") + "'"},
        {{"put", host.Path(), "/mnt/data/images/"}, 2, "'" + host.Path() + "' on this computer is a folder"},
        {{"get", "/mnt/data/images/a.png", host.File("no/a.png")}, 5, "no folder '" + host.File("no") + "'"},
        {{"get", "--no-clobber", "/mnt/data/images/a.png", host.File("here.bin")},
         8,
         "already exists on this"},
        {{"update", host.File("empty.pkg")}, 2, "is empty: not an update package"},
        {{"update", host.File("none.pkg")}, 5, "no file '" + host.File("none.pkg") + "'"},
    };
    const size_t before = Printer().Requests().size();
    for (const auto& c : cases) {
        const CliResult result = RunTool(c.arguments);
        EXPECT_EQ(result.code, c.code) << c.arguments[0] << ": " << result.err;
        EXPECT_NE(result.err.find(c.part), std::string::npos) << result.err;
    }
    EXPECT_EQ(Printer().Requests().size(), before);
}

TEST_F(CliKeyboard, ForceReplacesLargeDuplicatesAreRefusedFirstAndGetWritesToStandardOutput) {
    TempDir host;
    const auto second = TestBytes(2000, 2);
    WriteHostFile(host.File("a.bin"), TestBytes(1000, 1));
    ASSERT_EQ(RunTool({"put", host.File("a.bin"), "/mnt/data/images/"}).code, 0);
    WriteHostFile(host.File("a.bin"), second);
    const CliResult forced = RunTool({"put", "--force", host.File("a.bin"), "/mnt/data/images/a.bin"});
    ASSERT_EQ(forced.code, 0) << forced.err;
    EXPECT_EQ(Printer().ReadFile("/mnt/data/images/a.bin"), second);
    EXPECT_NE(forced.out.find("Copied " + host.File("a.bin")), std::string::npos) << forced.out;
    EXPECT_EQ(RunTool({"get", "/mnt/data/images/a.bin", "-"}).out, std::string(second.begin(), second.end()));

    WriteHostFile(host.File("big.bin"), TestBytes(5 << 20, 3));
    Printer().WriteFile("/mnt/data/images/big.bin", {1, 2, 3});
    const size_t puts = Printer().CountRequests(RequestKind::putFile);
    const CliResult big = RunTool({"put", host.File("big.bin"), "/mnt/data/images/big.bin"});
    EXPECT_EQ(big.code, 8);
    EXPECT_NE(big.err.find("'/mnt/data/images/big.bin' already exists on the printer"), std::string::npos);
    EXPECT_EQ(Printer().CountRequests(RequestKind::putFile), puts);
}

TEST_F(CliKeyboard, LinesFitANarrowTerminalAndAFailureIsSaidOnce) {
    TempDir host;
    WriteHostFile(host.File("a-rather-long-name-for-a-narrow-terminal.bin"), TestBytes(1 << 20));
    const CliResult narrow[] = {
        RunInProcess({"--printer", kPrinter, "put", host.File("a-rather-long-name-for-a-narrow-terminal.bin"),
                      "/mnt/data/images/"},
                     true, 40),
        RunInProcess({"--printer", kPrinter, "feed"}, true, 40),
        RunInProcess({"update", "--help"}, true, 40)};
    std::string text =
        narrow[2].out + "\n"; // the progress and the wait on the error stream, help on the other
    for (const CliResult& result : narrow) {
        EXPECT_EQ(result.code, 0) << result.err;
        text += result.err + "\n";
    }
    std::string line;
    for (char c : text) {
        if (c == '\r' || c == '\n') {
            EXPECT_LE(vela::qrvctl::TextTable::Width(line), 39u) << line;
            line.clear();
        } else {
            line += c;
        }
    }

    const CliResult typo = Run({"statu"});
    EXPECT_EQ(typo.code, 2);
    EXPECT_NE(typo.err.find("unknown command 'statu'; did you mean 'status'?"), std::string::npos)
        << typo.err;
    const CliResult failure = Run({"-v", "get", "/mnt/data/images/none.png", host.File("none.png")});
    EXPECT_EQ(failure.code, 5);
    EXPECT_EQ(failure.err.find("qrv error:"), std::string::npos) << failure.err;
    EXPECT_EQ(failure.err.find("qrv warning:"), std::string::npos) << failure.err;
}

// Its own simulator (--simulate), spawned: the fixed pause is real, so one print order only.
TEST(CliBinary, SimulateAnswersAndExitsWithTheCodeOfTheFailure) {
    ScopedEnvironment none("QRV_VIRTUAL_PRINTERS", std::wstring());
    const auto start = std::chrono::steady_clock::now();
    const CliResult feed = RunTool({"--simulate", "--json", "feed"});
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(5000));
    ASSERT_EQ(feed.code, 0) << feed.err;
    EXPECT_EQ(feed.Json()["printer"], "QRV Simulator");

    // QRV_LOG_FILE takes the library's lines off the error stream.
    TempDir logs;
    ScopedEnvironment level("QRV_LOG_LEVEL", L"info"), file("QRV_LOG_FILE", logs.WFile("qrv.log"));
    const CliResult missing = RunTool({"--printer", "Nobody Here", "--json", "status"});
    EXPECT_EQ(missing.code, 3);
    EXPECT_EQ(missing.Json()["error"]["kind"], "printerNotFound");
    const std::vector<uint8_t> logged = ReadHostFile(logs.File("qrv.log"));
    EXPECT_NE(std::string(logged.begin(), logged.end()).find("qrv info: QRVDeviceGateway::"),
              std::string::npos);
    EXPECT_EQ(missing.err.find("qrv "), std::string::npos) << missing.err;
}

} // namespace
} // namespace vela::test
