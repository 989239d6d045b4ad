#pragma once

#include <string>

typedef struct _UMockdevTestbed UMockdevTestbed;

namespace vela::test {

// A USB printer as a sysfs tree: usb_device -> interface 0 (lpN) and, optionally, interface 1 ->
// hid -> hidrawN. Empty texts leave the attribute out.
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

// A udev device tree that libudev in this process sees instead of the real one (umockdev's
// preload, see main.cpp). One testbed at a time.
class UsbPrinterTestbed {
public:
    UsbPrinterTestbed();
    ~UsbPrinterTestbed();
    UsbPrinterTestbed(const UsbPrinterTestbed&) = delete;
    UsbPrinterTestbed& operator=(const UsbPrinterTestbed&) = delete;

    // False (with the reason) when sysfs is not redirected: no preload, or umockdev missing.
    bool Active(std::string& why) const;

    // Returns the syspath of its usb_device.
    std::string Add(const MockUsbPrinter& printer);
    // A device under `parentSyspath` (or the root); attributes are name, value, name, value, ...
    std::string AddDevice(const std::string& subsystem, const std::string& name,
                          const std::string& parentSyspath, const std::string& devnode,
                          std::initializer_list<std::string> attributes,
                          const std::string& devtype = std::string());

private:
    UMockdevTestbed* m_testbed;
};

} // namespace vela::test
