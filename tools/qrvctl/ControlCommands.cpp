#include "ControlCommands.h"

#include "CommandError.h"
#include "FileCommands.h"
#include "GatewayProgress.h"
#include "HostPath.h"
#include "InterruptSignal.h"
#include "common/StringConverter.h"

#include <chrono>
#include <cstdio>
#include <optional>

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
            reporter.Countdown("order sent; the printer gets a fixed 5 s", 5);
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
                   [&](TextWriter& out) { out << Done(order) << '\n'; });
}

void ControlCommands::Update(Console& console, PrinterSession& session, const std::string& package) {
    if (HostPath::CheckSource(package) == 0) {
        throw CommandError(ExitCode::usage, "'" + package + "' is empty: not an update package",
                           "Give the path of the update package file on this computer.");
    }
    // The library takes the package's file name from after the last separator of the system, so
    // it gets the absolute path in the system's own form.
    const std::string absolute = HostPath::Absolute(package);
    const std::string name = HostPath::FileName(absolute);
    auto& gateway = session.Open();
    console.NoticeLine("update: do not unplug the printer or interrupt the update (it takes at least 24 s)");
    const std::string before = Firmware(gateway);
    // An update cut short may have left its package behind; the printer refuses a second copy.
    std::string folder = StringConverter::ToUtf8(gateway.GetUpdateLibraryPath());
    if (!folder.empty() && folder.back() != '/') {
        folder += '/';
    }
    if (FileCommands::RemoveIfPresent(gateway, folder + name)) {
        console.ErrorLine("update: removed " + folder + name + ", left on the printer by an earlier update");
    }
    const auto start = Clock::now();
    int32_t result = 0;
    {
        // Copying can be cancelled cleanly; once the printer installs, a first Ctrl+C is refused.
        std::optional<InterruptSignal::Phase> interrupts;
        interrupts.emplace(InterruptSignal::Mode::transfer, &gateway);
        auto refuseInterrupts = [&] {
            interrupts.reset();
            interrupts.emplace(InterruptSignal::Mode::refuse, nullptr,
                               "the printer is installing the update; stopping now could leave it unusable");
        };
        ProgressReporter reporter(console, "update");
        GatewayProgress progress(gateway, reporter, [&](Phase phase) {
            switch (phase) {
            case Phase::waitingForPrinter:
                reporter.Step("waiting until the printer reports no update running");
                break;
            case Phase::copying:
                reporter.Step("copying " + name);
                break;
            case Phase::applying:
                refuseInterrupts();
                reporter.Countdown("applying: a fixed 4 s pause, then the install order", 4);
                break;
            case Phase::waiting:
                reporter.Countdown("the printer installs: a fixed 20 s, then until idle", 20);
                break;
            case Phase::cleaningUp:
                reporter.Step("cleaning up: deleting the package");
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
                   [&](TextWriter& out) {
                       out << "Update applied: firmware " << (before.empty() ? "?" : before) << " -> "
                           << (after.empty() ? "?" : after) << '\n';
                   });
}

} // namespace vela::qrvctl
