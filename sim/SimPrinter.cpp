#include "sim/SimPrinter.h"

#include "common/ByteOrder.h"
#include "sim/Md5.h"
#include "sim/WireFormat.h"

#include <algorithm>
#include <cstring>

namespace vela::sim {

namespace {

constexpr size_t kHidQueueLimit = 256;
constexpr uint8_t kSpecialReportMarker = 0xF0;

// Print control order codes.
constexpr uint8_t kResume = 0x01;
constexpr uint8_t kClearError = 0x03;
constexpr uint8_t kCut = 0x04;
constexpr uint8_t kFeed = 0x0A;
constexpr uint8_t kClearCutterJam = 0x0F;
// Device control order codes.
constexpr uint8_t kStartUpdate = 0x01;
constexpr uint8_t kReboot = 0x02;
// Print control acknowledgement: payload byte 3.
constexpr uint8_t kAckDone = 0x00;
constexpr uint8_t kAckRefused = 0x01;
// Cassette memory answer without data: payload byte 2.
constexpr uint8_t kMemoryUnavailable = 0x01;

// Field values (see StatusFields).
constexpr uint8_t kDoorOpen = 1;
constexpr uint8_t kCassettePresent = 0;
constexpr uint8_t kCassetteAbsent = 1;
constexpr uint8_t kCassettePresentUnverified = 2;
constexpr uint8_t kCutterJammed = 2;
constexpr uint8_t kCutterError = 7;
constexpr uint8_t kLabelJammed = 2;
constexpr uint8_t kLabelError = 7;
constexpr uint8_t kPrintPaused = 2;
constexpr uint8_t kPrintAborted = 3;
constexpr uint8_t kPrintError = 7;

bool IsFileSystemCommand(RequestKind kind) {
    return kind == RequestKind::putFile || kind == RequestKind::getFilePrepare ||
           kind == RequestKind::deleteFile || kind == RequestKind::renameFile ||
           kind == RequestKind::listFolderPrepare;
}

std::string DefaultSerial(PrinterModel model) {
    return std::string("QRV") + ModelNumber(model) + "-SIM0001";
}

SimPrinter::CassetteMemory DefaultCassetteMemory() {
    SimPrinter::CassetteMemory memory{};
    memory[0] = 0x01; // layout version
    const char sku[] = "C62X30W";
    std::memcpy(&memory[1], sku, 7);
    const char lot[] = "L2406118";
    std::memcpy(&memory[8], lot, 8);
    memory[16] = 620 & 0xFF, memory[17] = 620 >> 8; // label width, 0.1 mm
    memory[18] = 300 & 0xFF, memory[19] = 300 >> 8; // label length, 0.1 mm
    memory[20] = 500 & 0xFF, memory[21] = 500 >> 8; // labels on a full roll
    return memory;
}

PrinterVersions DefaultVersions(PrinterModel model, const std::string& serial) {
    PrinterVersions v;
    v.os = "5.10.72-qrv";
    v.firmware = "1.8.2";
    v.application = "2.3.0";
    v.overall = "1.8.2";
    v.hardware = std::string("QRV") + ModelNumber(model) + "-B2";
    v.deviceId = serial;
    v.rootFs = "1.8.2";
    return v;
}

std::string Hex2(uint8_t value) {
    const char* digits = "0123456789ABCDEF";
    return std::string("0x") + digits[value >> 4] + digits[value & 0xF];
}

} // namespace

struct SimPrinter::Exchange {
    FeedResult result;
    std::vector<std::string> trace;
    bool tracing = false;
};

SimPrinter::SimPrinter() : SimPrinter(Options{}) {}

SimPrinter::SimPrinter(Options options)
    : m_model(options.model), m_options(std::move(options)), m_assembler(m_options.maxMessageSize),
      m_status(DefaultStatusBlock()), m_cassetteMemory(DefaultCassetteMemory()),
      m_files(m_options.diskCapacity) {
    if (m_options.serial.empty()) {
        m_options.serial = DefaultSerial(m_model);
    }
    m_versions = DefaultVersions(m_model, m_options.serial);
}

SimPrinter::Clock::time_point SimPrinter::Now() const {
    return m_options.clock ? m_options.clock() : Clock::now();
}

// ---------------------------------------------------------------------------------------------
// The channel side

FeedResult SimPrinter::Feed(const uint8_t* data, size_t size) {
    Exchange exchange;
    TraceSink sink;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        sink = m_trace;
        exchange.tracing = static_cast<bool>(sink);
        size_t at = 0;
        while (at < size && !exchange.result.disconnect) {
            size_t allowance = size - at;
            if (m_disconnect && CountsIncoming()) {
                allowance = static_cast<size_t>(std::min<uint64_t>(allowance, m_disconnect->remaining));
            }
            std::optional<std::vector<uint8_t>> frame;
            std::vector<FramingViolation> violations;
            size_t used = m_assembler.Consume(data + at, allowance, frame, violations);
            at += used;
            m_lastInput = Now();
            if (m_disconnect && CountsIncoming()) {
                m_disconnect->remaining -= used;
            }
            for (FramingViolation& violation : violations) {
                AddViolation(std::move(violation), &exchange);
            }
            if (frame) {
                Handle(std::move(*frame), exchange);
                m_putDigest.Reset();
            } else {
                m_putDigest.Advance(m_assembler.PartialData(), m_assembler.PartialSize());
            }
            if (!exchange.result.disconnect && m_disconnect && CountsIncoming() &&
                m_disconnect->remaining == 0) {
                TriggerDisconnect(exchange);
            }
        }
    }
    for (const std::string& line : exchange.trace) {
        sink(line);
    }
    return std::move(exchange.result);
}

