#include "kom/discovery/linux/UdevPrinterScanner.h"

#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/SystemError.h"
#include "kom/discovery/QRVPrintersBase.h"

#include <libudev.h>

#include <cerrno>
#include <cstring>
#include <memory>

namespace vela::kom {

namespace {

struct UdevDeleter {
    void operator()(udev* p) const { udev_unref(p); }
    void operator()(udev_enumerate* p) const { udev_enumerate_unref(p); }
    void operator()(udev_device* p) const { udev_device_unref(p); }
};
using Udev = std::unique_ptr<udev, UdevDeleter>;
using UdevEnumerate = std::unique_ptr<udev_enumerate, UdevDeleter>;
using UdevDevice = std::unique_ptr<udev_device, UdevDeleter>;

std::string Text(const char* value) {
    return value == nullptr ? std::string() : std::string(value);
}

// A USB id attribute: 1 to 4 hexadecimal digits, either letter case.
bool ParseUsbId(const char* text, uint32_t& id) {
    if (text == nullptr || *text == 0) {
        return false;
    }
    uint32_t value = 0;
    size_t digits = 0;
    for (const char* p = text; *p != 0; ++p, ++digits) {
        char c = *p;
        int nibble = c >= '0' && c <= '9'   ? c - '0'
                     : c >= 'a' && c <= 'f' ? c - 'a' + 10
                     : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                            : -1;
        if (nibble < 0 || digits == 4) {
            return false;
        }
        value = value * 16 + static_cast<uint32_t>(nibble);
    }
    id = value;
    return true;
}

class Scanner {
public:
    Scanner(const QRVPrintersBase& models, ReportFailures report, const std::wstring& origin)
        : m_origin(origin), m_udev(udev_new()), m_models(models), m_report(report) {
        if (!m_udev) {
            common::LogAndThrow(common::Win32Error(errno != 0 ? errno : ENOMEM, m_origin));
        }
    }

    // The printer nodes (usbmisc lp*), the HID nodes and, with `usbDevices`, the USB devices and
    // interfaces, in one enumeration: each enumeration walks every bus and class of /sys, which
    // was most of what naming a printer cost. The printer nodes are taken first, as they come,
    // then the HID nodes, then the USB devices.
    void Scan(bool usbDevices) {
        UdevEnumerate enumerate(udev_enumerate_new(m_udev.get()));
        if (!enumerate) {
            common::LogAndThrow(common::Win32Error(errno != 0 ? errno : ENOMEM, m_origin));
        }
        int result = 0;
        for (const char* subsystem : {"usbmisc", "hidraw", "usb"}) {
            if (usbDevices || std::strcmp(subsystem, "usb") != 0) {
                result =
                    result >= 0 ? udev_enumerate_add_match_subsystem(enumerate.get(), subsystem) : result;
            }
        }
        // A name filter would also drop the USB devices ("1-1", "1-1:1.0"): with them the names
        // are sorted out below.
        if (!usbDevices) {
            for (const char* sysname : {"lp*", "hidraw*"}) {
                result = result >= 0 ? udev_enumerate_add_match_sysname(enumerate.get(), sysname) : result;
            }
        }
        if (result >= 0) {
            result = udev_enumerate_scan_devices(enumerate.get());
        }
        if (result < 0) {
            common::LogAndThrow(common::Win32Error(static_cast<uint32_t>(-result), m_origin));
        }
        std::vector<const char*> hidNodes; // owned by `enumerate`
        std::vector<const char*> usb;
        udev_list_entry* entry = nullptr;
        udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate.get())) {
            const char* syspath = udev_list_entry_get_name(entry);
            const char* slash = std::strrchr(syspath, '/');
            const char* name = slash != nullptr ? slash + 1 : syspath;
            if (std::strncmp(name, "lp", 2) == 0) {
                AddNode(syspath, true);
            } else if (std::strncmp(name, "hidraw", 6) == 0) {
                hidNodes.push_back(syspath);
            } else {
                usb.push_back(syspath); // also other usbmisc nodes (hiddev*), which have no USB type
            }
        }
        for (const char* syspath : hidNodes) {
            AddNode(syspath, false);
        }
        if (usbDevices) {
            AddUsbDevices(usb);
        }
    }

private:
    // Every supported usb_device, and the classes and driver of its interfaces.
    void AddUsbDevices(const std::vector<const char*>& syspaths) {
        std::vector<UdevDevice> interfaces;
        for (const char* syspath : syspaths) {
            UdevDevice device(udev_device_new_from_syspath(m_udev.get(), syspath));
            const char* type = device ? udev_device_get_devtype(device.get()) : nullptr;
            if (type == nullptr) {
                continue;
            }
            uint32_t vendorId = 0;
            uint32_t productId = 0;
            if (std::string(type) == "usb_interface") {
                interfaces.push_back(std::move(device));
            } else if (std::string(type) == "usb_device" &&
                       ParseUsbId(udev_device_get_sysattr_value(device.get(), "idVendor"), vendorId) &&
                       ParseUsbId(udev_device_get_sysattr_value(device.get(), "idProduct"), productId) &&
                       m_models.IsSupported(vendorId, productId)) {
                Entry(device.get(), vendorId, productId);
            }
        }
        for (const UdevDevice& interface : interfaces) {
            udev_device* usb =
                udev_device_get_parent_with_subsystem_devtype(interface.get(), "usb", "usb_device");
            UsbPrinterNodes* printer = usb != nullptr ? Find(Text(udev_device_get_syspath(usb))) : nullptr;
            if (printer == nullptr) {
                continue;
            }
            const std::string interfaceClass =
                Text(udev_device_get_sysattr_value(interface.get(), "bInterfaceClass"));
            if (interfaceClass == "07") {
                printer->hasPrinterInterface = true;
                printer->printerDriver = Text(udev_device_get_driver(interface.get()));
            } else if (interfaceClass == "03") {
                printer->hasHidInterface = true;
            }
        }
        for (UsbPrinterNodes& printer : m_printers) {
            // A printer node or a HID node proves the interface and, for usbmisc lp*, its driver.
            printer.hasPrinterInterface = printer.hasPrinterInterface || !printer.printerNode.empty();
            printer.hasHidInterface = printer.hasHidInterface || !printer.hidNodes.empty();
            if (printer.printerDriver.empty() && !printer.printerNode.empty()) {
                printer.printerDriver = "usblp";
            }
        }
    }

public:
    std::vector<UsbPrinterNodes> TakeResult() { return std::move(m_printers); }

private:
    void AddNode(const char* syspath, bool printerNode) {
        bool report = m_report == ReportFailures::all ||
                      m_report == (printerNode ? ReportFailures::printerNodes : ReportFailures::hidNodes);
        auto reject = [printerNode, report](const std::string& node, const std::string& reason) {
            if (report) {
                common::Log::LogWarning(printerNode ? L"UsbFilter() for '%s' failed: %s"
                                                    : L"HidFilter() for '%s' failed: %s",
                                        node, reason);
            }
        };
        UdevDevice node(udev_device_new_from_syspath(m_udev.get(), syspath));
        if (!node) {
            reject(syspath, "the device has gone");
            return;
        }
        const char* devnode = udev_device_get_devnode(node.get());
        if (devnode == nullptr) {
            reject(syspath, "it has no device node");
            return;
        }
        // Owned by `node`: a parent lives as long as its child.
        udev_device* usb = udev_device_get_parent_with_subsystem_devtype(node.get(), "usb", "usb_device");
        if (usb == nullptr) {
            reject(devnode, "it is not on a USB device");
            return;
        }
        uint32_t vendorId = 0;
        uint32_t productId = 0;
        for (auto [name, id] :
             {std::pair<const char*, uint32_t*>{"idVendor", &vendorId}, {"idProduct", &productId}}) {
            const char* value = udev_device_get_sysattr_value(usb, name);
            if (!ParseUsbId(value, *id)) {
                std::string reason = value == nullptr ? "cannot read " + std::string(name) + " of " +
                                                            udev_device_get_syspath(usb)
                                                      : std::string(name) + " '" + value + "' of " +
                                                            udev_device_get_syspath(usb) + " is not a USB id";
                reject(devnode, reason);
                return;
            }
        }
        if (!m_models.IsSupported(vendorId, productId)) {
            return;
        }
        UsbPrinterNodes& printer = Entry(usb, vendorId, productId);
        if (printerNode) {
            if (printer.printerNode.empty()) {
                printer.printerNode = devnode;
                printer.ieee1284Id = Ieee1284Id(node.get());
            }
        } else {
            printer.hidNodes.push_back(devnode);
        }
    }

