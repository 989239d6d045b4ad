#include "ControlCommands.h"

#include "CommandError.h"
#include "GatewayProgress.h"
#include "HostPath.h"
#include "common/StringConverter.h"

#include <chrono>
#include <cstdio>

namespace vela::qrvctl {

using vela::common::StringConverter;
using Phase = vela::kom::ManagedQRVDeviceGateway::UpdatePhase;

namespace {

using Clock = std::chrono::steady_clock;

const char* Done(ControlCommands::Order order) {
    switch (order) {
    case ControlCommands::Order::feed:
        return "Fed the label forward.";
    case ControlCommands::Order::cut:
        return "Cut the label.";
    case ControlCommands::Order::resume:
        return "Printing resumed.";
    case ControlCommands::Order::clearError:
        return "Errors cleared.";
    case ControlCommands::Order::clearCutterJam:
        return "Cutter jam cleared.";
    case ControlCommands::Order::reboot:
        return "Reboot ordered; the printer is back after a few seconds.";
    }
    return "Done.";
}

std::string Firmware(vela::kom::ManagedQRVDeviceGateway& gateway) {
    for (const auto& [component, version] : gateway.GetVersions()) {
        if (component == L"Firmware") {
            return StringConverter::ToUtf8(version);
        }
    }
    return std::string();
}

std::string Seconds(Clock::duration elapsed) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f s", std::chrono::duration<double>(elapsed).count());
    return text;
}

} // namespace

const char* ControlCommands::Name(Order order) {
    switch (order) {
    case Order::feed:
        return "feed";
    case Order::cut:
        return "cut";
    case Order::resume:
        return "resume";
    case Order::clearError:
        return "clear-error";
    case Order::clearCutterJam:
        return "clear-cutter-jam";
    case Order::reboot:
        return "reboot";
    }
    return "order";
}

void ControlCommands::Run(Console& console, PrinterSession& session, Order order) {
    auto& gateway = session.Open();
    {
        ProgressReporter reporter(console, Name(order));
        if (order != Order::reboot) {
            // The library pauses a fixed 5 s after every print order so that the printer can
            // carry it out before the next request; say so instead of looking stuck.
            reporter.Countdown("order sent; the printer gets a fixed 5 s to carry it out", 5);
        }
        switch (order) {
        case Order::feed:
            gateway.FeedForward();
            break;
        case Order::cut:
            gateway.CutLabel();
            break;
        case Order::resume:
            gateway.ResumePrinting();
            break;
        case Order::clearError:
            gateway.ClearErrors();
            break;
        case Order::clearCutterJam:
            gateway.ClearCutterJamError();
            break;
        case Order::reboot:
            gateway.Reboot();
            break;
        }
    }
    console.Result({{"command", Name(order)}, {"printer", session.PrinterName()}},
                   [&](std::ostream& out) { out << Done(order) << '\n'; });
}

void ControlCommands::Update(Console& console, PrinterSession& session, const std::string& package) {
    if (!HostPath::IsFile(package)) {
        throw CommandError(ExitCode::notFound, "no update package at '" + package + "'",
                           "Give the path of the package file on this computer.");
    }
    // The library takes the package's file name from after the last separator of the system, so
    // it gets the absolute path in the system's own form.
    const std::string absolute = HostPath::Absolute(package);
    const std::string name = HostPath::FileName(absolute);
    auto& gateway = session.Open();
    const std::string before = Firmware(gateway);
    const auto start = Clock::now();
    int32_t result = 0;
    {
        ProgressReporter reporter(console, "update");
        GatewayProgress progress(gateway, reporter, [&](Phase phase) {
            switch (phase) {
            case Phase::waitingForPrinter:
                reporter.Step("waiting until the printer reports no update running");
                break;
            case Phase::copying:
                reporter.Step("copying " + name + " into the printer's update folder");
                break;
            case Phase::applying:
                reporter.Countdown("applying: a fixed 4 s pause, then the order to install the package", 4);
                break;
            case Phase::waiting:
                reporter.Countdown(
                    "the printer installs the package: a fixed 20 s pause, then until it is idle", 20);
                break;
            case Phase::cleaningUp:
                reporter.Step("cleaning up: deleting the package from the printer");
                break;
            case Phase::done:
                reporter.Finish("done in " + Seconds(Clock::now() - start));
                break;
            }
        });
        result = gateway.ApplyUpdate(HostPath::Wide(absolute));
    }
    if (result != 0) {
        throw CommandError(ExitCode::usage,
                           "the printer's library cannot use the package path '" + absolute + "'");
    }
    const std::string after = Firmware(gateway);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    console.Result({{"package", absolute},
                    {"printer", session.PrinterName()},
                    {"firmwareBefore", before},
                    {"firmwareAfter", after},
                    {"seconds", static_cast<int64_t>(seconds + 0.5)}},
                   [&](std::ostream& out) {
                       out << "Update applied: firmware " << (before.empty() ? "?" : before) << " -> "
                           << (after.empty() ? "?" : after) << '\n';
                   });
}

} // namespace vela::qrvctl