void SimPrinter::Tick() {
    Exchange exchange;
    TraceSink sink;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        sink = m_trace;
        exchange.tracing = static_cast<bool>(sink);
        if (m_assembler.HasPartialInput() && Now() - m_lastInput >= m_options.partialMessageTimeout) {
            // A host that stops part-way (killed, or unplugged) must not leave the printer waiting
            // for the rest forever, deaf to every later request.
            if (exchange.tracing) {
                exchange.trace.push_back("sim: receive time-out: nothing arrived for " +
                                         std::to_string(m_options.partialMessageTimeout.count()) +
                                         " ms; the half-received message is dropped");
            }
            std::vector<FramingViolation> violations;
            m_assembler.Abandon(violations);
            m_putDigest.Reset();
            for (FramingViolation& violation : violations) {
                AddViolation(std::move(violation), &exchange);
            }
        }
    }
    for (const std::string& line : exchange.trace) {
        sink(line);
    }
}

void SimPrinter::ResetChannel() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_assembler.Reset();
    m_putDigest.Reset();
}

bool SimPrinter::CountsIncoming() const {
    return m_disconnect->fault.direction != ByteDirection::fromPrinter;
}
bool SimPrinter::CountsOutgoing() const {
    return m_disconnect->fault.direction != ByteDirection::toPrinter;
}

void SimPrinter::TriggerDisconnect(Exchange& exchange) {
    exchange.result.disconnect = true;
    exchange.result.reconnectAfter = m_disconnect->fault.reconnectAfter;
    if (exchange.tracing) {
        exchange.trace.push_back("sim: injected disconnect; back in " +
                                 std::to_string(m_disconnect->fault.reconnectAfter.count()) + " ms");
    }
    if (m_disconnect->fault.persistent) {
        m_disconnect->remaining = m_disconnect->fault.byteCount;
    } else {
        m_disconnect.reset();
    }
    m_assembler.Reset();
    m_putDigest.Reset();
}

