#include "StatusCommand.h"

#include "ChannelAccess.h"
#include "CommandError.h"
#include "InterruptSignal.h"
#include "StatusText.h"
#include "TextTable.h"

#include <chrono>
#include <ctime>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

namespace vela::qrvctl {

namespace hc = vela::printer::communication;

namespace {

std::string Attention(const StatusCommand::Items& errors) {
    std::string text;
    for (const auto& item : errors) {
        text += (text.empty() ? "" : "; ") + std::string(StatusText::FieldLabel(item.Kind())) + " " +
                StatusText::ValueText(item);
    }
    return text.empty() ? "nothing" : text;
}

nlohmann::json ErrorsJson(const StatusCommand::Items& errors) {
    nlohmann::json list = nlohmann::json::array();
    for (const auto& item : errors) {
        list.push_back({{"field", StatusText::FieldKey(item.Kind())}, {"value", StatusText::ValueKey(item)}});
    }
    return list;
}

// An event of the monitor thread, kept until the command's thread prints it.
struct WatchEvent {
    std::chrono::system_clock::time_point time;
    bool interrupt = false;
    StatusCommand::Items changes;
    uint32_t code = 0;
    hc::EPrintInterruptIssue issue = hc::EPrintInterruptIssue::otherError;
    uint32_t value = 0;
};

struct WatchQueue {
    std::mutex mutex;
    std::deque<WatchEvent> events;

    void Push(WatchEvent event) {
        std::lock_guard<std::mutex> lock(mutex);
        events.push_back(std::move(event));
    }
    std::deque<WatchEvent> Take() {
        std::lock_guard<std::mutex> lock(mutex);
        std::deque<WatchEvent> taken;
        taken.swap(events);
        return taken;
    }
};

// std::gmtime and std::localtime share a buffer: only the command's thread formats times.
std::string IsoTime(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count() % 1000;
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", std::gmtime(&seconds));
    char result[48];
    std::snprintf(result, sizeof result, "%s.%03dZ", text, static_cast<int>(millis));
    return result;
}

std::string LocalTime(std::chrono::system_clock::time_point time) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    char text[16];
    std::strftime(text, sizeof text, "%H:%M:%S", std::localtime(&seconds));
    return text;
}

void PrintEvent(Console& console, const std::string& printer, const WatchEvent& event) {
    if (event.interrupt) {
        if (console.Json()) {
            console.JsonLine({{"event", "interrupt"},
                              {"time", IsoTime(event.time)},
                              {"printer", printer},
                              {"code", event.code},
                              {"issue", StatusText::IssueKey(event.issue)},
                              {"value", event.value}});
        } else {
            TextWriter line;
            line << LocalTime(event.time) << "  Print interrupted: " << StatusText::IssueText(event.issue)
                 << " (code " << event.code << ")\n";
            console.Output(line.Text());
        }
        return;
    }
    if (console.Json()) {
        console.JsonLine({{"event", "status"},
                          {"time", IsoTime(event.time)},
                          {"printer", printer},
                          {"changes", StatusCommand::ToJson(event.changes)}});
        return;
    }
    std::string text;
    for (const auto& item : event.changes) {
        text += (text.empty() ? "" : ", ") + std::string(StatusText::FieldLabel(item.Kind())) + ": " +
                StatusText::ValueText(item);
    }
    console.Output(LocalTime(event.time) + "  " + (text.empty() ? std::string("(no field changed)") : text) +
                   '\n');
}

// Subscribes to the gateway's two events for its lifetime. The queue is shared with the
// subscribers: a raise that is running while they are removed may still finish its call.
class WatchSubscription {
public:
    WatchSubscription(vela::kom::ManagedQRVDeviceGateway& gateway, std::shared_ptr<WatchQueue> queue)
        : m_gateway(gateway) {
        m_statusToken = gateway.OnPrinterStatusChanged().Add([queue](const hc::PrinterStatusEventArgs& args) {
            WatchEvent event;
            event.time = std::chrono::system_clock::now();
            event.changes = args.Items();
            queue->Push(std::move(event));
        });
        m_interruptToken = gateway.OnPrintInterrupt().Add([queue](const hc::PrintInterruptEventArgs& args) {
            WatchEvent event;
            event.time = std::chrono::system_clock::now();
            event.interrupt = true;
            event.code = args.Code();
            event.issue = args.Issue();
            event.value = args.Value();
            queue->Push(std::move(event));
        });
    }
    ~WatchSubscription() {
        m_gateway.OnPrinterStatusChanged().Remove(m_statusToken);
        m_gateway.OnPrintInterrupt().Remove(m_interruptToken);
    }
    WatchSubscription(const WatchSubscription&) = delete;
    WatchSubscription& operator=(const WatchSubscription&) = delete;

private:
    vela::kom::ManagedQRVDeviceGateway& m_gateway;
    uint64_t m_statusToken = 0;
    uint64_t m_interruptToken = 0;
};

void PrintTable(TextWriter& out, const std::string& printer, const StatusCommand::Items& items,
                const StatusCommand::Items& attention) {
    TextTable table;
    table.AddRow({"Printer", printer});
    for (const auto& item : items) {
        table.AddRow({StatusText::FieldLabel(item.Kind()), StatusText::ValueText(item)});
    }
    table.AddRow({"Needs attention", Attention(attention)});
    table.Print(out);
}

} // namespace

