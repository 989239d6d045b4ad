#pragma once

#include "sim/FaultPlan.h"
#include "sim/ArrivingPutDigest.h"
#include "sim/FrameAssembler.h"
#include "sim/PrinterModel.h"
#include "sim/RequestDecoder.h"
#include "sim/StatusFields.h"
#include "sim/Updater.h"
#include "sim/VirtualFileSystem.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace vela::sim {

// The seven version texts, in the order the version reply carries them.
struct PrinterVersions {
    std::string os;
    std::string firmware;
    std::string application;
    std::string overall;
    std::string hardware; // the fifth text: the board revision
    std::string deviceId; // the serial number
    std::string rootFs;
};

// One request as the printer received it.
struct RequestRecord {
    RequestKind kind = RequestKind::unknown;
    std::string summary;      // e.g. "put file /mnt/data/images/a.png (12 bytes) -> 0"
    std::vector<uint8_t> raw; // the message as received, cut at Options::requestLogRawBytes
    size_t size = 0;          // the message's full size
};

// 8 bytes: report id 1, then status bytes b0..b6.
using HidReport = std::array<uint8_t, 8>;

// What the printer does after reading some bytes.
struct FeedResult {
    std::vector<uint8_t> output; // bytes to send to the host, in this order
    bool disconnect = false;     // after sending them, drop the channel (after disconnectAfter)...
    std::chrono::milliseconds reconnectAfter{0}; // ...and plug it in again after this long
    // A reboot lets the host's transfer of the order finish before the printer leaves the bus;
    // an injected disconnect cuts at once (0).
    std::chrono::milliseconds disconnectAfter{0};
};

// The printer's side of the wire protocol, without any channel: bytes in, bytes out. The serving
// threads of Simulator pump a ServerChannel through it; unit tests feed it hand-built requests.
//
// Feed() accepts the host's bytes in pieces of any size and answers every complete request:
// status (a settable 8-byte block), completion polls, print control (acknowledged) and device
// control (start update, reboot; no reply), versions, cassette memory, the updater's report,
// and the file-system requests on a VirtualFileSystem. Requests that break the framing are
// recorded as violations and answered with nothing. Every status change queues a HID report.
//
// Thread safety: every member may be called from any thread; one internal mutex serialises them.
// Nothing blocks except WaitHidReport. Callbacks (the trace sink) are called without the mutex
// held, but must not assume any particular thread.
class SimPrinter {
public:
    using Clock = std::chrono::steady_clock;
    using TraceSink = std::function<void(const std::string& line)>;
    static constexpr size_t kCassetteMemorySize = 128;
    using CassetteMemory = std::array<uint8_t, kCassetteMemorySize>;

    struct Options {
        PrinterModel model = PrinterModel::qrv410;
        std::string serial;                         // empty: "QRV<model>-SIM0001"
        uint64_t diskCapacity = uint64_t{64} << 20; // bytes
        // How long the printer stays off the channel after a reboot order.
        std::chrono::milliseconds rebootDelay{2000};
        // How long it takes the reboot order before it leaves the channel.
        std::chrono::milliseconds rebootGrace{100};
        // A message left half-received for this long is reported as truncated (see Tick).
        std::chrono::milliseconds partialMessageTimeout{2000};
        // Headers declaring more than this are taken for garbage.
        uint32_t maxMessageSize = (uint32_t{1} << 30) + 1024;
        size_t requestLogEntries = 4096;              // oldest entries are dropped beyond this
        size_t requestLogRawBytes = size_t{64} << 10; // raw bytes kept per entry
        std::function<Clock::time_point()> clock;     // empty: the steady clock (tests pass their own)
    };

    SimPrinter();
    explicit SimPrinter(Options options);
    SimPrinter(const SimPrinter&) = delete;
    SimPrinter& operator=(const SimPrinter&) = delete;

    // --- the channel side
    FeedResult Feed(const uint8_t* data, size_t size);
    FeedResult Feed(const std::vector<uint8_t>& bytes) { return Feed(bytes.data(), bytes.size()); }
    // Call while the channel is idle: a message left half-received for longer than
    // partialMessageTimeout is reported as truncated and dropped.
    void Tick();
    // The host went away: forget half-received input without reporting it.
    void ResetChannel();

    // --- status (every change queues a HID report)
    StatusBlock GetStatusBlock() const;
    void SetStatusBlock(const StatusBlock& block);
    StatusFields GetStatus() const;
    void SetStatus(const StatusFields& fields);
    // Changes some fields at once; `change` runs under the printer's mutex and must not call it.
    void ModifyStatus(const std::function<void(StatusFields&)>& change);
    void SetDoorOpen(bool open);
    // Also makes the cassette memory readable (inserted) or not (removed).
    void SetCassettePresent(bool present);
    void SetBatteryLevel(uint8_t level); // 0 empty .. 5 full
    void SetCutterJammed(bool jammed);
    void SetExternalPower(bool connected, bool charging);