void SimPrinter::Emit(std::vector<uint8_t> bytes, Exchange& exchange) {
    if (m_disconnect) {
        if (m_disconnect->remaining == 0) {
            TriggerDisconnect(exchange);
            return;
        }
        if (CountsOutgoing()) {
            if (bytes.size() >= m_disconnect->remaining) {
                bytes.resize(static_cast<size_t>(m_disconnect->remaining));
                m_disconnect->remaining = 0;
                exchange.result.output.insert(exchange.result.output.end(), bytes.begin(), bytes.end());
                TriggerDisconnect(exchange);
                return;
            }
            m_disconnect->remaining -= bytes.size();
        }
    }
    if (exchange.result.output.empty()) {
        exchange.result.output = std::move(bytes);
    } else {
        exchange.result.output.insert(exchange.result.output.end(), bytes.begin(), bytes.end());
    }
}

void SimPrinter::AddViolation(FramingViolation violation, Exchange* exchange) {
    if (exchange != nullptr && exchange->tracing) {
        exchange->trace.push_back(std::string("sim: framing violation (") +
                                  ViolationKindName(violation.kind) + "): " + violation.detail);
    }
    m_violations.push_back(std::move(violation));
}

void SimPrinter::Record(const DecodedRequest& decoded, const std::vector<uint8_t>& frame,
                        const std::string& summary) {
    RequestRecord record;
    record.kind = decoded.request.kind;
    record.summary = summary;
    record.size = frame.size();
    size_t kept = std::min(frame.size(), m_options.requestLogRawBytes);
    record.raw.assign(frame.begin(), frame.begin() + static_cast<ptrdiff_t>(kept));
    m_requests.push_back(std::move(record));
    while (m_requests.size() > m_options.requestLogEntries) {
        m_requests.pop_front();
    }
}

void SimPrinter::Reply(RequestKind kind, uint8_t unit, std::vector<uint8_t> payload, Exchange& exchange) {
    if (m_faults.Take(FaultKind::silence, kind)) {
        if (exchange.tracing) {
            exchange.trace.push_back(std::string("sim: injected silence for ") + RequestKindName(kind));
        }
        return;
    }
    if (auto fault = m_faults.Take(FaultKind::wrongCommandByte, kind)) {
        if (payload.size() > 1) {
            payload[1] = fault->value ? *fault->value : uint8_t(payload[1] ^ 0x01);
        }
    }
    if (auto fault = m_faults.Take(FaultKind::wrongReplyLength, kind)) {
        int64_t size = static_cast<int64_t>(payload.size()) + fault->lengthDelta;
        payload.resize(static_cast<size_t>(std::max<int64_t>(0, size)), 0);
    }
    // The header goes in front of the payload in its own buffer: a file's reply is as large as the
    // file, and a second buffer of that size would cost a copy into fresh memory.
    const std::vector<uint8_t> header = wire::ReplyHeader(unit, payload.size());
    payload.insert(payload.begin(), header.begin(), header.end());
    std::vector<uint8_t> message = std::move(payload);
    if (auto fault = m_faults.Take(FaultKind::corruptStartByte, kind)) {
        message[0] = fault->value.value_or(0x3C);
    }
    if (auto fault = m_faults.Take(FaultKind::staleBytes, kind)) {
        std::vector<uint8_t> stale = fault->bytes;
        if (stale.empty()) {
            // An answer to a poll long gone, still waiting in the channel.
            stale = wire::Reply(wire::unit::fileSystem,
                                {0x00, wire::command::query, wire::kProgressFinished, 0x00, 0x00});
        }
        if (exchange.tracing) {
            exchange.trace.push_back("sim -> stale " + wire::HexDump(stale.data(), stale.size()));
        }
        Emit(std::move(stale), exchange);
        if (exchange.result.disconnect) {
            return;
        }
    }
    if (exchange.tracing) {
        exchange.trace.push_back("sim -> " + std::to_string(message.size()) +
                                 " bytes: " + wire::HexDump(message.data(), message.size()));
    }
    Emit(std::move(message), exchange);
}

// ---------------------------------------------------------------------------------------------
// Requests

