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
#include "PrinterSession.h"
#include "StatusCommand.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <functional>
#include <sstream>

namespace vela::qrvctl {

namespace {

using Action = std::function<ExitCode(PrinterSession&)>;

const char* const kDescription =
    "qrvctl - look at and manage VELA QRV 210 and QRV 410 label printers over USB.";

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

// The edit distance of two command names (insertions, deletions, substitutions).
size_t Distance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) {
        row[j] = j;
    }
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// The first word that is not an option or an option's value: the command the user typed.
std::string TypedCommand(const std::vector<std::string>& arguments) {
    for (size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (word == "--printer" || word == "--timeout") {
            ++i;
        } else if (word.empty() || word[0] != '-') {
            return word;
        }
    }
    return std::string();
}

bool IsCommand(const std::string& typed, const CLI::App& app) {
    return !app.get_subcommands([&](const CLI::App* c) { return c->check_name(typed); }).empty();
}

// An unknown command's error, with the nearest known one when it is near enough.
std::string UnknownCommand(const std::string& typed, const CLI::App& app) {
    std::string nearest;
    size_t best = std::string::npos;
    for (const CLI::App* command :
         app.get_subcommands([](const CLI::App* c) { return !c->get_group().empty(); })) {
        const size_t distance = Distance(typed, command->get_name());
        if (distance < best) {
            best = distance;
            nearest = command->get_name();
        }
    }
    std::string message = "unknown command '" + typed + "'";
    if (!nearest.empty() && best <= std::max<size_t>(2, nearest.size() / 3)) {
        message += "; did you mean '" + nearest + "'?";
    }
    return message;
}

// Adds a command whose only work is `run`, marking it as the one to run when it is parsed.
CLI::App* AddCommand(CLI::App& app, Action& chosen, const std::string& name, const std::string& description,
                     Action run) {
    CLI::App* command = app.add_subcommand(name, description);
    command->fallthrough();
    // Printer paths start with '/': never take them for Windows-style options.
    command->allow_windows_style_options(false);
    command->callback([&chosen, run] { chosen = run; });
    return command;
}

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
    Action chosen;

    CLI::App app{kDescription, "qrvctl"};
    app.footer(kFooter);
    app.require_subcommand(1);
    app.allow_windows_style_options(false);
    app.set_version_flag("--version", "qrvctl 0.1.0");
    app.add_option("--printer", options.printer,
                   "The printer to use: its name (see `qrvctl list`), serial, usb:// URI or device path")
        ->type_name("NAME")
        ->envname("QRV_PRINTER");
    app.add_flag("--simulate", options.simulate,
                 "Use a simulated QRV 410 that runs inside this process (no printer needed)");
    app.add_flag("--json", options.json, "Print the result as one JSON document (field names: see README)");
    app.add_flag("-v,--verbose", options.verbose, "Show the library's log (info level) on standard error");
    app.add_option("--timeout", options.timeout, "Give up when the whole command takes longer (exit code 7)")
        ->type_name("SECONDS")
        ->check(CLI::PositiveNumber);

    AddCommand(app, chosen, "list",
               "List the attached and virtual printers: name, model, serial, USB id, paths",
               [&](PrinterSession& s) { return Done([&] { ListCommand::Run(console, s); }); });

    bool watch = false;
    AddCommand(app, chosen, "status", "Show every status field of the printer and what needs attention",
               [&](PrinterSession& s) {
                   return Done(
                       [&] { watch ? StatusCommand::Watch(console, s) : StatusCommand::Show(console, s); });
               })
        ->add_flag("--watch", watch,
                   "Then show status changes and print interrupts as the printer reports them, until Ctrl+C");

    AddCommand(
        app, chosen, "info",
        "Show versions, device id, cassette SKU, battery, external power, disk space and library folders",
        [&](PrinterSession& s) { return Done([&] { InfoCommand::Run(console, s); }); });

    std::string folder;
    AddCommand(app, chosen, "ls", "List a folder on the printer",
               [&](PrinterSession& s) { return Done([&] { FileCommands::List(console, s, folder); }); })
        ->add_option("PATH", folder, "Printer folder, e.g. /mnt/data/images")
        ->required();

    std::string printerPath;
    std::string hostFile;
    bool noClobber = false;
    bool force = false;
    auto* get = AddCommand(
        app, chosen, "get", "Copy a file from the printer to this computer", [&](PrinterSession& s) {
            return Done([&] { FileCommands::Get(console, s, printerPath, hostFile, noClobber); });
        });
    get->add_option("PRINTER_PATH", printerPath, "File on the printer, e.g. /mnt/data/images/logo.png")
        ->required();
    get->add_option("HOST_FILE", hostFile,
                    "Where to write it (a folder keeps the printer's file name; '-': standard output)")
        ->required();
    get->add_flag("--no-clobber", noClobber, "Refuse to replace an existing host file");
    get->footer("The host file is written completely or not at all; Ctrl+C cancels the copy and leaves "
                "no host file. Progress goes to standard error.");