    // usblp publishes the device id on the interface it is bound to; the class device offers it
    // through its "device" link on some kernels, so both places are asked.
    static std::string Ieee1284Id(udev_device* node) {
        udev_device* interface = udev_device_get_parent_with_subsystem_devtype(node, "usb", "usb_interface");
        const char* id =
            interface != nullptr ? udev_device_get_sysattr_value(interface, "ieee1284_id") : nullptr;
        if (id == nullptr) {
            id = udev_device_get_sysattr_value(node, "ieee1284_id");
        }
        return Text(id);
    }

    UsbPrinterNodes* Find(const std::string& syspath) {
        for (UsbPrinterNodes& printer : m_printers) {
            if (printer.usbSyspath == syspath) {
                return &printer;
            }
        }
        return nullptr;
    }

    UsbPrinterNodes& Entry(udev_device* usb, uint32_t vendorId, uint32_t productId) {
        std::string syspath = Text(udev_device_get_syspath(usb));
        if (UsbPrinterNodes* known = Find(syspath)) {
            return *known;
        }
        UsbPrinterNodes printer;
        printer.usbSyspath = syspath;
        printer.usbPort = Text(udev_device_get_sysname(usb));
        printer.vendorId = vendorId;
        printer.productId = productId;
        printer.serialNumber = Text(udev_device_get_sysattr_value(usb, "serial"));
        printer.manufacturer = Text(udev_device_get_sysattr_value(usb, "manufacturer"));
        printer.product = Text(udev_device_get_sysattr_value(usb, "product"));
        m_printers.push_back(std::move(printer));
        return m_printers.back();
    }

    std::wstring m_origin;
    Udev m_udev;
    const QRVPrintersBase& m_models;
    ReportFailures m_report;
    std::vector<UsbPrinterNodes> m_printers;
};

} // namespace

std::vector<UsbPrinterNodes> ScanUsbPrinters(const QRVPrintersBase& models, ReportFailures report,
                                             const std::wstring& origin) {
    Scanner scanner(models, report, origin);
    scanner.Scan(report == ReportFailures::all);
    return scanner.TakeResult();
}

} // namespace vela::kom
