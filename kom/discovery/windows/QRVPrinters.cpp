#include "kom/discovery/QRVPrinters.h"

#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/NativeHandle.h"
#include "common/SystemError.h"
#include "common/windows/GetPrinterNameByDeviceInstanceId.h"
#include "kom/discovery/ParseVidPid.h"
#include "kom/discovery/PrintQueueMatcher.h"
#include "kom/discovery/windows/DeviceEnumeration.h"
#include "kom/discovery/windows/DeviceFilters.h"
#include "kom/discovery/windows/DeviceInfoSet.h"

#include <cfgmgr32.h>
// The HID header declares its functions without C linkage.
extern "C" {
#include <hidsdi.h>
}

#include <cwctype>

namespace vela::kom {

using common::Log;
using common::Option;

namespace {

// GUID_DEVINTERFACE_USBPRINT: the interfaces of the USB printer-class driver.
const GUID UsbPrintInterfaceGuid = {
    0x28d78fad, 0x5a12, 0x11d1, {0xae, 0x5b, 0x00, 0x00, 0xf8, 0x03, 0xa8, 0xc2}};
// The Printer setup class: the devices the spooler's queues print to.
const GUID PrinterClassGuid = {0x4d36e979, 0xe325, 0x11ce, {0xbf, 0xc1, 0x08, 0x00, 0x2b, 0xe1, 0x03, 0x18}};

std::wstring DeviceInstanceId(DEVINST node, const std::wstring& context) {
    std::vector<wchar_t> buffer(260 + 1, L'\0'); // one more, so a full-length id stays terminated
    common::ThrowIfConfigurationManagerError(
        static_cast<int32_t>(::CM_Get_Device_IDW(node, buffer.data(), 260, 0)), context);
    return buffer.data();
}

// The queue name of the single printer device found for one USB or HID interface, or None
// after the line that says why there is none.
Option QueueOfPrinterDevice(const std::vector<DeviceEnumInfo>& printerDevices, const wchar_t* interfacePath,
                            const std::wstring& origin) {
    if (printerDevices.empty()) {
        // Worded the same for both entry points.
        Log::LogInfo(
            L"Printers::GetConnectedPrinters(): printerDevice lookup failure for usbDevice %s; seems like "
            L"not enumerated as printer or printer driver is not installed",
            interfacePath);
        return Option::None();
    }
    if (printerDevices.size() > 1) {
        Log::LogWarning(
            origin + L": printerDevice lookup failure for usbDevice %s; expected one printer device but "
                     L"found %i",
            interfacePath, printerDevices.size());
        return Option::None();
    }
    Option name = common::GetPrinterNameByDeviceInstanceId(
        DeviceInstanceId(printerDevices.front().devInfoData.DevInst, origin));
    if (!name.HasValue()) {
        Log::LogWarning(origin + L": printerDevice lookup failure for usbDevice %s; printer device found but "
                                 L"GetPrinterNameByDeviceInstanceId() returned None",
                        interfacePath);
    }
    return name;
}

struct UsbPrinterRow {
    ConnectedPrinter printer;
    DEVINST usbNode;
};

std::vector<UsbPrinterRow> FindUsbPrinters() {
    const std::wstring origin = L"Printers::GetConnectedPrinters()";
    DeviceInfoSet usbPrinters(&UsbPrintInterfaceGuid, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE, origin);
    DeviceInfoSet printerDevices(&PrinterClassGuid, DIGCF_PRESENT, origin);

    std::vector<UsbPrinterRow> rows;
    for (const DeviceEnumInfo& usb :
         EnumDeviceInterfaces(usbPrinters.Get(), UsbPrintInterfaceGuid, UsbFilter)) {
        const wchar_t* path = usb.interfaceDetail->DevicePath;
        Option queue = QueueOfPrinterDevice(
            EnumDevices(printerDevices.Get(), ParentFilter(usb.devInfoData.DevInst)), path, origin);
        if (!queue.HasValue()) {
            continue;
        }
        uint32_t vendorId = 0;
        uint32_t productId = 0;
        ParseVidPid(DeviceInstanceId(usb.devInfoData.DevInst, origin), vendorId, productId);
        rows.push_back({{vendorId, productId, path, queue.Value()}, usb.devInfoData.DevInst});
    }
    return rows;
}

// The serial number of the USB device an interface belongs to: the last part of the instance
// id "USB\VID_0922&PID_0025\<serial>" of the device itself (a composite device's interface
// functions carry "&MI_nn" and hang below it). Windows makes up an id with '&' in it for a
// device without a serial; that gives none. Best effort for listings: never throws.
std::wstring SerialNumberOf(DEVINST node) {
    for (int level = 0; level < 3; ++level) {
        std::vector<wchar_t> buffer(260 + 1, L'\0');
        if (::CM_Get_Device_IDW(node, buffer.data(), 260, 0) != CR_SUCCESS) {
            return std::wstring();
        }
        std::wstring id = buffer.data();
        for (wchar_t& c : id) {
            c = static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c)));
        }
        size_t first = id.find(L'\\');
        size_t second = first == std::wstring::npos ? first : id.find(L'\\', first + 1);
        if (second != std::wstring::npos && id.compare(0, first, L"USB") == 0 &&
            id.substr(first, second - first).find(L"&MI_") == std::wstring::npos) {
            std::wstring serial = std::wstring(buffer.data()).substr(second + 1);
            return serial.find(L'&') == std::wstring::npos ? serial : std::wstring();
        }
        DEVINST parent = 0;
        if (::CM_Get_Parent(&parent, node, 0) != CR_SUCCESS) {
            return std::wstring();
        }
        node = parent;
    }
    return std::wstring();
}

} // namespace