    auto* put = AddCommand(
        app, chosen, "put", "Copy a file from this computer to the printer", [&](PrinterSession& s) {
            return Done([&] { FileCommands::Put(console, s, hostFile, printerPath, force); });
        });
    put->add_option("HOST_FILE", hostFile, "The file to copy")->required();
    put->add_option(
           "PRINTER_PATH", printerPath,
           "Where it goes on the printer, e.g. /mnt/data/images/logo.png (ending in '/': keeps its name)")
        ->required();
    put->add_flag("--force", force, "Replace an existing printer file (it is deleted first)");
    put->footer(
        "Only the library folders can be written (`qrvctl info` names them); an existing printer file "
        "is replaced only with --force. Ctrl+C cancels the copy; nothing is stored then. Progress goes "
        "to standard error.");

    std::string from;
    std::string to;
    auto* mv = AddCommand(app, chosen, "mv", "Rename or move a file on the printer", [&](PrinterSession& s) {
        return Done([&] { FileCommands::Move(console, s, from, to); });
    });
    mv->add_option("OLD", from, "The file's printer path")->required();
    mv->add_option("NEW", to, "Its new printer path")->required();

    AddCommand(
        app, chosen, "rm", "Delete a file on the printer",
        [&](PrinterSession& s) { return Done([&] { FileCommands::Remove(console, s, printerPath); }); })
        ->add_option("PATH", printerPath, "The file's printer path")
        ->required();

    AddCommand(app, chosen, "df", "Show the printer's free and used disk space",
               [&](PrinterSession& s) { return Done([&] { FileCommands::DiskSpace(console, s); }); });

    std::string fetch;
    AddCommand(app, chosen, "logs", "List the printer's log files, or fetch them with --fetch",
               [&](PrinterSession& s) { return Done([&] { FileCommands::Logs(console, s, fetch); }); })
        ->add_option("--fetch", fetch, "Copy every log file into this folder (made when missing)")
        ->type_name("DIR");

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
        AddCommand(app, chosen, ControlCommands::Name(which), description,
                   [&console, which](PrinterSession& s) {
                       return Done([&] { ControlCommands::Run(console, s, which); });
                   });
    }

    std::string package;
    auto* update = AddCommand(
        app, chosen, "update", "Install a firmware update package (takes at least 24 s)",
        [&](PrinterSession& s) { return Done([&] { ControlCommands::Update(console, s, package); }); });
    update->add_option("PACKAGE", package, "The update package file on this computer")->required();
    update->footer("Steps: wait until the printer runs no update, copy the package into its update folder "
                   "(a package of the same name left by an earlier update is removed first), a fixed 4 s "
                   "pause, the order to install, a fixed 20 s pause, wait until the printer is idle, delete "
                   "the package. Do not unplug the printer meanwhile: Ctrl+C cancels the copy, but once the "
                   "printer installs a first Ctrl+C is refused. Progress goes to standard error.");

    auto* doctor =
        AddCommand(app, chosen, "doctor", "Find out why a printer cannot be used, and how to fix it",
                   [&](PrinterSession& s) { return DoctorCommand::Run(console, s); });
    doctor->footer(
        "Linux: is the printer on USB, is the usblp driver bound, can this user open its printer and "
        "HID nodes (else: the udev rule in udev/60-qrv-printers.rules), is there a CUPS queue, can "
        "the access lock be taken. Windows: what discovery sees. Exit code: that of the first "
        "failed check, 0 when nothing stands in the way.");

    AddCommand(app, chosen, "demo", "Run the guided demo against a simulated printer", [&](PrinterSession&) {
        return DemoCommand::Run(console, [&console](const std::vector<std::string>& line) {
            return CommandLine::Run(line, console);
        });
    })->group("");

    if (arguments.empty()) {
        console.Out() << HelpText::Fit(app.help(), console.Columns());
        return ToInt(ExitCode::usage);
    }
    const bool previousJson = console.Json();
    console.SetJson(WantsJson(arguments));
    const std::string typed = TypedCommand(arguments);
    if (!typed.empty() && !IsCommand(typed, app)) {
        ErrorReport{ExitCode::usage, UnknownCommand(typed, app), "`qrvctl --help` lists the commands."}.Print(
            console);
        console.SetJson(previousJson);
        return ToInt(ExitCode::usage);
    }
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    try {
        app.parse(reversed);
    } catch (const CLI::ParseError& e) {
        std::ostringstream out;
        std::ostringstream err;
        const int code = app.exit(e, out, err);
        console.Out() << HelpText::Fit(out.str(), console.Columns());
        if (code == 0) {
            console.SetJson(previousJson);
            return 0; // --help, --version
        }
        std::string message = e.what();
        ErrorReport{ExitCode::usage, message.empty() ? "invalid command line" : message,
                    "`qrvctl --help` lists the commands; `qrvctl COMMAND --help` their options."}
            .Print(console);
        console.SetJson(previousJson);
        return ToInt(ExitCode::usage);
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