void SimPrinter::Handle(std::vector<uint8_t> frame, Exchange& exchange) {
    DecodedRequest decoded = DecodeRequest(frame);
    const Request& request = decoded.request;
    if (exchange.tracing) {
        exchange.trace.push_back(std::string("sim <- ") + RequestKindName(request.kind) + " (" +
                                 std::to_string(frame.size()) +
                                 " bytes): " + wire::HexDump(frame.data(), frame.size()));
    }
    if (decoded.violation) {
        Record(decoded, frame,
               std::string("malformed ") + RequestKindName(request.kind) + ": " + decoded.violation->detail);
        if (IsFileSystemCommand(request.kind)) {
            // The host will poll for the outcome; it must not see the previous operation's.
            m_pending = PendingOperation{request.kind, result::unknownError, 0, false};
        }
        AddViolation(std::move(*decoded.violation), &exchange);
        return;
    }

    std::string summary = RequestKindName(request.kind);
    if (!request.path.empty()) {
        summary += " " + request.path;
    }
    if (request.kind == RequestKind::renameFile) {
        summary += " -> " + request.newPath;
    }
    if (request.kind == RequestKind::putFile) {
        summary += " (" + std::to_string(request.dataLength) + " bytes)";
    }
    if (request.kind == RequestKind::printControl || request.kind == RequestKind::deviceControl ||
        request.kind == RequestKind::folderDetail) {
        summary += " " + Hex2(request.code);
    }
    Record(decoded, frame, summary);
    auto outcome = [this](uint8_t code) {
        if (!m_requests.empty()) {
            m_requests.back().summary += ": result " + std::to_string(code);
        }
    };

    const uint8_t unit = request.unit;
    switch (request.kind) {
    case RequestKind::completionPoll:
        Reply(request.kind, unit, CompletionReply(), exchange);
        break;
    case RequestKind::statusQuery: {
        std::vector<uint8_t> payload{0x00, wire::command::query};
        payload.insert(payload.end(), m_status.begin(), m_status.end());
        Reply(request.kind, unit, std::move(payload), exchange);
        break;
    }
    case RequestKind::printControl: {
        uint8_t ack = PrintControl(request.code);
        Reply(request.kind, unit, {0x00, wire::command::printControl, request.code, ack}, exchange);
        break;
    }
    case RequestKind::deviceControl:
        DeviceControl(request.code, exchange);
        break;
    case RequestKind::versionQuery:
        Reply(request.kind, unit, VersionReply(), exchange);
        break;
    case RequestKind::cassetteMemory:
        Reply(request.kind, unit, CassetteMemoryReply(), exchange);
        break;
    case RequestKind::updateStatus:
        Reply(request.kind, unit, UpdateStatusReply(), exchange);
        break;
    case RequestKind::putFile: {
        uint8_t code = PutFile(request, frame);
        outcome(code);
        break;
    }
    case RequestKind::getFilePrepare: {
        uint8_t check = request.pathTerminated ? m_files.CheckGet(request.path) : result::illegalName;
        outcome(StartOperation(request.kind, check, [] {}));
        break;
    }
    case RequestKind::getFileFetch: {
        const std::vector<uint8_t>* data = request.pathTerminated ? m_files.Find(request.path) : nullptr;
        size_t size = data ? data->size() : 0;
        std::vector<uint8_t> payload;
        payload.reserve(wire::kHeaderSize + wire::kReplyDataOffset + 4 + size); // room for the header
        payload.push_back(0x00);
        payload.push_back(wire::command::getFetch);
        wire::AppendPathField(payload, request.path);
        common::AppendLittleEndian32(payload, static_cast<uint32_t>(size));
        if (data) {
            payload.insert(payload.end(), data->begin(), data->end());
        }
        Reply(request.kind, unit, std::move(payload), exchange);
        break;
    }
    case RequestKind::deleteFile: {
        uint8_t check = request.pathTerminated ? m_files.CheckDelete(request.path) : result::illegalName;
        outcome(StartOperation(request.kind, check, [&] { m_files.Delete(request.path); }));
        break;
    }
    case RequestKind::renameFile: {
        uint8_t check = request.pathTerminated && request.newPathTerminated
                            ? m_files.CheckRename(request.path, request.newPath)
                            : result::illegalName;
        outcome(StartOperation(request.kind, check, [&] { m_files.Rename(request.path, request.newPath); }));
        break;
    }
    case RequestKind::listFolderPrepare: {
        uint8_t check = request.pathTerminated ? m_files.CheckList(request.path) : result::illegalName;
        outcome(StartOperation(request.kind, check, [] {}));
        break;
    }
    case RequestKind::listFolderFetch: {
        std::string text = request.pathTerminated ? m_files.ListingText(request.path) : std::string();
        std::vector<uint8_t> payload{0x00, wire::command::listFetch};
        wire::AppendPathField(payload, request.path);
        payload.insert(payload.end(), text.begin(), text.end());
        Reply(request.kind, unit, std::move(payload), exchange);
        break;
    }
    case RequestKind::folderDetail: {
        std::string folder = FolderForSelector(request.code);
        std::vector<uint8_t> payload{0x00, wire::command::folderDetail, request.code, 0x00, 0x00, 0x00, 0x00};
        payload.insert(payload.end(), folder.begin(), folder.end());
        payload.push_back(0x00);
        Reply(request.kind, unit, std::move(payload), exchange);
        break;
    }
    case RequestKind::diskSpace: {
        std::vector<uint8_t> payload{0x00, wire::command::diskSpaceReply};
        common::AppendLittleEndian64(payload, m_files.Free());
        common::AppendLittleEndian64(payload, m_files.Used());
        Reply(request.kind, unit, std::move(payload), exchange);
        break;
    }
    case RequestKind::unknown:
        break;
    }
}

