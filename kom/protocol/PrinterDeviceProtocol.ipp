// Protocol half of PrinterDeviceBase: framing, completion poll, control orders, status and
// device information. Included by PrinterDeviceBase.h only.
#pragma once

#include "common/Exception.h"
#include "common/LogAndThrow.h"

namespace vela::kom {

template <class T, class S, class C>
PrinterDeviceBase<T, S, C>::PrinterDeviceBase(const ConnectedPrinter& printer) : m_printer(printer) {
    // Characters a printer path or file name must not hold, in the order they are searched for.
    for (const wchar_t* c : {L"\\", L"?", L"*", L":", L"|", L"\"", L"<", L">", L","}) {
        m_invalidPathChars.emplace_back(c);
    }
}

template <class T, class S, class C>
PrinterDeviceBase<T, S, C>::~PrinterDeviceBase() = default;

#define QRV_PROTOCOL_TODO(name)                                                                           \
    vela::common::LogAndThrow(vela::common::NotImplementedException(L"not yet built", L"PrinterDevice::" name "()"))

template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetPrinterType() { QRV_PROTOCOL_TODO(L"GetPrinterType"); }
template <class T, class S, class C> PrinterStatus PrinterDeviceBase<T, S, C>::GetStatus() { QRV_PROTOCOL_TODO(L"GetStatus"); }
template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetSkuNumber() { QRV_PROTOCOL_TODO(L"GetSkuNumber"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::ResumePrinting() { QRV_PROTOCOL_TODO(L"ResumePrinting"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::ClearError() { QRV_PROTOCOL_TODO(L"ClearError"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::ClearCutterJamError() { QRV_PROTOCOL_TODO(L"ClearCutterJamError"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::FeedForward() { QRV_PROTOCOL_TODO(L"FeedForward"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::CutLabel() { QRV_PROTOCOL_TODO(L"CutLabel"); }
template <class T, class S, class C> PrinterVersion PrinterDeviceBase<T, S, C>::GetPrinterVersion() { QRV_PROTOCOL_TODO(L"GetPrinterVersion"); }
template <class T, class S, class C> DeviceManagerStatus PrinterDeviceBase<T, S, C>::GetUpdateStatusReport() { QRV_PROTOCOL_TODO(L"GetUpdateStatusReport"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::Reboot() { QRV_PROTOCOL_TODO(L"Reboot"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::StartUpdate() { QRV_PROTOCOL_TODO(L"StartUpdate"); }
template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetPrinterModel() { QRV_PROTOCOL_TODO(L"GetPrinterModel"); }
template <class T, class S, class C> int32_t PrinterDeviceBase<T, S, C>::StartMonitor(std::function<void(int32_t)>) { return -1; }
template <class T, class S, class C> int32_t PrinterDeviceBase<T, S, C>::StartMonitorExclusive(std::function<void(int32_t)>) { return -1; }
template <class T, class S, class C> std::vector<uint8_t> PrinterDeviceBase<T, S, C>::GetStatusInternal() { QRV_PROTOCOL_TODO(L"GetStatusInternal"); }
template <class T, class S, class C> bool PrinterDeviceBase<T, S, C>::IsCassettePresent() { QRV_PROTOCOL_TODO(L"IsCassettePresent"); }
template <class T, class S, class C> EepromData PrinterDeviceBase<T, S, C>::GetCassetteEepromData() { QRV_PROTOCOL_TODO(L"GetCassetteEepromData"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::PrintControlCommand(uint8_t) { QRV_PROTOCOL_TODO(L"PrintControlCommand"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::DeviceControlCommand(uint8_t) { QRV_PROTOCOL_TODO(L"DeviceControlCommand"); }
template <class T, class S, class C> uint32_t PrinterDeviceBase<T, S, C>::GetReplyDataLength(vela::common::IUsbPrintDevice&) { QRV_PROTOCOL_TODO(L"GetReplyDataLength"); }
template <class T, class S, class C> std::unique_ptr<T> PrinterDeviceBase<T, S, C>::OpenDevice() { return std::make_unique<T>(m_printer.devicePath); }
template <class T, class S, class C> int32_t PrinterDeviceBase<T, S, C>::WaitForCompletion(vela::common::IUsbPrintDevice&) { QRV_PROTOCOL_TODO(L"WaitForCompletion"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::WriteData(vela::common::IUsbPrintDevice&, const std::vector<uint8_t>&) { QRV_PROTOCOL_TODO(L"WriteData"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::ReadData(vela::common::IUsbPrintDevice&, std::vector<uint8_t>&, uint32_t) { QRV_PROTOCOL_TODO(L"ReadData"); }
template <class T, class S, class C> void PrinterDeviceBase<T, S, C>::PergeQueue(vela::common::IUsbPrintDevice&) { QRV_PROTOCOL_TODO(L"PergeQueue"); }

#undef QRV_PROTOCOL_TODO

} // namespace vela::kom
