// Protocol half of PrinterDeviceBase: framing, completion poll, control orders, status and
// device information. Included by PrinterDeviceBase.h only.
#pragma once

#include "common/Exception.h"
#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/Pause.h"
#include "kom/protocol/MessageHeader.h"
#include "kom/protocol/ReplyParsers.h"

#include <algorithm>
#include <string>

namespace vela::kom {

template <class T, class S, class C>
PrinterDeviceBase<T, S, C>::PrinterDeviceBase(const ConnectedPrinter& printer) : m_printer(printer) {
    // Characters a printer path or file name must not hold, in the order they are searched for.
    for (const wchar_t* c : {L"\\", L"?", L"*", L":", L"|", L"\"", L"<", L">", L","}) {
        m_invalidPathChars.emplace_back(c);
    }
}

template <class T, class S, class C> PrinterDeviceBase<T, S, C>::~PrinterDeviceBase() = default;

#define QRV_PROTOCOL_TODO(name)                                                                              \
    vela::common::LogAndThrow(                                                                               \
        vela::common::NotImplementedException(L"not yet built", L"PrinterDevice::" name "()"))

template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetPrinterType() {
    QRV_PROTOCOL_TODO(L"GetPrinterType");
}
template <class T, class S, class C> PrinterStatus PrinterDeviceBase<T, S, C>::GetStatus() {
    QRV_PROTOCOL_TODO(L"GetStatus");
}
template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetSkuNumber() {
    QRV_PROTOCOL_TODO(L"GetSkuNumber");
}
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::ResumePrinting() {
    QRV_PROTOCOL_TODO(L"ResumePrinting");
}
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::ClearError() {
    QRV_PROTOCOL_TODO(L"ClearError");
}
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::ClearCutterJamError() {
    QRV_PROTOCOL_TODO(L"ClearCutterJamError");
}
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::FeedForward() {
    QRV_PROTOCOL_TODO(L"FeedForward");
}
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::CutLabel() {
    QRV_PROTOCOL_TODO(L"CutLabel");
}
template <class T, class S, class C> PrinterVersion PrinterDeviceBase<T, S, C>::GetPrinterVersion() {
    QRV_PROTOCOL_TODO(L"GetPrinterVersion");
}
template <class T, class S, class C> DeviceManagerStatus PrinterDeviceBase<T, S, C>::GetUpdateStatusReport() {
    QRV_PROTOCOL_TODO(L"GetUpdateStatusReport");
}
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::Reboot() {
    QRV_PROTOCOL_TODO(L"Reboot");
}
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::StartUpdate() {
    QRV_PROTOCOL_TODO(L"StartUpdate");
}
template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetPrinterModel() {
    QRV_PROTOCOL_TODO(L"GetPrinterModel");
}
template <class T, class S, class C>
int32_t PrinterDeviceBase<T, S, C>::StartMonitor(std::function<void(int32_t)>) {
    return -1;
}
template <class T, class S, class C>
int32_t PrinterDeviceBase<T, S, C>::StartMonitorExclusive(std::function<void(int32_t)>) {
    return -1;
}
template <class T, class S, class C> std::vector<uint8_t> PrinterDeviceBase<T, S, C>::GetStatusInternal() {
    QRV_PROTOCOL_TODO(L"GetStatusInternal");
}
template <class T, class S, class C> bool PrinterDeviceBase<T, S, C>::IsCassettePresent() {
    QRV_PROTOCOL_TODO(L"IsCassettePresent");
}
template <class T, class S, class C> EepromData PrinterDeviceBase<T, S, C>::GetCassetteEepromData() {
    QRV_PROTOCOL_TODO(L"GetCassetteEepromData");
}
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::PrintControlCommand(uint8_t) {
    QRV_PROTOCOL_TODO(L"PrintControlCommand");
}
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::DeviceControlCommand(uint8_t) {
    QRV_PROTOCOL_TODO(L"DeviceControlCommand");
}

#undef QRV_PROTOCOL_TODO

namespace detail {

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
        vela::common::LogAndThrow(QRVException(L"could not write " + std::to_wstring(bytes.size()) +
                                                   L" bytes; only " + std::to_wstring(written) +
                                                   L" bytes were written",
                                               L"PrinterDevice::WriteData()"));
    }
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
    return CheckedReplyPayloadLength(header);
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
    request.push_back(0x01);
    request.push_back(0x80);

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
