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

// Whether a word asks for help: --help, -h, or -h among combined short flags (-vh).
bool AsksForHelp(const std::string& word) {
    return word == "--help" ||
           (word.size() > 1 && word[0] == '-' && word[1] != '-' && word.find('h') != std::string::npos);
}

// One command: its name and one-line description, its own options and footer (declared on its
// CLI::App), and its work, run once the whole line has been parsed.
struct Command {
    std::string name;
    std::string description;
    std::function<void(CLI::App&)> declare;
    Action run;
    bool hidden = false;
};

// Declares `command` on `app`, marking it as the one to run when it is parsed.
void Declare(CLI::App& app, Action& chosen, const Command& command) {
    CLI::App* declared = app.add_subcommand(command.name, command.description);
    declared->fallthrough();
    // Printer paths start with '/': never take them for Windows-style options.
    declared->allow_windows_style_options(false);
    declared->callback([&chosen, run = command.run] { chosen = run; });
    if (command.declare) {
        command.declare(*declared);
    }
    if (command.hidden) {
        declared->group("");
    }
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
         [&](CLI::App& c) {
             c.add_flag(
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
         [&](CLI::App& c) {
             c.add_option("PATH", folder, "Printer folder, e.g. /mnt/data/images")->required();
         },
         [&](PrinterSession& s) { return Done([&] { FileCommands::List(console, s, folder); }); }});
    commands.push_back(
        {"get", "Copy a file from the printer to this computer",
         [&](CLI::App& c) {
             c.add_option("PRINTER_PATH", printerPath, "File on the printer, e.g. /mnt/data/images/logo.png")
                 ->required();
             c.add_option("HOST_FILE", hostFile,
                          "Where to write it (a folder keeps the printer's file name; '-': standard output)")
                 ->required();
             c.add_flag("--no-clobber", noClobber, "Refuse to replace an existing host file");
             c.footer("The host file is written completely or not at all; Ctrl+C cancels the copy and leaves "
                      "no host file. Progress goes to standard error.");
         },
         [&](PrinterSession& s) {
             return Done([&] { FileCommands::Get(console, s, printerPath, hostFile, noClobber); });
         }});
    commands.push_back(
        {"put", "Copy a file from this computer to the printer",
         [&](CLI::App& c) {
             c.add_option("HOST_FILE", hostFile, "The file to copy")->required();
             c.add_option(
                  "PRINTER_PATH", printerPath,
                  "Where it goes on the printer, e.g. /mnt/data/images/logo.png (ending in '/': keeps "
                  "its name)")
                 ->required();
             c.add_flag("--force", force, "Replace an existing printer file (it is deleted first)");
             c.footer(
                 "Only the library folders can be written (`qrvctl info` names them); an existing "
                 "printer file is replaced only with --force. Ctrl+C cancels the copy; nothing is stored "
                 "then. Progress goes to standard error.");
         },
         [&](PrinterSession& s) {
             return Done([&] { FileCommands::Put(console, s, hostFile, printerPath, force); });
         }});
    commands.push_back(
        {"mv", "Rename or move a file on the printer",
         [&](CLI::App& c) {
             c.add_option("OLD", from, "The file's printer path")->required();
             c.add_option("NEW", to, "Its new printer path")->required();
         },
         [&](PrinterSession& s) { return Done([&] { FileCommands::Move(console, s, from, to); }); }});
    commands.push_back(
        {"rm", "Delete a file on the printer",
         [&](CLI::App& c) { c.add_option("PATH", printerPath, "The file's printer path")->required(); },
         [&](PrinterSession& s) { return Done([&] { FileCommands::Remove(console, s, printerPath); }); }});
    commands.push_back({"df", "Show the printer's free and used disk space", nullptr, [&](PrinterSession& s) {
                            return Done([&] { FileCommands::DiskSpace(console, s); });
                        }});
    commands.push_back(
        {"logs", "List the printer's log files, or fetch them with --fetch",
         [&](CLI::App& c) {
             c.add_option("--fetch", fetch, "Copy every log file into this folder (made when missing)")
                 ->type_name("DIR");
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
         [&](CLI::App& c) {
             c.add_option("PACKAGE", package, "The update package file on this computer")->required();
             c.footer(
                 "Steps: wait until the printer runs no update, copy the package into its update folder "
                 "(a package of the same name left by an earlier update is removed first), a fixed 4 s "
                 "pause, the order to install, a fixed 20 s pause, wait until the printer is idle, "
                 "delete the package. Do not unplug the printer meanwhile: Ctrl+C cancels the copy, but "
                 "once the printer installs a first Ctrl+C is refused. Progress goes to standard error.");
         },
         [&](PrinterSession& s) { return Done([&] { ControlCommands::Update(console, s, package); }); }});
    commands.push_back(
        {"doctor", "Find out why a printer cannot be used, and how to fix it",
         [](CLI::App& c) {
             c.footer(
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

    // A command line that names a known command needs only that command declared: declaring all
    // of them (a parser object and its options each) costs more than a status exchange with the
    // printer. Help (which may list them all) and every mistake get the full set.
    const std::string typed = TypedCommand(arguments);
    const bool known = std::any_of(commands.begin(), commands.end(),
                                   [&](const Command& command) { return command.name == typed; });
    const bool all = !known || std::any_of(arguments.begin(), arguments.end(), AsksForHelp);
    for (const Command& command : commands) {
        if (all || command.name == typed) {
            Declare(app, chosen, command);
        }
    }

    if (arguments.empty()) {
        console.Out() << HelpText::Fit(app.help(), console.Columns());
        return ToInt(ExitCode::usage);
    }
    const bool previousJson = console.Json();
    console.SetJson(WantsJson(arguments));
    if (!typed.empty() && !known) {
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
