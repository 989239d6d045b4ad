#include "system/UsbPrinterTestbed.h"

#include <umockdev.h>

#include <sys/stat.h>

#include <vector>

namespace vela::test {

namespace {

// The null-ended list umockdev takes, without the pairs that have no value.
std::vector<gchar*> PairList(std::vector<std::string>& pairs) {
    std::vector<gchar*> list;
    for (size_t i = 0; i + 1 < pairs.size(); i += 2) {
        if (!pairs[i + 1].empty()) {
            list.push_back(pairs[i].data());
            list.push_back(pairs[i + 1].data());
        }
    }
    list.push_back(nullptr);
    return list;
}

} // namespace

UsbPrinterTestbed::UsbPrinterTestbed() : m_testbed(umockdev_testbed_new()) {}

UsbPrinterTestbed::~UsbPrinterTestbed() {
    g_object_unref(m_testbed);
}

bool UsbPrinterTestbed::Active(std::string& why) const {
    // The testbed's root only shows up as /sys when the preload redirects the process's file access.
    gchar* sys = umockdev_testbed_get_sys_dir(m_testbed);
    struct stat real = {};
    struct stat seen = {};
    bool redirected = ::stat(sys, &real) == 0 && ::stat("/sys", &seen) == 0 && real.st_ino == seen.st_ino &&
                      real.st_dev == seen.st_dev;
    g_free(sys);
    if (!redirected) {
        why = "umockdev's preload library (missing?) does not redirect /sys in this process";
    }
    return redirected;
}

std::string UsbPrinterTestbed::AddDevice(const std::string& subsystem, const std::string& name,
                                         const std::string& parentSyspath, const std::string& devnode,
                                         std::initializer_list<std::string> attributes,
                                         const std::string& devtype) {
    std::vector<std::string> attributeTexts(attributes);
    std::vector<std::string> propertyTexts{"DEVTYPE", devtype, "DEVNAME", devnode};
    std::vector<gchar*> attributeList = PairList(attributeTexts);
    std::vector<gchar*> propertyList = PairList(propertyTexts);
    gchar* syspath = umockdev_testbed_add_devicev(m_testbed, subsystem.c_str(), name.c_str(),
                                                  parentSyspath.empty() ? nullptr : parentSyspath.c_str(),
                                                  attributeList.data(), propertyList.data());
    std::string result = syspath != nullptr ? syspath : "";
    g_free(syspath);
    return result;
}

std::string UsbPrinterTestbed::Add(const MockUsbPrinter& printer) {
    std::string usb =
        AddDevice("usb", printer.port, "", "",
                  {"idVendor", printer.idVendor, "idProduct", printer.idProduct, "serial", printer.serial,
                   "manufacturer", printer.manufacturer, "product", printer.product},
                  "usb_device");
    std::string printerInterface =
        AddDevice("usb", printer.port + ":1.0", usb, "",
                  {"bInterfaceClass", "07", "ieee1284_id", printer.ieee1284Id}, "usb_interface");
    if (printer.lp >= 0) {
        AddDevice("usbmisc", "lp" + std::to_string(printer.lp), printerInterface,
                  "/dev/usb/lp" + std::to_string(printer.lp), {});
    }
    if (printer.hidraw >= 0) {
        std::string hidInterface =
            AddDevice("usb", printer.port + ":1.1", usb, "", {"bInterfaceClass", "03"}, "usb_interface");
        std::string hid = AddDevice("hid",
                                    "0003:" + printer.idVendor + ":" + printer.idProduct + ".000" +
                                        std::to_string(printer.hidraw + 1),
                                    hidInterface, "", {});
        AddDevice("hidraw", "hidraw" + std::to_string(printer.hidraw), hid,
                  "/dev/hidraw" + std::to_string(printer.hidraw), {});
    }
    return usb;
}

} // namespace vela::test
