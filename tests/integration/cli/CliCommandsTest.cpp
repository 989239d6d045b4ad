#include "CliTestSupport.h"

#include "CommandLine.h"
#include "InterruptSignal.h"
#include "common/StringConverter.h"
#include "sim/RequestDecoder.h"
#include "support/TestSupport.h"

#include <algorithm>
#include <csignal>
#include <thread>
#include <utility>
#include <vector>

namespace vela::test {
namespace {

using vela::sim::RequestKind;

TEST_F(CliTest, PrintOrdersSendTheirCodesEachFollowedByTheFixedPause) {
    for (const std::string command : {"feed", "cut", "resume", "clear-error", "clear-cutter-jam"}) {
        SCOPED_TRACE(command);
        m_pauses.Clear();
        const CliResult result = Run({"--json", command});
        ASSERT_EQ(result.code, 0) << result.out << result.err;
        EXPECT_EQ(result.Json()["command"], command);
        const std::vector<uint32_t> pauses = m_pauses.Pauses();
        EXPECT_EQ(std::count(pauses.begin(), pauses.end(), 5000u), 1);
        // Piped: the wait is announced in one plain line, never redrawn.
        EXPECT_NE(result.err.find(command + ": order sent; the printer gets a fixed 5 s"), std::string::npos);
        EXPECT_EQ(result.err.find('\r'), std::string::npos);
    }
    std::vector<uint8_t> codes;
    for (const auto& record : Printer().Requests()) {
        if (record.kind == RequestKind::printControl) {
            codes.push_back(vela::sim::DecodeRequest(record.raw).request.code);
        }
    }
    EXPECT_EQ(codes, (std::vector<uint8_t>{10, 4, 1, 3, 15}));
}

TEST_F(CliTest, FilesMakeTheRoundTripAndTheFolderShowsThem) {
    TempDir host;
    const auto bytes = TestBytes(300 * 1024 + 17, 1);
    WriteHostFile(host.File("label.bin"), bytes);

    CliResult put = Run({"--json", "put", host.File("label.bin"), "/mnt/data/images/"});
    ASSERT_EQ(put.code, 0) << put.err;
    EXPECT_EQ(put.Json()["printerPath"], "/mnt/data/images/label.bin");
    EXPECT_EQ(put.Json()["bytes"], bytes.size());
    EXPECT_EQ(Printer().ReadFile("/mnt/data/images/label.bin"), bytes);
    // Piped: one plain progress line per quarter, the last one complete.
    size_t lines = 0;
    for (size_t at = put.err.find("put label.bin: "); at != std::string::npos;
         at = put.err.find("put label.bin: ", at + 1)) {
        ++lines;
    }
    EXPECT_EQ(lines, 4u) << put.err;
    EXPECT_NE(put.err.find(" bytes (100%)"), std::string::npos) << put.err;

    const nlohmann::json listing = Run({"--json", "ls", "/mnt/data/images"}).Json();
    EXPECT_EQ(listing["entries"],
              nlohmann::json::array({{{"name", "label.bin"}, {"type", "file"}, {"size", bytes.size()}}}));

    // Into a folder: the file keeps its printer name.
    CliResult get = Run({"--json", "get", "/mnt/data/images/label.bin", host.Path()});
    ASSERT_EQ(get.code, 0) << get.err;
    EXPECT_EQ(ReadHostFile(get.Json()["hostFile"].get<std::string>()), bytes);

    ASSERT_EQ(Run({"mv", "/mnt/data/images/label.bin", "/mnt/data/templates/label.bin"}).code, 0);
    EXPECT_TRUE(Printer().ReadFile("/mnt/data/templates/label.bin").has_value());
    ASSERT_EQ(Run({"rm", "/mnt/data/templates/label.bin"}).code, 0);
    EXPECT_FALSE(Printer().ReadFile("/mnt/data/templates/label.bin").has_value());

    const nlohmann::json df = Run({"--json", "df"}).Json();
    EXPECT_EQ(df["totalKiB"], df["freeKiB"].get<uint64_t>() + df["usedKiB"].get<uint64_t>());
    EXPECT_NEAR(df["totalKiB"].get<double>(), static_cast<double>(Printer().DiskCapacity() >> 10), 1.0);
}

TEST_F(CliTest, LogsAreListedAndFetched) {
    // The files (not folders) whose names hold "syslog" in this letter case, in listing order.
    Printer().WriteFile("/mnt/data/settings/kernel-syslog.txt", {1}, true);
    Printer().WriteFile("/mnt/data/settings/SYSLOG", {1}, true);
    Printer().AddFolder("/mnt/data/settings/syslog.d");
    const nlohmann::json listed = Run({"--json", "logs"}).Json();
    EXPECT_EQ(listed["logs"], (nlohmann::json{"/mnt/data/settings/kernel-syslog.txt",
                                              "/mnt/data/settings/syslog", "/mnt/data/settings/syslog.1"}));

    TempDir host;
    const std::string folder = host.File("fetched/logs");
    CliResult fetched = Run({"--json", "logs", "--fetch", folder});
    ASSERT_EQ(fetched.code, 0) << fetched.err;
    const nlohmann::json logs = fetched.Json()["logs"];
    ASSERT_EQ(logs.size(), 3u);
    for (const auto& log : logs) {
        const auto printerCopy = Printer().ReadFile(log["printerPath"].get<std::string>());
        ASSERT_TRUE(printerCopy.has_value());
        EXPECT_EQ(ReadHostFile(log["hostFile"].get<std::string>()), *printerCopy);
    }
}

TEST_F(CliTest, StatusAndInfoNameEveryField) {
    Printer().SetCutterJammed(true);
    const CliResult status = Run({"--json", "status"});
    ASSERT_EQ(status.code, 0) << status.err;
    const nlohmann::json fields = status.Json()["status"];
    EXPECT_EQ(fields.size(), 11u);
    EXPECT_EQ(fields["cutter"], "jammed");
    EXPECT_EQ(fields["cassetteDoor"], "closed");
    EXPECT_EQ(fields["battery"], "level4");
    EXPECT_EQ(status.Json()["errors"], (nlohmann::json{{{"field", "cutter"}, {"value", "jammed"}}}));
    const CliResult text = Run({"status"});
    EXPECT_NE(text.out.find("Needs attention  Cutter jammed"), std::string::npos) << text.out;

    Printer().SetExternalPower(true, true);
    Printer().SetSku("QRV-123");
    const nlohmann::json info = Run({"--json", "info"}).Json();
    EXPECT_EQ(info["model"], "VELA QRV 410");
    EXPECT_EQ(info["versions"]["firmware"], Printer().GetVersions().firmware);
    EXPECT_EQ(info["deviceId"], Printer().GetVersions().deviceId);
    EXPECT_EQ(info["battery"],
              (nlohmann::json{{"percent", 80}, {"status", "level4"}, {"charging", "charging"}}));
    EXPECT_EQ(info["externalPower"], "connected");
    EXPECT_EQ(info["cassetteSku"], "QRV-123");
    EXPECT_EQ(info["folders"], (nlohmann::json{{"images", "/mnt/data/images"},
                                               {"jobs", "/mnt/data/jobs"},
                                               {"templates", "/mnt/data/templates"},
                                               {"update", "/mnt/data/update"}}));
    Printer().SetCassettePresent(false);
    EXPECT_TRUE(Run({"--json", "info"}).Json()["cassetteSku"].is_null());
}

TEST_F(CliTest, UpdateShowsItsPhasesAndInstallsThePackage) {
    TempDir host;
    WriteHostFile(host.File("qrv-fw-3.1.4.pkg"), TestBytes(64 * 1024, 2));
    Printer().WriteFile("/mnt/data/update/qrv-fw-3.1.4.pkg", TestBytes(10)); // left by an earlier update
    Printer().SetUpdaterBusy(2); // busy with something of its own when the update begins
    Printer().SetUpdateBusyReports(3);
    const CliResult update = Run({"--json", "update", host.File("qrv-fw-3.1.4.pkg")});
    ASSERT_EQ(update.code, 0) << update.err;
    EXPECT_EQ(update.Json()["firmwareBefore"], "1.8.2");
    EXPECT_EQ(update.Json()["firmwareAfter"], "3.1.4");
    size_t at = 0;
    for (const char* phase :
         {"update: do not unplug the printer or interrupt the update",
          "update: removed /mnt/data/update/qrv-fw-3.1.4.pkg, left on the printer by an earlier update",
          "update: waiting until the printer", "update: copying qrv-fw-3.1.4.pkg", "(100%)",
          "update: applying", "update: the printer installs", "update: cleaning up", "update: done in"}) {
        const size_t found = update.err.find(phase, at);
        ASSERT_NE(found, std::string::npos) << "missing or out of order: " << phase << "\n" << update.err;
        at = found;
    }
    // The library's steps from its first updater query, and its fixed pauses between the polls.
    using K = RequestKind;
    std::vector<K> kinds;
    for (const auto& request : Printer().Requests()) {
        if (request.kind != K::completionPoll) {
            kinds.push_back(request.kind);
        }
    }
    const auto first = std::find(kinds.begin(), kinds.end(), K::updateStatus);
    ASSERT_GE(kinds.end() - first, 11);
    EXPECT_EQ(std::vector<K>(first, first + 11),
              (std::vector<K>{K::updateStatus, K::updateStatus, K::updateStatus, K::folderDetail, K::putFile,
                              K::deviceControl, K::updateStatus, K::updateStatus, K::updateStatus,
                              K::updateStatus, K::deleteFile}));
    EXPECT_FALSE(Printer().ReadFile("/mnt/data/update/qrv-fw-3.1.4.pkg").has_value());
    std::vector<uint32_t> fixed = m_pauses.Pauses();
    fixed.erase(
        std::remove_if(fixed.begin(), fixed.end(), [](uint32_t p) { return p != 4000 && p != 20000; }),
        fixed.end());
    EXPECT_EQ(fixed, (std::vector<uint32_t>{4000, 20000}));
}

TEST_F(CliTest, EachFailureKindHasItsExitCodeAndJsonError) {
    TempDir host;
    WriteHostFile(host.File("a.bin"), TestBytes(1000, 3));
    Printer().WriteFile("/mnt/data/images/taken.bin", {1, 2, 3});
    struct Case {
        std::vector<std::string> arguments;
        int code;
        const char* kind;
    };
    const std::vector<Case> cases = {
        {{"get", "/mnt/data/images/none.png", host.File("none.png")}, 5, "notFound"},
        {{"ls", "/mnt/data/nowhere"}, 5, "notFound"},
        {{"put", host.File("a.bin"), "/mnt/data/settings/a.bin"}, 4, "accessDenied"},
        {{"put", host.File("a.bin"), "/mnt/data/images/taken.bin"}, 8, "invalidName"},
        {{"put", host.File("a.bin"), "/mnt/data/images/a*b.bin"}, 8, "invalidName"},
        {{"rm", "relative/path"}, 8, "invalidName"},
    };
    for (const auto& c : cases) {
        std::vector<std::string> arguments{"--json"};
        arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
        const CliResult result = Run(arguments);
        SCOPED_TRACE(result.out + result.err);
        EXPECT_EQ(result.code, c.code);
        EXPECT_EQ(result.Json()["error"]["kind"], c.kind);
        EXPECT_EQ(result.Json()["error"]["exitCode"], c.code);
        EXPECT_FALSE(result.Json()["error"]["message"].get<std::string>().empty());
    }

    Printer().SetDiskCapacity(Printer().DiskUsed() + 100);
    EXPECT_EQ(Run({"put", host.File("a.bin"), "/mnt/data/images/big.bin"}).code, 6);

    // A printer that keeps answering the status query wrongly: retried (pauses recorded), then
    // reported as a communication failure.
    Printer().InjectFault(vela::sim::Fault::WrongCommandByte().For(RequestKind::statusQuery).Persistent());
    const CliResult garbled = Run({"status"});
    EXPECT_EQ(garbled.code, 7) << garbled.err;
    EXPECT_NE(garbled.err.find("qrvctl: QRVDeviceGateway::GetPrinterStatus(): Printer Communication Error"),
              std::string::npos)
        << garbled.err;
    EXPECT_NE(garbled.err.find("hint:"), std::string::npos);
}

TEST_F(CliTest, PrinterChoiceAndUsageErrors) {
    // The simulator is the only printer: no --printer needed.
    EXPECT_EQ(Run({"--json", "status"}, false).Json()["printer"], kPrinter);

    const CliResult unknown = Run({"--printer", "cli test printer", "status"}, false);
    EXPECT_EQ(unknown.code, 3);
    EXPECT_NE(unknown.err.find("the printers are: 'CLI Test Printer'"), std::string::npos) << unknown.err;

    // More printers make the choice ambiguous; a name that two of them share lists them by serial.
    vela::sim::Simulator::Options other;
    other.name = "Second Printer";
    other.serial = "TWIN0002";
    vela::sim::Simulator second(other);
    other.name = kPrinter;
    other.serial = "TWIN0003";
    vela::sim::Simulator twin(other);
    ScopedEnvironment all("QRV_VIRTUAL_PRINTERS",
                          vela::common::StringConverter::FromUtf8(
                              m_simulator.EntryText() + ";" + second.EntryText() + ";" + twin.EntryText()));
    const CliResult ambiguous = Run({"status"}, false);
    EXPECT_EQ(ambiguous.code, 2);
    EXPECT_NE(ambiguous.err.find(
                  "3 printers are attached: 'CLI Test Printer', 'Second Printer', 'CLI Test Printer'"),
              std::string::npos)
        << ambiguous.err;
    const CliResult sameName = Run({"status"});
    EXPECT_EQ(sameName.code, 2);
    EXPECT_NE(sameName.err.find("names 2 printers"), std::string::npos) << sameName.err;
    EXPECT_NE(sameName.err.find("serial TWIN0003"), std::string::npos) << sameName.err;
    // By name, serial, device URI (in any letter case, with an interface) or path.
    for (const std::string& choice : {std::string("Second Printer"), std::string("TWIN0002"),
                                      std::string("usb://vela/QRV%20410?serial=twin0002&interface=1"),
                                      vela::common::StringConverter::ToUtf8(second.PrinterPath())}) {
        const size_t before = second.Printer().Requests().size();
        EXPECT_EQ(Run({"--printer", choice, "status"}, false).code, 0) << choice;
        EXPECT_GT(second.Printer().Requests().size(), before) << choice;
    }
    const nlohmann::json listed = Run({"--json", "list"}, false).Json()["printers"][1];
    EXPECT_EQ(listed["deviceUri"], "usb://VELA/QRV%20410?serial=TWIN0002");
    EXPECT_EQ(listed["usbId"], "0922:0025");
    EXPECT_EQ(listed["virtual"], true);
}

TEST_F(CliTest, CommandLineGrammar) {
    // The program's options on either side of the command, with their value apart or after '='.
    EXPECT_EQ(Run({"status", "--json", "--printer=" + std::string(kPrinter)}, false).Json()["printer"],
              kPrinter);
    EXPECT_EQ(Run({"--timeout=30", "status", "--json"}).Json()["printer"], kPrinter);
    // $QRV_PRINTER names the printer unless --printer does.
    ScopedEnvironment chosen("QRV_PRINTER", L"Nobody Here");
    EXPECT_EQ(Run({"status"}, false).code, 3);
    EXPECT_EQ(Run({"status"}).code, 0);
    // After "--" a word that starts with '-' is an argument, not an option.
    const CliResult dashed = Run({"ls", "--", "-folder"});
    EXPECT_NE(dashed.code, 2) << dashed.err;

    const std::pair<std::vector<std::string>, const char*> mistakes[] = {
        {{"frobnicate"}, "unknown command 'frobnicate'"},
        {{"get", "/only/one"}, "HOST_FILE is required"},
        {{"rm", "/a", "/b"}, "unexpected argument '/b'"},
        {{"status", "--bogus"}, "unknown option '--bogus'"},
        {{"ls", "--watch", "/"}, "unknown option '--watch'"}, // another command's option
        {{"status", "--printer"}, "--printer needs a value"},
        {{"--json=yes", "status"}, "--json takes no value"},
        {{"--timeout", "0", "status"}, "more than 0 seconds"},
        {{"--timeout", "2s", "status"}, "'2s' is not a number of seconds"},
        {{"-v"}, "no command given"},
        {{}, ""}, // the help, on the output stream
    };
    for (const auto& [arguments, message] : mistakes) {
        const CliResult result = Run(arguments, false);
        EXPECT_EQ(result.code, 2) << arguments.size();
        EXPECT_NE(result.err.find(message), std::string::npos) << result.err;
    }
    EXPECT_EQ(Run({"--json", "ls"}, false).Json()["error"]["kind"], "usage");

    // Help anywhere on the line, also among short flags; a command's help lists its own options
    // and those of the program.
    const CliResult help = Run({"-vh"}, false);
    EXPECT_EQ(help.code, 0);
    EXPECT_NE(help.out.find("Commands:\n  list "), std::string::npos) << help.out;
    const CliResult statusHelp = Run({"status", "--json", "--help"}, false);
    EXPECT_EQ(statusHelp.code, 0);
    for (const char* part : {"Usage: qrvctl status [OPTIONS]", "--watch", "--timeout SECONDS"}) {
        EXPECT_NE(statusHelp.out.find(part), std::string::npos) << part << "\n" << statusHelp.out;
    }
    EXPECT_EQ(Run({"--version", "status"}, false).out, "qrvctl 0.1.0\n");
}

// The watch ends with Ctrl+C: here the signal is raised in this process once the events are in.
TEST_F(CliTest, WatchShowsChangesAndInterruptsUntilCtrlC) {
    SharedText out;
    SharedText err;
    vela::qrvctl::Console console(out.Sink(), err.Sink(), false, 80);
    std::thread user([&] {
        if (out.WaitFor("\"event\":\"snapshot\"", 20000)) {
            Printer().SetDoorOpen(true);
            out.WaitFor("\"event\":\"interrupt\"", 20000);
            out.WaitFor("\"cassetteDoor\":\"open\"", 20000);
        }
        // Only a running watch catches the signal; without one it would end the test program.
        if (vela::qrvctl::InterruptSignal::Active()) {
            std::raise(SIGINT);
        }
    });
    const int code =
        vela::qrvctl::CommandLine::Run({"--printer", kPrinter, "--json", "status", "--watch"}, console);
    user.join();
    EXPECT_EQ(code, 0) << err.Text();

    // One JSON line per event: the snapshot, the interrupt, and only what changed since.
    std::vector<nlohmann::json> events;
    std::istringstream lines(out.Text());
    for (std::string line; std::getline(lines, line);) {
        events.push_back(nlohmann::json::parse(line));
    }
    ASSERT_EQ(events.size(), 3u) << out.Text();
    EXPECT_EQ(events[0]["status"]["cassetteDoor"], "closed");
    for (const auto& event : events) {
        if (event["event"] == "interrupt") {
            EXPECT_EQ(event["issue"], "cassetteDoorOpen");
        } else if (event["event"] == "status") {
            EXPECT_EQ(event["changes"], (nlohmann::json{{"cassetteDoor", "open"}}));
        }
    }
    for (const std::string kind : {"interrupt", "status"}) {
        EXPECT_NE(out.Text().find("\"event\":\"" + kind + "\""), std::string::npos) << kind;
    }
}

} // namespace
} // namespace vela::test