std::vector<ConnectedPrinter> QRVPrinters::FindAttachedPrinters() {
    std::vector<ConnectedPrinter> printers;
    for (UsbPrinterRow& row : FindUsbPrinters()) {
        printers.push_back(std::move(row.printer));
    }
    return printers;
}

std::vector<ConnectedPrinter> QRVPrinters::FindAttachedHidDevices() {
    const std::wstring origin = L"Printers::GetConnectedHidDevices()";
    DeviceInfoSet interfaces(nullptr, DIGCF_PRESENT | DIGCF_ALLCLASSES | DIGCF_DEVICEINTERFACE, origin);
    DeviceInfoSet printerDevices(&PrinterClassGuid, DIGCF_PRESENT, origin);
    GUID hidGuid;
    ::HidD_GetHidGuid(&hidGuid);

    std::vector<ConnectedPrinter> devices;
    for (const DeviceEnumInfo& hid : EnumDeviceInterfaces(interfaces.Get(), hidGuid, HidFilter)) {
        const wchar_t* path = hid.interfaceDetail->DevicePath;
        DEVINST parent = 0;
        DEVINST grandParent = 0;
        common::ThrowIfConfigurationManagerError(
            static_cast<int32_t>(::CM_Get_Parent(&parent, hid.devInfoData.DevInst, 0)), origin);
        common::ThrowIfConfigurationManagerError(
            static_cast<int32_t>(::CM_Get_Parent(&grandParent, parent, 0)), origin);
        Option queue = QueueOfPrinterDevice(EnumDevices(printerDevices.Get(), GrandParentFilter(grandParent)),
                                            path, origin);
        if (!queue.HasValue()) {
            continue;
        }
        common::UniqueHandle handle(
            ::CreateFileW(path, 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0, nullptr));
        common::ThrowIfInvalidHandle(handle.Get(), origin);
        HIDD_ATTRIBUTES attributes{};
        attributes.Size = sizeof(attributes);
        common::ThrowIfFalse(::HidD_GetAttributes(handle.Get(), &attributes) != FALSE, origin);
        devices.push_back({attributes.VendorID, attributes.ProductID, path, queue.Value()});
    }
    return devices;
}

std::vector<DiscoveredPrinter> QRVPrinters::ListAttachedPrinters() {
    std::vector<UsbPrinterRow> printers = FindUsbPrinters();
    std::vector<ConnectedPrinter> hidDevices =
        printers.empty() ? std::vector<ConnectedPrinter>() : FindAttachedHidDevices();
    std::vector<DiscoveredPrinter> rows;
    for (const UsbPrinterRow& printer : printers) {
        DiscoveredPrinter row;
        row.printerName = printer.printer.printerName;
        row.vendorId = printer.printer.vendorId;
        row.productId = printer.printer.productId;
        if (IsSupported(row.vendorId, row.productId)) { // the instance id and the filtered hardware id agree
            row.modelName = GetPrinterHardwareInfo(row.vendorId, row.productId).modelName;
        }
        row.serialNumber = SerialNumberOf(printer.usbNode);
        row.printerPath = printer.printer.devicePath;
        // Both interfaces lead to the same printer device, hence to the same queue.
        for (const ConnectedPrinter& hid : hidDevices) {
            if (hid.printerName == row.printerName) {
                row.hidPath = hid.devicePath;
                break;
            }
        }
        row.hasQueue = true;
        row.hasStatusInterface = !row.hidPath.empty();
        // Windows lists a printer only with its driver bound; its URI is the one the scheduler's
        // USB backend of other systems would write for it.
        row.deviceUri = UsbDeviceUri(row.modelName, row.serialNumber);
        rows.push_back(std::move(row));
    }
    return rows;
}

} // namespace vela::kom
