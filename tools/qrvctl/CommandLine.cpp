#include "CommandLine.h"

#include "CommandError.h"
#include "ControlCommands.h"
#include "DemoCommand.h"
#include "DoctorCommand.h"
#include "ErrorReport.h"
#include "FileCommands.h"
#include "GlobalOptions.h"
#include "HelpText.h"
#include "InfoCommand.h"
#include "InterruptSignal.h"
#include "ListCommand.h"
#include "LogSetup.h"
#include "OptionParser.h"
#include "PrinterSession.h"
#include "StatusCommand.h"

#include <algorithm>
#include <functional>
#include <utility>
#include <vector>

namespace vela::qrvctl {

namespace {

using Action = std::function<ExitCode(PrinterSession&)>;

const char* const kDescription = "look at and manage VELA QRV 210 and QRV 410 label printers over USB.";

const char* const kFooter =
    "Printers are chosen with --printer (the name `qrvctl list` shows, a serial, a usb:// device "
    "URI or a device path; default: $QRV_PRINTER); with one printer attached it is used without "
    "asking. --simulate runs against a simulated printer inside this process, no hardware needed. "
    "Every command takes --json (one JSON document on standard output, errors included) and "
    "--timeout SECONDS. Ctrl+C cancels a transfer cleanly; a second Ctrl+C quits at once. "
    "`qrvctl COMMAND --help` tells more.\n"
    "\n"
    "Exit codes: 0 ok, 1 other failure, 2 usage, 3 printer not found, 4 access denied, "
    "5 file or folder not found, 6 printer disk full, 7 communication, 8 invalid printer path "
    "or name, 130 interrupted.";

// One command: its name and one-line description, its own options and footer (declared on its
// parser), and its work, run once the whole line has been parsed.
struct Command {
    std::string name;
    std::string description;
    std::function<void(OptionParser&)> declare;
    Action run;
    bool hidden = false;
};

ExitCode Done(const std::function<void()>& work) {
    work();
    return ExitCode::ok;
}

bool WantsJson(const std::vector<std::string>& arguments) {
    return std::find(arguments.begin(), arguments.end(), "--json") != arguments.end();
}

} // namespace

int CommandLine::Run(const std::vector<std::string>& arguments, Console& console) {
    GlobalOptions options;

    OptionParser parser("qrvctl", kDescription);
    parser.SetFooter(kFooter);
    parser.SetVersion("qrvctl 0.1.0");
    parser.AddText("--printer", options.printer, "NAME",
                   "The printer to use: its name (see `qrvctl list`), serial, usb:// URI or device path "
                   "(default: $QRV_PRINTER)",
                   "QRV_PRINTER");
    parser.AddFlag("--simulate", options.simulate,
                   "Use a simulated QRV 410 that runs inside this process (no printer needed)");
    parser.AddFlag("--json", options.json, "Print the result as one JSON document (field names: see README)");
    parser.AddFlag("-v,--verbose", options.verbose, "Show the library's log (info level) on standard error");
    parser.AddSeconds("--timeout", options.timeout, "SECONDS",
                      "Give up when the whole command takes longer (exit code 7)");

    bool watch = false;
    std::string folder;
    std::string printerPath;
    std::string hostFile;
    bool noClobber = false;
    bool force = false;
    std::string from;
    std::string to;
    std::string fetch;
    std::string package;

    std::vector<Command> commands;
    commands.push_back({"list", "List the attached and virtual printers: name, model, serial, USB id, paths",
                        nullptr,
                        [&](PrinterSession& s) { return Done([&] { ListCommand::Run(console, s); }); }});
    commands.push_back(
        {"status", "Show every status field of the printer and what needs attention",
         [&](OptionParser& c) {
             c.AddFlag(
                 "--watch", watch,
                 "Then show status changes and print interrupts as the printer reports them, until Ctrl+C");
         },
         [&](PrinterSession& s) {
             return Done([&] { watch ? StatusCommand::Watch(console, s) : StatusCommand::Show(console, s); });
         }});
    commands.push_back(
        {"info",
         "Show versions, device id, cassette SKU, battery, external power, disk space and library folders",
         nullptr, [&](PrinterSession& s) { return Done([&] { InfoCommand::Run(console, s); }); }});
    commands.push_back(
        {"ls", "List a folder on the printer",
         [&](OptionParser& c) { c.AddPositional("PATH", folder, "Printer folder, e.g. /mnt/data/images"); },
         [&](PrinterSession& s) { return Done([&] { FileCommands::List(console, s, folder); }); }});
    commands.push_back(
        {"get", "Copy a file from the printer to this computer",
         [&](OptionParser& c) {
             c.AddPositional("PRINTER_PATH", printerPath,
                             "File on the printer, e.g. /mnt/data/images/logo.png");
             c.AddPositional(
                 "HOST_FILE", hostFile,
                 "Where to write it (a folder keeps the printer's file name; '-': standard output)");
             c.AddFlag("--no-clobber", noClobber, "Refuse to replace an existing host file");
             c.SetFooter(
                 "The host file is written completely or not at all; Ctrl+C cancels the copy and leaves "
                 "no host file. Progress goes to standard error.");
         },
         [&](PrinterSession& s) {
             return Done([&] { FileCommands::Get(console, s, printerPath, hostFile, noClobber); });
         }});
    commands.push_back(
        {"put", "Copy a file from this computer to the printer",
         [&](OptionParser& c) {
             c.AddPositional("HOST_FILE", hostFile, "The file to copy");
             c.AddPositional(
                 "PRINTER_PATH", printerPath,
                 "Where it goes on the printer, e.g. /mnt/data/images/logo.png (ending in '/': keeps "
                 "its name)");
             c.AddFlag("--force", force, "Replace an existing printer file (it is deleted first)");
             c.SetFooter(
                 "Only the library folders can be written (`qrvctl info` names them); an existing "
                 "printer file is replaced only with --force. Ctrl+C cancels the copy; nothing is stored "
                 "then. Progress goes to standard error.");
         },
         [&](PrinterSession& s) {
             return Done([&] { FileCommands::Put(console, s, hostFile, printerPath, force); });
         }});
    commands.push_back(
        {"mv", "Rename or move a file on the printer",
         [&](OptionParser& c) {
             c.AddPositional("OLD", from, "The file's printer path");
             c.AddPositional("NEW", to, "Its new printer path");
         },
         [&](PrinterSession& s) { return Done([&] { FileCommands::Move(console, s, from, to); }); }});
    commands.push_back(
        {"rm", "Delete a file on the printer",
         [&](OptionParser& c) { c.AddPositional("PATH", printerPath, "The file's printer path"); },
         [&](PrinterSession& s) { return Done([&] { FileCommands::Remove(console, s, printerPath); }); }});
    commands.push_back({"df", "Show the printer's free and used disk space", nullptr, [&](PrinterSession& s) {
                            return Done([&] { FileCommands::DiskSpace(console, s); });
                        }});
    commands.push_back(
        {"logs", "List the printer's log files, or fetch them with --fetch",
         [&](OptionParser& c) {
             c.AddText("--fetch", fetch, "DIR", "Copy every log file into this folder (made when missing)");
         },
         [&](PrinterSession& s) { return Done([&] { FileCommands::Logs(console, s, fetch); }); }});

    using Order = ControlCommands::Order;
    const std::pair<Order, const char*> orders[] = {
        {Order::feed, "Feed the label forward (the printer then gets a fixed 5 s)"},
        {Order::cut, "Cut the label (the printer then gets a fixed 5 s)"},
        {Order::resume, "Resume printing after an interruption (then a fixed 5 s)"},
        {Order::clearError, "Clear the printer's errors (then a fixed 5 s)"},
        {Order::clearCutterJam, "Clear a cutter jam (then a fixed 5 s)"},
        {Order::reboot, "Restart the printer"},
    };
    for (const auto& [order, description] : orders) {
        const Order which = order;
        commands.push_back(
            {ControlCommands::Name(which), description, nullptr, [&console, which](PrinterSession& s) {
                 return Done([&] { ControlCommands::Run(console, s, which); });
             }});
    }

    commands.push_back(
        {"update", "Install a firmware update package (takes at least 24 s)",
         [&](OptionParser& c) {
             c.AddPositional("PACKAGE", package, "The update package file on this computer");
             c.SetFooter(
                 "Steps: wait until the printer runs no update, copy the package into its update folder "
                 "(a package of the same name left by an earlier update is removed first), a fixed 4 s "
                 "pause, the order to install, a fixed 20 s pause, wait until the printer is idle, "
                 "delete the package. Do not unplug the printer meanwhile: Ctrl+C cancels the copy, but "
                 "once the printer installs a first Ctrl+C is refused. Progress goes to standard error.");
         },
         [&](PrinterSession& s) { return Done([&] { ControlCommands::Update(console, s, package); }); }});
    commands.push_back(
        {"doctor", "Find out why a printer cannot be used, and how to fix it",
         [](OptionParser& c) {
             c.SetFooter(
                 "Linux: is the printer on USB, is the usblp driver bound, can this user open its printer "
                 "and HID nodes (else: the udev rule in udev/60-qrv-printers.rules), is there a CUPS "
                 "queue, can the access lock be taken. Windows: what discovery sees. Exit code: that of "
                 "the first failed check, 0 when nothing stands in the way.");
         },
         [&](PrinterSession& s) { return DoctorCommand::Run(console, s); }});
    commands.push_back({"demo", "Run the guided demo against a simulated printer", nullptr,
                        [&](PrinterSession&) {
                            return DemoCommand::Run(console,
                                                    [&console](const std::vector<std::string>& line) {
                                                        return CommandLine::Run(line, console);
                                                    });
                        },
                        true});

    std::vector<std::pair<const OptionParser*, Action>> actions;
    for (const Command& command : commands) {
        OptionParser& declared = parser.AddCommand(command.name, command.description, command.hidden);
        if (command.declare) {
            command.declare(declared);
        }
        actions.emplace_back(&declared, command.run);
    }

    if (arguments.empty()) {
        console.Output(HelpText::Fit(parser.Help(), console.Columns()));
        return ToInt(ExitCode::usage);
    }
    const bool previousJson = console.Json();
    console.SetJson(WantsJson(arguments));
    OptionParser::Outcome parsed;
    try {
        parsed = parser.Parse(arguments);
    } catch (const CommandError& e) {
        ErrorReport{e.Code(), e.what(), e.Hint()}.Print(console);
        console.SetJson(previousJson);
        return ToInt(e.Code());
    }
    if (parsed.kind != OptionParser::Outcome::Kind::run) {
        // --help and --version: text even with --json.
        console.Output(parsed.kind == OptionParser::Outcome::Kind::help
                           ? HelpText::Fit(parsed.text, console.Columns())
                           : parsed.text);
        console.SetJson(previousJson);
        return 0;
    }
    Action chosen;
    for (const auto& [declared, run] : actions) {
        if (declared == parsed.command) {
            chosen = run;
        }
    }

    console.SetJson(options.json);
    InterruptSignal interrupts(console, options.timeout);
    LogSetup log(console, options.verbose);
    int result = 0;
    try {
        PrinterSession session(options, console);
        result = ToInt(chosen ? chosen(session) : ExitCode::usage);
    } catch (...) {
        const ErrorReport report = ErrorReport::FromCurrentException();
        log.CommandFailed();
        report.Print(console);
        result = ToInt(report.code);
    }
    console.SetJson(previousJson);
    return result;
}

} // namespace vela::qrvctl
