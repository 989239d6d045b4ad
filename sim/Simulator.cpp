#include "sim/Simulator.h"

#include "sim/TextEncoding.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace vela::sim {

namespace {

constexpr int kReadPollMs = 100;
constexpr size_t kReadBufferSize = size_t{64} << 10;
constexpr std::chrono::milliseconds kHidWait{200};
constexpr std::chrono::milliseconds kHidRetry{100};
constexpr const char* kVariable = "QRV_VIRTUAL_PRINTERS";

std::string SerialFromName(const std::string& name) {
    uint32_t hash = 2166136261u; // FNV-1a: the same name always gives the same serial
    for (unsigned char c : name) {
        hash = (hash ^ c) * 16777619u;
    }
    char text[16];
    std::snprintf(text, sizeof text, "SIM%08X", static_cast<unsigned>(hash));
    return text;
}

} // namespace

SimPrinter::Options Simulator::EngineOptions(const Options& options) {
    auto model = ParseModel(options.model);
    if (!model) {
        throw std::invalid_argument("model must be 210 or 410, not '" + options.model + "'");
    }
    SimPrinter::Options engine = options.printer;
    engine.model = *model;
    engine.serial = options.serial.empty() ? SerialFromName(options.name) : options.serial;
    // Validates the name and serial before anything is opened.
    VirtualPrinterEntry{options.name, "-", "", options.model, engine.serial}.Format();
    return engine;
}

Simulator::Simulator(Options options) : m_options(std::move(options)), m_printer(EngineOptions(m_options)) {
    if (m_options.gadget) {
        m_printerChannel =
            ServerChannel::OpenDeviceNode(m_options.gadgetPrinterNode, ServerChannel::Kind::printer);
        if (m_options.hid) {
            m_hidChannel = ServerChannel::OpenDeviceNode(m_options.gadgetHidNode, ServerChannel::Kind::hid);
        }
    } else {
        m_printerChannel = ServerChannel::Create(ServerChannel::Kind::printer);
        if (m_options.hid) {
            m_hidChannel = ServerChannel::Create(ServerChannel::Kind::hid);
        }
    }
    Start();
}

Simulator::Simulator(Options options, std::unique_ptr<ServerChannel> printer,
                     std::unique_ptr<ServerChannel> hid)
    : m_options(std::move(options)), m_printer(EngineOptions(m_options)),
      m_printerChannel(std::move(printer)), m_hidChannel(std::move(hid)) {
    if (!m_printerChannel) {
        throw std::invalid_argument("a simulator needs a printer channel");
    }
    m_options.hid = m_hidChannel != nullptr;
    Start();
}

void Simulator::Start() {
    m_printerPath = m_printerChannel->ClientPath();
    m_hidPath = m_hidChannel ? m_hidChannel->ClientPath() : std::wstring();
    if (m_options.trace) {
        m_printer.SetTrace(m_options.trace);
    }
    m_printerThread = std::thread([this] { ServePrinter(); });
    if (m_hidChannel) {
        m_hidThread = std::thread([this] { ServeHid(); });
    }
}

Simulator::~Simulator() {
    Stop();
}

void Simulator::Stop() {
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    m_printer.CancelHidWaits();
    if (m_printerThread.joinable()) {
        m_printerThread.join();
    }
    if (m_hidThread.joinable()) {
        m_hidThread.join();
    }
    m_printerChannel.reset();
    m_hidChannel.reset();
}

std::wstring Simulator::PrinterPath() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_printerPath;
}

std::wstring Simulator::HidPath() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_hidPath;
}

VirtualPrinterEntry Simulator::Entry() const {
    return {m_options.name, Utf8FromWide(PrinterPath()), Utf8FromWide(HidPath()), m_options.model,
            m_printer.Serial()};
}

void Simulator::ExportToEnvironment() const {
    std::string value = EntryText();
#ifdef _WIN32
    _putenv_s(kVariable, value.c_str());
#else
    setenv(kVariable, value.c_str(), 1);
#endif
}

bool Simulator::WaitForReconnections(uint32_t count, std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, timeout,
                              [&] { return m_reconnections.load() >= count && m_connected.load(); });
}

void Simulator::Trace(const std::string& line) const {
    if (m_options.trace) {
        m_options.trace(line);
    }
}

bool Simulator::WaitUnlessStopping(std::chrono::milliseconds duration) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_changed.wait_for(lock, duration, [this] { return m_stopping.load(); });
}

void Simulator::ServePrinter() {
    std::vector<uint8_t> buffer(kReadBufferSize);
    try {
        while (!m_stopping) {
            long count = m_printerChannel->Read(buffer.data(), buffer.size(), kReadPollMs);
            if (count < 0) {
                if (!m_stopping) {
                    Trace("sim: the printer channel closed for good; no longer serving");
                }
                return;
            }
            if (count == 0) {
                m_printer.Tick();
                continue;
            }
            FeedResult result = m_printer.Feed(buffer.data(), static_cast<size_t>(count));
            if (!result.output.empty() &&
                !m_printerChannel->Write(result.output.data(), result.output.size())) {
                Trace("sim: " + std::to_string(result.output.size()) +
                      " reply bytes lost: no host on the channel");
            }
            if (result.disconnect) {
                GoOffline(result.disconnectAfter, result.reconnectAfter);
            }
        }
    } catch (const std::exception& e) {
        Trace(std::string("sim: printer channel failed: ") + e.what());
    }
}

void Simulator::GoOffline(std::chrono::milliseconds disconnectAfter,
                          std::chrono::milliseconds reconnectAfter) {
    if (disconnectAfter.count() > 0 && !WaitUnlessStopping(disconnectAfter)) {
        return;
    }
    m_connected = false;
    m_printerChannel->Disconnect();
    if (m_hidChannel) {
        m_hidChannel->Disconnect();
    }
    m_printer.ResetChannel();
    if (!WaitUnlessStopping(reconnectAfter)) {
        return;
    }
    bool samePath = m_printerChannel->Reconnect();
    bool sameHidPath = !m_hidChannel || m_hidChannel->Reconnect();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (!samePath) {
            m_printerPath = m_printerChannel->ClientPath();
        }
        if (!sameHidPath) {
            m_hidPath = m_hidChannel->ClientPath();
        }
        m_connected = true;
        ++m_reconnections;
    }
    if (!samePath || !sameHidPath) {
        Trace("sim: back on a new path; QRV_VIRTUAL_PRINTERS=" + EntryText());
    }
    m_changed.notify_all();
}

void Simulator::ServeHid() {
    std::optional<HidReport> pending;
    try {
        while (!m_stopping) {
            if (!pending) {
                pending = m_printer.WaitHidReport(kHidWait);
                continue;
            }
            if (m_connected && m_hidChannel->Write(pending->data(), pending->size())) {
                pending.reset();
                continue;
            }
            // Nobody can take the report now: keep the newest one and try again shortly, so that a
            // host that attaches later still learns the current state.
            if (auto newer = m_printer.WaitHidReport(kHidRetry)) {
                pending = newer;
            }
        }
    } catch (const std::exception& e) {
        Trace(std::string("sim: HID channel failed: ") + e.what());
    }
}

} // namespace vela::sim