uint8_t SimPrinter::StartOperation(RequestKind kind, uint8_t outcome, const std::function<void()>& apply) {
    auto busy = m_faults.Take(FaultKind::busyForever, kind);
    auto forced = m_faults.Take(FaultKind::completionResult, kind);
    uint8_t code = forced ? forced->value.value_or(0) : outcome;
    if (code == result::ok && outcome == result::ok) {
        apply();
    }
    m_pending = PendingOperation{kind, code, m_completionBusyPolls, busy.has_value()};
    return code;
}

std::vector<uint8_t> SimPrinter::CompletionReply() {
    if (!m_pending) {
        return {0x00, wire::command::query, wire::kProgressFinished, 0x00, result::ok};
    }
    if (m_pending->forever || m_pending->busyPolls > 0) {
        if (!m_pending->forever) {
            --m_pending->busyPolls;
        }
        return {0x00, wire::command::query, wire::kProgressBusy, 0x00, 0x00};
    }
    uint8_t code = m_pending->result;
    m_pending.reset();
    return {0x00, wire::command::query, wire::kProgressFinished, 0x00, code};
}

uint8_t SimPrinter::PutFile(const Request& request, std::vector<uint8_t>& frame) {
    const size_t size = request.dataLength;
    uint8_t check = request.pathTerminated ? m_files.CheckPut(request.path, size) : result::illegalName;
    if (check == result::ok || check == result::diskFull) {
        // What arrived is verified before it is stored, so a damaged file is reported as such
        // even when it would not have fitted.
        Md5::Digest digest = m_putDigest.DigestOf(frame, size);
        if (!std::equal(digest.begin(), digest.end(),
                        frame.begin() + static_cast<ptrdiff_t>(wire::kPutDataOffset + size))) {
            check = result::badChecksum;
        }
    }
    return StartOperation(RequestKind::putFile, check, [&] {
        // Keep the received buffer: cut the digest off its end and the request head off its front.
        frame.resize(wire::kPutDataOffset + size);
        frame.erase(frame.begin(), frame.begin() + static_cast<ptrdiff_t>(wire::kPutDataOffset));
        m_files.Store(request.path, std::move(frame));
    });
}

