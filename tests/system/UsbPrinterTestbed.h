#pragma once

#include <string>

typedef struct _UMockdevTestbed UMockdevTestbed;

namespace vela::test {

// A USB printer as a sysfs tree: usb_device -> interface 0 (usblp, lpN) and, optionally,
// interface 1 -> hid -> hidrawN. Empty texts leave the attribute out.
struct MockUsbPrinter {
    std::string port = "1-1"; // the usb_device's sysname (its port path)
    std::string idVendor = "0922";
    std::string idProduct = "0025";
    std::string serial = "SIM0001";
    std::string manufacturer = "VELA";
    std::string product = "VELA QRV 410";
    std::string ieee1284Id = "MFG:VELA;MDL:QRV 410;CMD:QRV;CLS:PRINTER;SN:SIM0001;";
    int lp = 0;      // /dev/usb/lpN; -1: the printer interface has no node
    int hidraw = -1; // /dev/hidrawN; -1: no HID interface
};

// A udev device tree that libudev in this process sees instead of the real one, through
// umockdev's preload library. The process must run under umockdev-wrapper (main() re-executes
// itself through it). One testbed at a time; removed with its files at destruction.
class UsbPrinterTestbed {
public:
    UsbPrinterTestbed();
    ~UsbPrinterTestbed();
    UsbPrinterTestbed(const UsbPrinterTestbed&) = delete;
    UsbPrinterTestbed& operator=(const UsbPrinterTestbed&) = delete;

    // False (with the reason) when sysfs is not redirected: no preload, or umockdev missing.
    bool Active(std::string& why) const;

    // Adds the printer; returns the syspath of its usb_device.
    std::string Add(const MockUsbPrinter& printer);
    // Adds a device of `subsystem` under `parentSyspath` (or the root) with a device node and
    // the given attributes (name, value, name, value, ...).
    std::string AddDevice(const std::string& subsystem, const std::string& name,
                          const std::string& parentSyspath, const std::string& devnode,
                          std::initializer_list<std::string> attributes,
                          const std::string& devtype = std::string());

private:
    UMockdevTestbed* m_testbed;
};

} // namespace vela::test