    // --- HID reports
    // The special report: the current status with byte 5 (b4) = 0xF0.
    void SendSpecialHidReport();
    // Waits up to `timeout` for the next queued report.
    std::optional<HidReport> WaitHidReport(std::chrono::milliseconds timeout);
    std::vector<HidReport> TakeHidReports();
    // Makes every WaitHidReport that is waiting now return at once without a report.
    void CancelHidWaits();
    static HidReport MakeHidReport(const StatusBlock& block);

    // --- identity
    PrinterModel Model() const { return m_model; }
    std::string Serial() const;
    PrinterVersions GetVersions() const;
    void SetVersions(const PrinterVersions& versions);
    CassetteMemory GetCassetteMemory() const;
    void SetCassetteMemory(const CassetteMemory& memory);
    void SetSku(const std::string& sku); // 7 characters at memory bytes 1..7 (cut or space-padded)
    // An unreadable memory answers the cassette memory query with a 3-byte payload.
    void SetCassetteMemoryReadable(bool readable);

    // --- completion and updater
    // Every file-system operation answers this many polls with "busy" before "finished".
    void SetCompletionBusyPolls(uint32_t polls);
    void SetUpdateBusyReports(uint32_t reports);
    void SetUpdateBusyDuration(std::chrono::milliseconds duration);
    // The updater reports busy for the next `reports` status queries, installing nothing.
    void SetUpdaterBusy(uint32_t reports);
    bool UpdaterBusy() const;
    void SetRebootDelay(std::chrono::milliseconds delay);

    // --- faults
    void InjectFault(Fault fault);
    void ClearFaults();
    std::vector<Fault> ArmedFaults() const;

    // --- the file system (direct access; see VirtualFileSystem for the rules)
    std::optional<std::vector<uint8_t>> ReadFile(const std::string& path) const;
    void WriteFile(const std::string& path, std::vector<uint8_t> data, bool readOnly = false);
    void AddFolder(const std::string& path);
    bool RemoveFile(const std::string& path);
    void SetReadOnly(const std::string& path, bool readOnly);
    std::vector<FileInfo> Files() const;
    void SetDiskCapacity(uint64_t bytes);
    uint64_t DiskCapacity() const;
    uint64_t DiskUsed() const;
    // Path of a library folder by its selector (1 jobs, 2 templates, 3 images, 4 update); empty else.
    static std::string FolderForSelector(uint8_t selector);

    // --- observations
    std::vector<RequestRecord> Requests() const;
    size_t CountRequests(RequestKind kind) const;
    void ClearRequests();
    std::vector<FramingViolation> Violations() const;
    void ClearViolations();
    // Receives one line per frame in each direction, per violation and per disconnect.
    void SetTrace(TraceSink sink);

private:
    struct PendingOperation {
        RequestKind kind;
        uint8_t result;
        uint32_t busyPolls;
        bool forever;
    };
    struct DisconnectPlan {
        Fault fault;
        uint64_t remaining;
    };
    struct Exchange; // the output and trace lines of one Feed

    Clock::time_point Now() const;
    void Handle(std::vector<uint8_t> frame, Exchange& exchange);
    void Record(const DecodedRequest& decoded, const std::vector<uint8_t>& frame, const std::string& summary);
    void AddViolation(FramingViolation violation, Exchange* exchange);
    void Reply(RequestKind kind, uint8_t unit, std::vector<uint8_t> message, Exchange& exchange);
    void Emit(std::vector<uint8_t> bytes, Exchange& exchange);
    void TriggerDisconnect(Exchange& exchange);
    bool CountsIncoming() const;
    bool CountsOutgoing() const;
    uint8_t StartOperation(RequestKind kind, uint8_t outcome, const std::function<void()>& apply);

    std::vector<uint8_t> CompletionReply();
    uint8_t PrintControl(uint8_t code);
    void DeviceControl(uint8_t code, Exchange& exchange);
    std::vector<uint8_t> VersionReply();
    std::vector<uint8_t> CassetteMemoryReply() const;
    std::vector<uint8_t> UpdateStatusReply();
    uint8_t PutFile(const Request& request, std::vector<uint8_t>& frame);
    void TakeInstalledUpdate();

    void ChangeStatus(const StatusBlock& block);
    void QueueHidReport(const HidReport& report);

    const PrinterModel m_model;
    Options m_options;

    mutable std::mutex m_mutex;
    std::condition_variable m_hidReady;
    FrameAssembler m_assembler;
    ArrivingPutDigest m_putDigest;
    Clock::time_point m_lastInput{};
    StatusBlock m_status;
    PrinterVersions m_versions;
    CassetteMemory m_cassetteMemory{};
    bool m_cassetteMemoryReadable = true;
    VirtualFileSystem m_files;
    Updater m_updater;
    FaultPlan m_faults;
    std::optional<DisconnectPlan> m_disconnect;
    std::optional<PendingOperation> m_pending;
    uint32_t m_completionBusyPolls = 0;
    std::deque<HidReport> m_hidReports;
    uint64_t m_hidWaitGeneration = 0;
    std::deque<RequestRecord> m_requests;
    std::vector<FramingViolation> m_violations;
    TraceSink m_trace;
};

} // namespace vela::sim