uint8_t SimPrinter::PrintControl(uint8_t code) {
    StatusFields f = StatusFields::FromBlock(m_status);
    uint8_t ack = kAckDone;
    switch (code) {
    case kResume:
        if (f.print == kPrintPaused || f.print == kPrintAborted) {
            f.print = 0;
        }
        break;
    case kClearError:
        if (f.print == kPrintError) {
            f.print = 0;
        }
        if (f.label == kLabelJammed || f.label == kLabelError) {
            f.label = 0;
        }
        if (f.cutter == kCutterError) {
            f.cutter = 0;
        }
        break;
    case kCut:
    case kFeed:
        if (f.door == kDoorOpen || f.cutter == kCutterJammed || f.cassette == kCassetteAbsent) {
            ack = kAckRefused;
        }
        break;
    case kClearCutterJam:
        if (f.cutter == kCutterJammed) {
            f.cutter = 0;
        }
        break;
    default:
        ack = kAckRefused;
        break;
    }
    ChangeStatus(f.ToBlock());
    return ack;
}

void SimPrinter::DeviceControl(uint8_t code, Exchange& exchange) {
    if (code == kStartUpdate) {
        m_updater.Start(m_files.NewestFileIn(VirtualFileSystem::kUpdateFolder), Now());
        TakeInstalledUpdate();
    } else if (code == kReboot) {
        m_updater.Reboot();
        TakeInstalledUpdate();
        m_pending.reset();
        exchange.result.disconnect = true;
        exchange.result.reconnectAfter = m_options.rebootDelay;
        exchange.result.disconnectAfter = m_options.rebootGrace;
        m_assembler.Reset();
        m_putDigest.Reset();
        if (exchange.tracing) {
            exchange.trace.push_back("sim: rebooting; back in " +
                                     std::to_string(m_options.rebootDelay.count()) + " ms");
        }
    }
}

void SimPrinter::TakeInstalledUpdate() {
    if (auto package = m_updater.TakeInstalled()) {
        std::string version = VersionFromPackageName(*package);
        m_versions.firmware = version;
        m_versions.overall = version;
        m_versions.rootFs = version;
    }
}

std::vector<uint8_t> SimPrinter::VersionReply() {
    m_updater.Advance(Now());
    TakeInstalledUpdate();
    std::vector<uint8_t> payload{0x00, wire::command::version};
    for (const std::string* text :
         {&m_versions.os, &m_versions.firmware, &m_versions.application, &m_versions.overall,
          &m_versions.hardware, &m_versions.deviceId, &m_versions.rootFs}) {
        payload.insert(payload.end(), text->begin(), text->end());
        payload.push_back(0x00);
    }
    // The host insists on at least 14 payload bytes; trailing zeros after the seventh text are
    // ignored, so short texts still make a valid answer.
    if (payload.size() < 14) {
        payload.resize(14, 0x00);
    }
    return payload;
}

std::vector<uint8_t> SimPrinter::CassetteMemoryReply() const {
    StatusFields f = StatusFields::FromBlock(m_status);
    bool present = f.cassette == kCassettePresent || f.cassette == kCassettePresentUnverified;
    if (!present || !m_cassetteMemoryReadable) {
        return {0x00, wire::command::cassetteMemory, kMemoryUnavailable};
    }
    std::vector<uint8_t> payload{0x00, wire::command::cassetteMemory};
    payload.insert(payload.end(), m_cassetteMemory.begin(), m_cassetteMemory.end());
    return payload;
}

std::vector<uint8_t> SimPrinter::UpdateStatusReply() {
    UpdateReport report = m_updater.Report(Now());
    TakeInstalledUpdate();
    return {0x00, wire::command::updateStatus, report.status, report.value1, report.value2};
}