nlohmann::json StatusCommand::ToJson(const Items& items) {
    nlohmann::json fields = nlohmann::json::object();
    for (const auto& item : items) {
        fields[StatusText::FieldKey(item.Kind())] = StatusText::ValueKey(item);
    }
    return fields;
}

void StatusCommand::Show(Console& console, PrinterSession& session) {
    auto& gateway = session.Open();
    const Items items = gateway.GetPrinterStatus();
    const Items attention = vela::kom::ManagedQRVDeviceGateway::ErrorItemsOf(items);
    const std::string printer = session.PrinterName();
    console.Result({{"printer", printer}, {"status", ToJson(items)}, {"errors", ErrorsJson(attention)}},
                   [&](TextWriter& out) { PrintTable(out, printer, items, attention); });
}

void StatusCommand::Watch(Console& console, PrinterSession& session) {
    InterruptSignal::Phase interrupts(InterruptSignal::Mode::stop);
    auto& gateway = session.Open(PrinterSession::StatusEvents::shown);
    const std::string problem = session.StatusReportProblem();
    if (!problem.empty()) {
        throw CommandError(problem.find("cannot read") == 0 ? ExitCode::accessDenied : ExitCode::failure,
                           "cannot watch '" + session.PrinterName() + "': " + problem,
                           "`qrvctl doctor` checks the status report interface and its permissions.");
    }
    const std::string printer = session.PrinterName();
    auto queue = std::make_shared<WatchQueue>();
    std::optional<WatchSubscription> subscription;
    subscription.emplace(gateway, queue);

    // The current state first, so that every change that follows has a starting point.
    const Items items = gateway.GetPrinterStatus();
    if (console.Json()) {
        console.JsonLine({{"event", "snapshot"},
                          {"time", IsoTime(std::chrono::system_clock::now())},
                          {"printer", printer},
                          {"status", ToJson(items)}});
    } else {
        TextWriter table;
        PrintTable(table, printer, items, vela::kom::ManagedQRVDeviceGateway::ErrorItemsOf(items));
        console.Output(table.Text());
        console.NoticeLine("Watching '" + printer +
                           "' for status changes and print interrupts; Ctrl+C stops.");
    }

    // The monitor compares each report with the one before it, and its first report with an
    // all-zero one; what is shown are the changes against the state the user has seen.
    std::map<hc::EPrintStatusItem, uint32_t> known;
    for (const auto& item : items) {
        known[item.Kind()] = item.Value();
    }
    auto show = [&](WatchEvent& event) {
        if (!event.interrupt) {
            Items changed;
            for (const auto& item : event.changes) {
                auto it = known.find(item.Kind());
                if (it == known.end() || it->second != item.Value()) {
                    changed.push_back(item);
                    known[item.Kind()] = item.Value();
                }
            }
            if (changed.empty()) {
                return;
            }
            event.changes = std::move(changed);
        }
        PrintEvent(console, printer, event);
    };
    auto say = [&](const char* event, const std::string& text) {
        if (console.Json()) {
            console.JsonLine({{"event", event},
                              {"time", IsoTime(std::chrono::system_clock::now())},
                              {"printer", printer}});
        } else {
            console.Output(LocalTime(std::chrono::system_clock::now()) + "  " + text + '\n');
        }
    };

    // An unplugged printer's channel goes away (the monitor then ends quietly): look once a
    // second, and when it is back, open it again and show what changed meanwhile.
    constexpr auto kPresenceStep = std::chrono::seconds(1);
    auto nextLook = std::chrono::steady_clock::now() + kPresenceStep;
    bool present = true;
    while (!InterruptSignal::WaitFor(std::chrono::milliseconds(100))) {
        for (auto& event : queue->Take()) {
            show(event);
        }
        if (std::chrono::steady_clock::now() < nextLook) {
            continue;
        }
        nextLook = std::chrono::steady_clock::now() + kPresenceStep;
        if (present && !ChannelPresent(session.Printer().channelPath)) {
            present = false;
            subscription.reset();
            session.Close();
            say("gone",
                "The printer has gone (unplugged, switched off or restarting); waiting for it to come back.");
        } else if (!present) {
            try {
                session.Rediscover();
                auto& reopened = session.Open(PrinterSession::StatusEvents::shown);
                subscription.emplace(reopened, queue);
                WatchEvent event;
                event.time = std::chrono::system_clock::now();
                event.changes = reopened.GetPrinterStatus();
                present = true;
                say("back", "The printer is back.");
                show(event);
            } catch (...) {
                // Not there yet, or still starting: look again in a second.
                subscription.reset();
                session.Close();
            }
        }
    }
    for (auto& event : queue->Take()) {
        show(event);
    }
    if (!console.Json()) {
        console.ErrorLine("Stopped watching.");
    }
}

} // namespace vela::qrvctl
