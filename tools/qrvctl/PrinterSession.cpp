#include "PrinterSession.h"

#include "ChannelAccess.h"
#include "CommandError.h"
#include "PrinterChoice.h"
#include "common/StringConverter.h"
#include "sim/VirtualPrinterEntry.h"

#include <algorithm>
#include <cstdlib>
#include <exception>

namespace vela::qrvctl {

using vela::common::StringConverter;
namespace hc = vela::printer::communication;

namespace {

constexpr const char* kVirtualPrinters = "QRV_VIRTUAL_PRINTERS";

void SetVirtualPrinters(const std::string& value) {
#ifdef _WIN32
    _putenv_s(kVirtualPrinters, value.c_str());
#else
    setenv(kVirtualPrinters, value.c_str(), 1);
#endif
}

} // namespace

PrinterSession::PrinterSession(const GlobalOptions& options, Console& console)
    : m_options(options), m_console(console) {
    if (!m_options.simulate) {
        return;
    }
    vela::sim::Simulator::Options simulator;
    simulator.name = m_options.printer.empty() ? kSimulatorName : m_options.printer;
    simulator.model = "410";
    try {
        m_simulator = std::make_unique<vela::sim::Simulator>(simulator);
    } catch (const std::exception& e) {
        throw CommandError(ExitCode::failure,
                           std::string("the simulated printer did not start: ") + e.what());
    }
    m_simulator->ExportToEnvironment();
    m_options.printer = simulator.name;
}

PrinterSession::~PrinterSession() {
    // The gateway stops its monitor before the simulator's channels go away.
    m_gateway.Close();
}

const std::vector<hc::PrinterInfo>& PrinterSession::Printers() {
    if (!m_printers) {
        if (!m_discovery) {
            m_discovery.emplace();
        }
        m_printers = hc::ListPrinters();
    }
    return *m_printers;
}

const std::vector<hc::PrinterInfo>& PrinterSession::Rediscover() {
    if (m_discovery) {
        m_discovery->Refresh();
    }
    m_printers.reset();
    return Printers();
}

vela::kom::ManagedQRVDeviceGateway& PrinterSession::Open(StatusEvents events) {
    if (m_gateway.IsOpen() && m_events == events) {
        return m_gateway;
    }
    m_printer = ChoosePrinter(Printers(), m_options.printer);
    const std::string name = PrinterName();
    if (m_printer.channelPath.empty()) {
        throw CommandError(ExitCode::printerNotFound,
                           "'" + name +
                               "' is on USB but has no printer channel (the usblp driver is not bound)",
                           "`qrvctl doctor` says what is missing.");
    }
    if (!m_printer.isVirtual) {
        if (auto problem = CheckChannelAccess(m_printer.channelPath)) {
            throw CommandError(
                ExitCode::accessDenied,
                "cannot open '" + name + "' (" + problem->path + "): " + problem->reason,
                "`qrvctl doctor` prints the udev rule and group that let you use the printer.");
        }
    }
    m_gateway.SetLockWaitCallback([this, name](const vela::kom::ManagedQRVDeviceGateway::LockWait& wait) {
        std::string holder;
        if (wait.holderProcessId != 0) {
            holder = " (" +
                     (wait.holderProgram.empty() ? std::string("pid ")
                                                 : StringConverter::ToUtf8(wait.holderProgram) + ", pid ") +
                     std::to_string(wait.holderProcessId) + ")";
        }
        m_console.ErrorLine("qrvctl: waiting for another program that uses '" + name + "'" + holder +
                            "; it waits up to 10 s");
    });
    m_gateway.SetStatusEvents(events == StatusEvents::shown);
    m_events = events;
    m_gateway.Open(NameToOpen());
    return m_gateway;
}

void PrinterSession::Close() {
    m_gateway.Close();
}

std::wstring PrinterSession::NameToOpen() {
    size_t sameName = 0;
    for (const auto& printer : Printers()) {
        sameName += printer.name == m_printer.name ? 1 : 0;
    }
    if (sameName < 2) {
        return m_printer.name;
    }
    // The library opens a printer by its name and would take the first of that name: give the
    // chosen one a name of its own, as a virtual printer with its paths. On Linux both names
    // share the device's own access lock, so other programs that use it by its name still wait.
    vela::sim::VirtualPrinterEntry alias;
    // Windows names the access lock's event after the printer, and an event name may not hold
    // a backslash.
    std::string where = StringConverter::ToUtf8(m_printer.channelPath);
    std::replace(where.begin(), where.end(), '\\', '/');
    alias.name = PrinterName() + " @ " + where;
    alias.channelPath = StringConverter::ToUtf8(m_printer.channelPath);
    alias.hidPath = StringConverter::ToUtf8(m_printer.statusPath);
    alias.model = m_printer.productId == 0x0024 ? "210" : "410";
    alias.serial = StringConverter::ToUtf8(m_printer.serial);
    try {
        const char* current = std::getenv(kVirtualPrinters);
        const std::string entry = alias.Format();
        SetVirtualPrinters(current != nullptr && *current != 0 ? std::string(current) + ";" + entry : entry);
    } catch (const std::invalid_argument&) {
        return m_printer.name; // a path that cannot be written into the variable
    }
    return StringConverter::FromUtf8(alias.name);
}

std::string PrinterSession::PrinterName() const {
    return StringConverter::ToUtf8(m_printer.name);
}

std::string PrinterSession::StatusReportProblem() const {
    if (m_printer.statusPath.empty()) {
        return "the printer has no status report (HID) interface";
    }
    if (!m_printer.isVirtual) {
        if (auto problem = CheckChannelAccess(m_printer.statusPath)) {
            return "cannot read status reports from " + problem->path + ": " + problem->reason;
        }
    }
    return std::string();
}

} // namespace vela::qrvctl