std::string SimPrinter::FolderForSelector(uint8_t selector) {
    switch (selector) {
    case 1:
        return VirtualFileSystem::kJobFolder;
    case 2:
        return VirtualFileSystem::kTemplateFolder;
    case 3:
        return VirtualFileSystem::kImageFolder;
    case 4:
        return VirtualFileSystem::kUpdateFolder;
    default:
        return std::string();
    }
}

// ---------------------------------------------------------------------------------------------
// Status and HID reports

HidReport SimPrinter::MakeHidReport(const StatusBlock& block) {
    HidReport report{};
    report[0] = 0x01;
    std::copy_n(block.begin(), 7, report.begin() + 1);
    return report;
}

void SimPrinter::QueueHidReport(const HidReport& report) {
    m_hidReports.push_back(report);
    while (m_hidReports.size() > kHidQueueLimit) {
        m_hidReports.pop_front();
    }
    m_hidReady.notify_all();
}

void SimPrinter::ChangeStatus(const StatusBlock& block) {
    if (block == m_status) {
        return;
    }
    m_status = block;
    QueueHidReport(MakeHidReport(m_status));
}

StatusBlock SimPrinter::GetStatusBlock() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_status;
}

void SimPrinter::SetStatusBlock(const StatusBlock& block) {
    std::lock_guard<std::mutex> lock(m_mutex);
    ChangeStatus(block);
}

StatusFields SimPrinter::GetStatus() const {
    return StatusFields::FromBlock(GetStatusBlock());
}

void SimPrinter::SetStatus(const StatusFields& fields) {
    SetStatusBlock(fields.ToBlock());
}

void SimPrinter::ModifyStatus(const std::function<void(StatusFields&)>& change) {
    std::lock_guard<std::mutex> lock(m_mutex);
    StatusFields f = StatusFields::FromBlock(m_status);
    change(f);
    ChangeStatus(f.ToBlock());
}

void SimPrinter::SetDoorOpen(bool open) {
    ModifyStatus([open](StatusFields& f) { f.door = open ? kDoorOpen : 0; });
}

void SimPrinter::SetCassettePresent(bool present) {
    std::lock_guard<std::mutex> lock(m_mutex);
    StatusFields f = StatusFields::FromBlock(m_status);
    f.cassette = present ? kCassettePresent : kCassetteAbsent;
    m_cassetteMemoryReadable = present;
    ChangeStatus(f.ToBlock());
}

void SimPrinter::SetBatteryLevel(uint8_t level) {
    ModifyStatus([level](StatusFields& f) { f.battery = level; });
}

void SimPrinter::SetCutterJammed(bool jammed) {
    ModifyStatus([jammed](StatusFields& f) { f.cutter = jammed ? kCutterJammed : 0; });
}

void SimPrinter::SetExternalPower(bool connected, bool charging) {
    ModifyStatus([=](StatusFields& f) {
        f.externalPower = connected ? 1 : 0;
        f.charging = charging ? 1 : 0;
    });
}

void SimPrinter::SendSpecialHidReport() {
    std::lock_guard<std::mutex> lock(m_mutex);
    HidReport report = MakeHidReport(m_status);
    report[5] = kSpecialReportMarker;
    QueueHidReport(report);
}

std::optional<HidReport> SimPrinter::WaitHidReport(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(m_mutex);
    const uint64_t generation = m_hidWaitGeneration;
    m_hidReady.wait_for(lock, timeout,
                        [&] { return !m_hidReports.empty() || m_hidWaitGeneration != generation; });
    if (m_hidReports.empty() || m_hidWaitGeneration != generation) {
        return std::nullopt;
    }
    HidReport report = m_hidReports.front();
    m_hidReports.pop_front();
    return report;
}

void SimPrinter::CancelHidWaits() {
    std::lock_guard<std::mutex> lock(m_mutex);
    ++m_hidWaitGeneration;
    m_hidReady.notify_all();
}

std::vector<HidReport> SimPrinter::TakeHidReports() {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<HidReport> reports(m_hidReports.begin(), m_hidReports.end());
    m_hidReports.clear();
    return reports;
}

