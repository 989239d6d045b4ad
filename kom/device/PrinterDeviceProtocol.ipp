// Protocol half of PrinterDeviceBase: framing, completion poll, control orders, status and
// device information.
#pragma once

#include "kom/device/PrinterDeviceBase.h"

#include "common/Exception.h"
#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/Pause.h"
#include "common/UsbPrintDevice.h"
#include "kom/device/CorruptReplyHeader.h"
#include "kom/protocol/MessageHeader.h"
#include "kom/protocol/ReplyParsers.h"
#include "kom/protocol/RequestCodes.h"

#include <algorithm>
#include <array>
#include <string>

namespace vela::kom {

template <class T, class S, class C>
PrinterDeviceBase<T, S, C>::PrinterDeviceBase(const ConnectedPrinter& printer) : m_printer(printer) {
    vela::common::Log::LogInfo(L"PrinterDevice::PrinterDevice()");
    // Characters a printer path or file name must not hold, in the order they are searched for.
    for (const wchar_t* c : {L"\\", L"?", L"*", L":", L"|", L"\"", L"<", L">", L","}) {
        m_invalidPathChars.emplace_back(c);
    }
}

template <class T, class S, class C> PrinterDeviceBase<T, S, C>::~PrinterDeviceBase() {
    try {
        vela::common::Log::LogInfo(L"PrinterDevice::~PrinterDevice()");
        m_progress = nullptr;
        m_invalidPathChars.clear();
    } catch (...) {
        try {
            vela::common::Log::LogWarning(L"PrinterDevice::~PrinterDevice(): caught exception");
        } catch (...) {
            // Nothing is left to report to: a destructor must not throw.
        }
    }
}

// ---- printer identity (answered locally) -------------------------------------------------------

template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetPrinterType() {
    vela::common::Log::LogInfo(L"PrinterDevice::GetPrinterType()");
    return L"Not implemented yet!";
}

template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetPrinterModel() {
    vela::common::Log::LogInfo(L"PrinterDevice::GetPrinterModel()");
    return L"Not implemented yet!";
}

template <class T, class S, class C>
int32_t PrinterDeviceBase<T, S, C>::StartMonitor(std::function<void(int32_t)>) {
    return -1;
}

template <class T, class S, class C>
int32_t PrinterDeviceBase<T, S, C>::StartMonitorExclusive(std::function<void(int32_t)>) {
    return -1;
}

// ---- control orders ----------------------------------------------------------------------------

template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::DeviceControlCommand(uint8_t code) {
    S lock(m_printer);
    vela::common::Log::LogInfo(L"PrinterDevice::DeviceControlCommand()");
    const std::unique_ptr<T> transport = OpenDevice();
    std::vector<uint8_t> request = MessageHeader::ForRequest(MessageHeader::kUnitDevice, 3).Serialize();
    request.push_back(RequestCode::kRequestMarker);
    request.push_back(RequestCode::kDeviceControl);
    request.push_back(code);
    // No reply is awaited: a restart order would take the answer down with the printer.
    WriteData(*transport, request);
}

template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::PrintControlCommand(uint8_t code) {
    constexpr uint32_t kSettleMs = 5000;
    const wchar_t* const origin = L"PrinterDevice::PrintControlCommand()";
    S lock(m_printer);
    vela::common::Log::LogInfo(origin);
    const std::unique_ptr<T> transport = OpenDevice();
    std::vector<uint8_t> request = MessageHeader::ForRequest(MessageHeader::kUnitPrinter, 5).Serialize();
    request.push_back(RequestCode::kRequestMarker);
    request.push_back(RequestCode::kPrintControl);
    request.push_back(code);
    request.push_back(0x00);
    request.push_back(0x00);
    WriteData(*transport, request);

    // The acknowledgement says nothing we act on; it is read only to leave the channel clean.
    std::vector<uint8_t> acknowledgement;
    ReadData(*transport, acknowledgement, MessageHeader::kSize);
    const uint32_t payloadLength = AnnouncedPayloadLength(acknowledgement, origin);
    if (payloadLength > 0) {
        // Asking the channel for zero bytes would wait out its time-out for a message that
        // never comes, so an empty acknowledgement is left at its header.
        ReadData(*transport, acknowledgement, payloadLength);
    }
    // The print engine needs this long to carry the order out; holding the lock and the channel
    // meanwhile keeps every other operation, of any process, away from the printer.
    vela::common::Pause(kSettleMs);
}

template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::ResumePrinting() {
    vela::common::Log::LogInfo(L"PrinterDevice::ResumePrinting()");
    PrintControlCommand(PrintOrder::kResumePrinting);
}

template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::ClearError() {
    vela::common::Log::LogInfo(L"PrinterDevice::ClearError()");
    PrintControlCommand(PrintOrder::kClearError);
}

template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::ClearCutterJamError() {
    vela::common::Log::LogInfo(L"PrinterDevice::ClearCutterJamError()");
    PrintControlCommand(PrintOrder::kClearCutterJamError);
}

template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::FeedForward() {
    vela::common::Log::LogInfo(L"PrinterDevice::FeedForward()");
    PrintControlCommand(PrintOrder::kFeedForward);
}

template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::CutLabel() {
    vela::common::Log::LogInfo(L"PrinterDevice::CutLabel()");
    PrintControlCommand(PrintOrder::kCutLabel);
}

template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::Reboot() {
    vela::common::Log::LogInfo(L"PrinterDevice::Reboot()");
    DeviceControlCommand(DeviceOrder::kReboot);
}

template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::StartUpdate() {
    vela::common::Log::LogInfo(L"PrinterDevice::StartUpdate()");
    DeviceControlCommand(DeviceOrder::kStartUpdate);
}

// ---- status ------------------------------------------------------------------------------------

template <class T, class S, class C> std::vector<uint8_t> PrinterDeviceBase<T, S, C>::GetStatusInternal() {
    S lock(m_printer);
    vela::common::Log::LogInfo(kOriginGetStatusInternal);
    const std::unique_ptr<T> transport = OpenDevice();
    std::vector<uint8_t> request = MessageHeader::ForRequest(MessageHeader::kUnitPrinter, 2).Serialize();
    request.push_back(RequestCode::kRequestMarker);
    request.push_back(RequestCode::kQuery);
    return RepeatingOnCorruptHeader(
        *transport, kOriginGetStatusInternal, [&](vela::common::IUsbPrintDevice& channel) {
            WriteData(channel, request);
            const uint32_t payloadLength = GetReplyDataLength(channel);
            std::vector<uint8_t> payload;
            ReadData(channel, payload, payloadLength);
            if (!IsStatusReplySize(payloadLength)) {
                PergeQueue(channel);
                vela::common::LogAndThrow(ReplyException(L"'Wrong reply size'", kOriginGetStatusInternal));
            }
            return ParseStatusReply(payload);
        });
}

template <class T, class S, class C> PrinterStatus PrinterDeviceBase<T, S, C>::GetStatus() {
    vela::common::Log::LogInfo(L"PrinterDevice::GetStatus()");
    return PrinterStatus(GetStatusInternal());
}

template <class T, class S, class C> bool PrinterDeviceBase<T, S, C>::IsCassettePresent() {
    vela::common::Log::LogInfo(L"PrinterDevice::IsCassettePresent()");
    const cassette_presence_t presence = PrinterStatus(GetStatusInternal()).GetCassettePresence();
    return presence == cassette_present || presence == cassette_present_unverified;
}

// ---- device information ------------------------------------------------------------------------

template <class T, class S, class C>
std::vector<uint8_t>
PrinterDeviceBase<T, S, C>::ExchangeInformationQuery(vela::common::IUsbPrintDevice& transport, uint32_t unit,
                                                     uint8_t command, bool (*isValidSize)(uint32_t),
                                                     const wchar_t* origin) {
    std::vector<uint8_t> request = MessageHeader::ForRequest(unit, 2).Serialize();
    request.push_back(RequestCode::kRequestMarker);
    request.push_back(command);
    WriteData(transport, request);

    std::vector<uint8_t> header;
    ReadData(transport, header, MessageHeader::kSize);
    const uint32_t payloadLength = AnnouncedPayloadLength(header, origin);
    std::vector<uint8_t> payload;
    ReadData(transport, payload, payloadLength);
    if (!isValidSize(payloadLength)) {
        PergeQueue(transport);
        vela::common::LogAndThrow(ReplyException(L"'Wrong reply size'", origin));
    }
    return payload;
}

template <class T, class S, class C> PrinterVersion PrinterDeviceBase<T, S, C>::GetPrinterVersion() {
    S lock(m_printer);
    vela::common::Log::LogInfo(kOriginGetPrinterVersion);
    const std::unique_ptr<T> transport = OpenDevice();
    const std::vector<uint8_t> payload =
        ExchangeInformationQuery(*transport, MessageHeader::kUnitVersion, RequestCode::kVersion,
                                 IsVersionReplySize, kOriginGetPrinterVersion);
    const std::array<std::string, PrinterVersion::kTextCount> texts = ParseVersionReply(payload);
    std::array<std::wstring, PrinterVersion::kTextCount> wide;
    for (size_t i = 0; i < texts.size(); ++i) {
        wide[i] = C::FromUtf8(texts[i]);
    }
    return PrinterVersion(std::move(wide));
}

template <class T, class S, class C> EepromData PrinterDeviceBase<T, S, C>::GetCassetteEepromData() {
    S lock(m_printer);
    vela::common::Log::LogInfo(kOriginGetCassetteEepromData);
    const std::unique_ptr<T> transport = OpenDevice();
    const std::vector<uint8_t> payload =
        ExchangeInformationQuery(*transport, MessageHeader::kUnitPrinter, RequestCode::kCassetteMemory,
                                 IsCassetteMemoryReplySize, kOriginGetCassetteEepromData);
    return ParseCassetteMemoryReply(payload);
}

template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetSkuNumber() {
    const wchar_t* const origin = L"PrinterDevice::GetSkuNumber()";
    vela::common::Log::LogInfo(origin);
    // Two transactions, each taking the lock on its own (the lock is not re-entrant).
    if (!IsCassettePresent()) {
        vela::common::LogAndThrow(NoCassettePresentException(L"'No cassette present'", origin));
    }
    return C::FromUtf8(SkuFromCassetteMemory(GetCassetteEepromData()));
}

template <class T, class S, class C> DeviceManagerStatus PrinterDeviceBase<T, S, C>::GetUpdateStatusReport() {
    S lock(m_printer);
    vela::common::Log::LogInfo(kOriginGetUpdateStatusReport);
    const std::unique_ptr<T> transport = OpenDevice();
    const std::vector<uint8_t> payload =
        ExchangeInformationQuery(*transport, MessageHeader::kUnitDevice, RequestCode::kUpdateStatus,
                                 IsUpdateStatusReplySize, kOriginGetUpdateStatusReport);
    return ParseUpdateStatusReply(payload);
}

// ---- framing -----------------------------------------------------------------------------------

namespace detail {

// Replies held whole (status, versions, listings...) are far shorter than this; file data is
// read in slices well below it.
constexpr uint32_t kLargestHeldReply = 16u << 20;
constexpr uint32_t kDropSlice = 256u * 1024;

// Appends `chunk` to `buffer`, which is being filled up to `count` bytes. Capacity grows with
// the bytes that actually arrived (at most doubling, never beyond `count`), so a length that a
// printer merely announces cannot allocate memory before its bytes come.
inline void AppendReceived(std::vector<uint8_t>& buffer, const std::vector<uint8_t>& chunk, uint32_t count) {
    const size_t needed = buffer.size() + chunk.size();
    if (needed > buffer.capacity()) {
        const size_t doubled = std::max(needed, buffer.capacity() * 2);
        buffer.reserve(std::max(needed, std::min<size_t>(doubled, count)));
    }
    buffer.insert(buffer.end(), chunk.begin(), chunk.end());
}

} // namespace detail

template <class T, class S, class C> std::unique_ptr<T> PrinterDeviceBase<T, S, C>::OpenDevice() {
    vela::common::Log::LogInfo(L"PrinterDevice::OpenDevice()");
    return std::make_unique<T>(m_printer.devicePath);
}

template <class T, class S, class C>
void PrinterDeviceBase<T, S, C>::WriteData(vela::common::IUsbPrintDevice& transport,
                                           const std::vector<uint8_t>& bytes) {
    vela::common::Log::LogInfo(L"PrinterDevice::WriteData()");
    const uint32_t written = transport.Write(bytes);
    if (written != bytes.size()) {
        ThrowShortWrite(bytes.size(), written);
    }
}

template <class T, class S, class C>
void PrinterDeviceBase<T, S, C>::ThrowShortWrite(uint64_t expected, uint64_t written) {
    vela::common::LogAndThrow(QRVException(L"could not write " + std::to_wstring(expected) +
                                               L" bytes; only " + std::to_wstring(written) +
                                               L" bytes were written",
                                           L"PrinterDevice::WriteData()"));
}

template <class T, class S, class C>
void PrinterDeviceBase<T, S, C>::ReadData(vela::common::IUsbPrintDevice& transport,
                                          std::vector<uint8_t>& buffer, uint32_t count) {
    ReadData(transport, buffer, count, ProgressCallback());
}

template <class T, class S, class C>
void PrinterDeviceBase<T, S, C>::ReadData(vela::common::IUsbPrintDevice& transport,
                                          std::vector<uint8_t>& buffer, uint32_t count,
                                          const ProgressCallback& progress) {
    vela::common::Log::LogInfo(L"PrinterDevice::ReadData()");
    buffer.clear();
    if (count > detail::kLargestHeldReply) {
        // No request has a reply this long held whole (file data moves in slices): it is most
        // likely the late reply to a request an earlier process gave up on. It is read and
        // dropped, so that memory stays bounded and the channel in step, and fails as a reply of
        // the wrong size - one that a transaction which may be repeated drains and tries again.
        for (uint64_t left = count; left > 0;) {
            const uint32_t ask = static_cast<uint32_t>(std::min<uint64_t>(left, detail::kDropSlice));
            left -= transport.Read(ask).size();
        }
        vela::common::LogAndThrow(CorruptReplyHeader(L"'Wrong reply size'", L"PrinterDevice::ReadData()"));
    }
    // The first Read happens even for a count of 0; only a transport exception ends a short reply.
    do {
        const std::vector<uint8_t> chunk = transport.Read(count - static_cast<uint32_t>(buffer.size()));
        if (chunk.empty()) {
            continue;
        }
        detail::AppendReceived(buffer, chunk, count);
        if (progress) {
            progress(buffer.size(), count);
        }
    } while (buffer.size() < count);
}

template <class T, class S, class C>
uint32_t PrinterDeviceBase<T, S, C>::GetReplyDataLength(vela::common::IUsbPrintDevice& transport) {
    vela::common::Log::LogInfo(L"PrinterDevice::GetReplyDataLength()");
    std::vector<uint8_t> header;
    bool failedOnce = false;
    try {
        ReadData(transport, header, MessageHeader::kSize);
    } catch (const vela::common::UsbPrintDeviceException&) {
        // The transport has logged the failure already; a reply that was late once is read again.
        failedOnce = true;
    }
    if (failedOnce) {
        ReadData(transport, header, MessageHeader::kSize);
    }
    if (!header.empty() && header[0] != MessageHeader::kStartByte) {
        vela::common::LogAndThrow(CorruptReplyHeader(L"'Header corrupted'", kOriginGetReplyDataLength));
    }
    return CheckedReplyPayloadLength(header);
}

template <class T, class S, class C>
template <class Exchange>
auto PrinterDeviceBase<T, S, C>::RepeatingOnCorruptHeader(vela::common::IUsbPrintDevice& transport,
                                                          const wchar_t* origin, Exchange&& exchange)
    -> decltype(exchange(transport)) {
    using vela::common::UsbPrintDevice;
    try {
        return exchange(transport);
    } catch (const CorruptReplyHeader&) {
        // The seven bytes taken for a header were stale too.
        const uint64_t dropped = MessageHeader::kSize + transport.DiscardInput(UsbPrintDevice::kStaleQuietMs,
                                                                               UsbPrintDevice::kStaleLimitMs);
        vela::common::Log::LogWarning(std::wstring(origin) + L": discarded %u stale bytes",
                                      static_cast<uint32_t>(dropped));
    }
    return exchange(transport);
}

template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::BeginCancellableTransfer() {
    if (m_cancel != nullptr) {
        m_cancel->store(false);
    }
}

template <class T, class S, class C>
void PrinterDeviceBase<T, S, C>::ThrowCancelled(const std::wstring& source) const {
    vela::common::LogAndThrow(vela::common::OperationCancelledException(L"'Transfer cancelled'", source));
}

template <class T, class S, class C>
void PrinterDeviceBase<T, S, C>::PergeQueue(vela::common::IUsbPrintDevice& transport) {
    vela::common::Log::LogInfo(L"PrinterDevice::PergeQueue()");
    try {
        std::vector<uint8_t> bytes;
        ReadData(transport, bytes, MessageHeader::kSize);
        const uint32_t length = AnnouncedPayloadLength(bytes, L"PrinterDevice::PergeQueue()");
        ReadData(transport, bytes, length);
    } catch (const vela::common::Exception& e) {
        // Purging is clean-up before the caller reports its own error; a silent channel is normal.
        vela::common::Log::LogWarning(L"PrinterDevice::PergeQueue - caught exception %s", e.Message());
    }
}

template <class T, class S, class C>
int32_t PrinterDeviceBase<T, S, C>::WaitForCompletion(vela::common::IUsbPrintDevice& transport) {
    using vela::common::Pause;
    using vela::common::WaitResult;
    vela::common::Log::LogInfo(L"PrinterDevice::WaitForCompletion()");

    // Ticks: a 500 ms wait costs 2, an answer that is not a poll answer costs 1 more. Ten busy
    // answers therefore end the poll at exactly 20 (give up: -1); foreign answers can jump the
    // count to 21 or 22, and a wait that did not simply time out forces 21 - both end with 0.
    constexpr int kTickLimit = 20;
    constexpr int kTickForced = 21;
    constexpr uint32_t kFirstWaitMs = 250;
    constexpr uint32_t kPollWaitMs = 500;
    constexpr uint32_t kCompletionPayloadSize = 5;

    std::vector<uint8_t> request = MessageHeader::ForRequest(MessageHeader::kUnitFileSystem, 2).Serialize();
    request.push_back(RequestCode::kRequestMarker);
    request.push_back(RequestCode::kQuery);

    if (Pause(kFirstWaitMs) == WaitResult::signalled) {
        return 0;
    }
    int ticks = 0;
    bool signalled = false;
    std::vector<uint8_t> payload;
    for (;;) {
        WriteData(transport, request);
        const uint32_t length = GetReplyDataLength(transport);
        ReadData(transport, payload, length);
        const CompletionReply reply =
            length == kCompletionPayloadSize ? ParseCompletionReply(payload) : CompletionReply{};
        if (reply.state == CompletionReply::State::finished) {
            return CompletionResult(reply.result);
        }
        if (reply.state == CompletionReply::State::unexpected) {
            ticks += 1;
        }
        switch (Pause(kPollWaitMs)) {
        case WaitResult::timeout:
            ticks += 2;
            break;
        case WaitResult::signalled:
            signalled = true;
            ticks = kTickForced;
            break;
        default:
            ticks = kTickForced;
            break;
        }
        if (ticks >= kTickLimit) {
            return ticks == kTickLimit && !signalled ? -1 : 0;
        }
    }
}

} // namespace vela::kom
