#pragma once

#include "sim/ServerChannel.h"
#include "sim/SimPrinter.h"
#include "sim/VirtualPrinterEntry.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace vela::sim {

// A simulated QRV printer serving the OS channels the library opens in production, for tests,
// `qrvctl --simulate` and the `qrv-sim` tool:
//
//     vela::sim::Simulator::Options options;
//     options.name = "Label Printer";
//     options.model = "410";
//     vela::sim::Simulator printer(options);             // serving from here on
//     setenv("QRV_VIRTUAL_PRINTERS", printer.EntryText().c_str(), 1);  // or ExportToEnvironment()
//     printer.Printer().SetDoorOpen(true);               // status change + HID report
//     printer.Printer().InjectFault(Fault::Silence().For(RequestKind::statusQuery));
//     ... run the library against "Label Printer" ...
//     printer.Printer().Requests();                      // what it received
//
// Two threads serve it: one reads the printer channel, feeds the bytes to the SimPrinter engine
// and writes its replies; one writes the engine's HID reports to the HID channel. A reboot order
// or an injected disconnect takes both channels off (ServerChannel::Disconnect) and plugs them
// in again (Reconnect) after the engine's delay. On Windows, where a reconnection may move the
// pipe, PrinterPath() tells the current path.
//
// Thread safety: all members may be called from any thread. Printer() gives the engine, whose
// setters, faults, file access and logs are thread-safe too. Stop() (or the destructor) ends the
// threads within about 100 ms and closes the channels; it never throws.
class Simulator {
public:
    struct Options {
        std::string name = "Label Printer"; // the print-queue name the host application uses
        std::string model = "410";          // "210" (product 0x0024) or "410" (product 0x0025)
        std::string serial;                 // empty: "SIM" + 8 hex digits derived from the name
        bool hid = true;                    // serve a HID channel for the status reports
        bool gadget = false;                // serve the USB gadget nodes (VM harness, Linux)
        std::string gadgetPrinterNode = "/dev/g_printer0";
        std::string gadgetHidNode = "/dev/hidg0";
        SimPrinter::TraceSink trace; // one line per frame, violation and disconnect
        SimPrinter::Options printer; // engine options; model and serial come from above
    };

    // Creates the channels (ServerChannel::Create, or OpenDeviceNode in gadget mode) and starts
    // serving. Throws std::invalid_argument for a bad model or a name/serial holding '|' or ';',
    // and std::runtime_error when the system refuses a channel.
    explicit Simulator(Options options);
    // Serves channels made by the caller (for example in-memory ones); `hid` may be null.
    Simulator(Options options, std::unique_ptr<ServerChannel> printer, std::unique_ptr<ServerChannel> hid);
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // Ends serving and closes the channels. Idempotent; blocks until both threads have ended.
    void Stop();

    SimPrinter& Printer() { return m_printer; }
    const Options& GetOptions() const { return m_options; }
    uint16_t ProductId() const { return vela::sim::ProductId(m_printer.Model()); }

    // The path the library opens for the printer channel and for the HID reports (empty without).
    std::wstring PrinterPath() const;
    std::wstring HidPath() const;
    // This printer's QRV_VIRTUAL_PRINTERS entry and its text.
    VirtualPrinterEntry Entry() const;
    std::string EntryText() const { return Entry().Format(); }
    // Sets QRV_VIRTUAL_PRINTERS of this process to this printer's entry, replacing any value.
    void ExportToEnvironment() const;

    // False while the printer is off the channel (reboot, injected disconnect).
    bool Connected() const { return m_connected.load(); }
    // How often it has come back after going off the channel.
    uint32_t Reconnections() const { return m_reconnections.load(); }
    // Waits until the printer has come back `count` times in all; false after `timeout`.
    bool WaitForReconnections(uint32_t count, std::chrono::milliseconds timeout);

private:
    static SimPrinter::Options EngineOptions(const Options& options);
    void Start();
    void ServePrinter();
    void ServeHid();
    void GoOffline(std::chrono::milliseconds disconnectAfter, std::chrono::milliseconds reconnectAfter);
    void Trace(const std::string& line) const;
    // Sleeps up to `duration`; false when Stop() cut it short.
    bool WaitUnlessStopping(std::chrono::milliseconds duration);

    Options m_options;
    SimPrinter m_printer;
    std::unique_ptr<ServerChannel> m_printerChannel;
    std::unique_ptr<ServerChannel> m_hidChannel;

    mutable std::mutex m_mutex; // paths, stop and reconnection signalling
    std::condition_variable m_changed;
    std::wstring m_printerPath;
    std::wstring m_hidPath;
    std::atomic<bool> m_stopping{false};
    std::atomic<bool> m_connected{true};
    std::atomic<uint32_t> m_reconnections{0};
    std::thread m_printerThread;
    std::thread m_hidThread;
};

} // namespace vela::sim