// ---------------------------------------------------------------------------------------------
// Identity, updater, faults, files, observations

std::string SimPrinter::Serial() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_options.serial;
}

PrinterVersions SimPrinter::GetVersions() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_versions;
}

void SimPrinter::SetVersions(const PrinterVersions& versions) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_versions = versions;
}

SimPrinter::CassetteMemory SimPrinter::GetCassetteMemory() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_cassetteMemory;
}

void SimPrinter::SetCassetteMemory(const CassetteMemory& memory) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_cassetteMemory = memory;
}

void SimPrinter::SetSku(const std::string& sku) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (size_t i = 0; i < 7; ++i) {
        m_cassetteMemory[1 + i] = i < sku.size() ? static_cast<uint8_t>(sku[i]) : uint8_t(' ');
    }
}

void SimPrinter::SetCassetteMemoryReadable(bool readable) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_cassetteMemoryReadable = readable;
}

void SimPrinter::SetCompletionBusyPolls(uint32_t polls) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_completionBusyPolls = polls;
}

void SimPrinter::SetUpdateBusyReports(uint32_t reports) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_updater.SetBusyReports(reports);
}

void SimPrinter::SetUpdateBusyDuration(std::chrono::milliseconds duration) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_updater.SetBusyDuration(duration);
}

void SimPrinter::SetUpdaterBusy(uint32_t reports) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_updater.ForceBusy(reports);
}

bool SimPrinter::UpdaterBusy() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_updater.Busy(Now());
}

void SimPrinter::SetRebootDelay(std::chrono::milliseconds delay) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_options.rebootDelay = delay;
}

void SimPrinter::InjectFault(Fault fault) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (fault.kind == FaultKind::disconnectAfterBytes) {
        uint64_t count = fault.byteCount;
        m_disconnect = DisconnectPlan{std::move(fault), count};
    } else {
        m_faults.Add(std::move(fault));
    }
}

void SimPrinter::ClearFaults() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_faults.Clear();
    m_disconnect.reset();
}

std::vector<Fault> SimPrinter::ArmedFaults() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    std::vector<Fault> faults = m_faults.Armed();
    if (m_disconnect) {
        faults.push_back(m_disconnect->fault);
    }
    return faults;
}

std::optional<std::vector<uint8_t>> SimPrinter::ReadFile(const std::string& path) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_files.ReadFile(path);
}

void SimPrinter::WriteFile(const std::string& path, std::vector<uint8_t> data, bool readOnly) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_files.WriteFile(path, std::move(data), readOnly);
}

void SimPrinter::AddFolder(const std::string& path) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_files.AddFolder(path);
}

bool SimPrinter::RemoveFile(const std::string& path) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_files.Remove(path);
}

void SimPrinter::SetReadOnly(const std::string& path, bool readOnly) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_files.SetReadOnly(path, readOnly);
}

std::vector<FileInfo> SimPrinter::Files() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_files.Files();
}

void SimPrinter::SetDiskCapacity(uint64_t bytes) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_files.SetCapacity(bytes);
}

uint64_t SimPrinter::DiskCapacity() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_files.Capacity();
}

uint64_t SimPrinter::DiskUsed() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_files.Used();
}

std::vector<RequestRecord> SimPrinter::Requests() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return std::vector<RequestRecord>(m_requests.begin(), m_requests.end());
}

size_t SimPrinter::CountRequests(RequestKind kind) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<size_t>(std::count_if(m_requests.begin(), m_requests.end(),
                                             [kind](const RequestRecord& r) { return r.kind == kind; }));
}

void SimPrinter::ClearRequests() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_requests.clear();
}

std::vector<FramingViolation> SimPrinter::Violations() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_violations;
}

void SimPrinter::ClearViolations() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_violations.clear();
}

void SimPrinter::SetTrace(TraceSink sink) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_trace = std::move(sink);
}

} // namespace vela::sim
