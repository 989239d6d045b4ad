#include "DoctorChecks.h"

#include "UdevRuleText.h"
#include "common/StringConverter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <unistd.h>

namespace vela::qrvctl {

namespace fs = std::filesystem;
using vela::common::StringConverter;
using Level = DoctorFinding::Level;

namespace {

constexpr const char* kVendor = "0922";

struct UsbPrinter {
    fs::path device;  // the USB device in sysfs
    std::string port; // "1-4.2"
    std::string product;
    std::string manufacturer;
    std::string productName;
    std::string serial;
    std::string driver; // of the printer interface; empty when none is bound
    bool printerInterface = false;
    std::string printerNode; // /dev/usb/lpN
    bool hidInterface = false;
    std::string hidNode; // /dev/hidrawN
};

std::string ReadAttribute(const fs::path& path) {
    std::ifstream in(path);
    std::string value;
    std::getline(in, value);
    while (!value.empty() && (value.back() == '\n' || value.back() == ' ' || value.back() == '\r')) {
        value.pop_back();
    }
    return value;
}

std::optional<std::string> FirstEntry(const fs::path& folder, const std::string& prefix) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind(prefix, 0) == 0) {
            return name;
        }
    }
    return std::nullopt;
}

void ReadInterfaces(UsbPrinter& printer, const std::string& root) {
    std::error_code error;
    const fs::path devices = printer.device.parent_path();
    for (const auto& entry : fs::directory_iterator(devices, error)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind(printer.port + ":", 0) != 0) {
            continue;
        }
        const std::string interfaceClass = ReadAttribute(entry.path() / "bInterfaceClass");
        if (interfaceClass == "07") {
            printer.printerInterface = true;
            std::error_code linkError;
            const fs::path driver = fs::read_symlink(entry.path() / "driver", linkError);
            printer.driver = linkError ? std::string() : driver.filename().string();
            if (auto node = FirstEntry(entry.path() / "usbmisc", "lp")) {
                printer.printerNode = root + "/dev/usb/" + *node;
            }
        } else if (interfaceClass == "03") {
            printer.hidInterface = true;
            // <interface>/<bus:vendor:product.n>/hidraw/hidrawN
            for (const auto& hid : fs::directory_iterator(entry.path(), error)) {
                if (auto node = FirstEntry(hid.path() / "hidraw", "hidraw")) {
                    printer.hidNode = root + "/dev/" + *node;
                }
            }
        }
    }
}

std::vector<UsbPrinter> FindUsbPrinters(const std::string& root) {
    std::vector<UsbPrinter> printers;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(fs::path(root + "/sys/bus/usb/devices"), error)) {
        const std::string name = entry.path().filename().string();
        if (name.find(':') != std::string::npos || ReadAttribute(entry.path() / "idVendor") != kVendor) {
            continue;
        }
        UsbPrinter printer;
        printer.product = ReadAttribute(entry.path() / "idProduct");
        if (printer.product != "0024" && printer.product != "0025") {
            continue;
        }
        printer.device = entry.path();
        printer.port = name;
        printer.manufacturer = ReadAttribute(entry.path() / "manufacturer");
        printer.productName = ReadAttribute(entry.path() / "product");
        printer.serial = ReadAttribute(entry.path() / "serial");
        ReadInterfaces(printer, root);
        printers.push_back(printer);
    }
    std::sort(printers.begin(), printers.end(),
              [](const UsbPrinter& a, const UsbPrinter& b) { return a.port < b.port; });
    return printers;
}

std::string AccessProblemOf(const std::string& node) {
    if (::access(node.c_str(), R_OK | W_OK) == 0) {
        return std::string();
    }
    return errno == EACCES ? std::string("permission denied") : std::string(std::strerror(errno));
}

std::string UdevFix() {
    return std::string("install the project's udev rule and join the group 'lp':\n"
                       "sudo install -m 644 udev/60-qrv-printers.rules /etc/udev/rules.d/\n"
                       "sudo udevadm control --reload && sudo udevadm trigger\n"
                       "sudo usermod -aG lp \"$USER\"   (then log out and in again)\n"
                       "The rule (udev/60-qrv-printers.rules):\n") +
           UdevRuleText();
}

std::string UriEscape(const std::string& text) {
    std::string out;
    for (unsigned char c : text) {
        if (std::isalnum(c) || c == '-' || c == '_' || c == '.') {
            out += static_cast<char>(c);
        } else {
            char escaped[4];
            std::snprintf(escaped, sizeof escaped, "%%%02X", c);
            out += escaped;
        }
    }
    return out;
}

const vela::kom::DiscoveredPrinter* DiscoveryRow(const std::vector<vela::kom::DiscoveredPrinter>& printers,
                                                 const UsbPrinter& usb, const std::string& root) {
    for (const auto& row : printers) {
        if (row.isVirtual) {
            continue;
        }
        const std::string path = root + StringConverter::ToUtf8(row.printerPath);
        if ((!usb.printerNode.empty() && path == usb.printerNode) ||
            (!usb.serial.empty() && StringConverter::ToUtf8(row.serialNumber) == usb.serial)) {
            return &row;
        }
    }
    return nullptr;
}

void CheckPrinter(std::vector<DoctorFinding>& findings, const UsbPrinter& usb,
                  const std::vector<vela::kom::DiscoveredPrinter>& printers, const std::string& root) {
    const std::string model = usb.product == "0024" ? "VELA QRV 210" : "VELA QRV 410";
    const std::string who = model + " at USB port " + usb.port;
    findings.push_back({"USB", Level::ok,
                        who + " (0922:" + usb.product +
                            (usb.serial.empty() ? ", no serial" : ", serial " + usb.serial) + ")",
                        "", ExitCode::ok});

    if (!usb.printerInterface) {
        findings.push_back(
            {"printer interface", Level::failure, who + " shows no printer interface",
             "unplug the printer and plug it in again; if it stays so, the printer needs service",
             ExitCode::printerNotFound});
    } else if (usb.driver.empty()) {
        findings.push_back({"usblp driver", Level::failure,
                            "no driver is bound to the printer interface of " + who,
                            "sudo modprobe usblp   (and check that /etc/modprobe.d does not blacklist usblp)",
                            ExitCode::printerNotFound});
    } else if (usb.driver != "usblp") {
        findings.push_back(
            {"usblp driver", Level::failure,
             "the driver '" + usb.driver + "' holds the printer interface of " + who + ", not usblp",
             "stop the program that claimed it (for example: sudo systemctl stop ipp-usb), then unplug "
             "and plug in the printer",
             ExitCode::printerNotFound});
    } else {
        findings.push_back({"usblp driver", Level::ok,
                            "usblp is bound; printer channel " +
                                (usb.printerNode.empty() ? std::string("(no node)") : usb.printerNode),
                            "", ExitCode::ok});
    }

    if (!usb.hidInterface || usb.hidNode.empty()) {
        findings.push_back({"status reports", Level::warning,
                            "no hidraw node for the status interface of " + who +
                                ": commands work, `status --watch` gets no reports",
                            "sudo modprobe usbhid hid-generic", ExitCode::ok});
    } else {
        findings.push_back(
            {"status reports", Level::ok, "status reports on " + usb.hidNode, "", ExitCode::ok});
    }

    for (const std::string& node : {usb.printerNode, usb.hidNode}) {
        if (node.empty()) {
            continue;
        }
        const std::string problem = AccessProblemOf(node);
        if (problem.empty()) {
            findings.push_back(
                {"access", Level::ok, "this user can read and write " + node, "", ExitCode::ok});
        } else {
            findings.push_back({"access", Level::failure, "cannot open " + node + ": " + problem, UdevFix(),
                                ExitCode::accessDenied});
        }
    }

    const auto* row = DiscoveryRow(printers, usb, root);
    if (row != nullptr && row->hasQueue) {
        findings.push_back(
            {"print queue", Level::ok,
             "CUPS queue '" + StringConverter::ToUtf8(row->printerName) + "' names this printer", "",
             ExitCode::ok});
    } else {
        const std::string fallback =
            row != nullptr ? StringConverter::ToUtf8(row->printerName) : model + " (" + usb.serial + ")";
        const std::string uri = "usb://" + UriEscape(usb.manufacturer.empty() ? "VELA" : usb.manufacturer) +
                                "/" + UriEscape(usb.productName.empty() ? model : usb.productName) +
                                (usb.serial.empty() ? "" : "?serial=" + UriEscape(usb.serial));
        findings.push_back(
            {"print queue", Level::warning,
             "no local CUPS queue names this printer; qrvctl and the library open it as '" + fallback + "'",
             "to give it a queue name of your choice: sudo lpadmin -p QRV-Printer -E -v '" + uri + "'",
             ExitCode::ok});
    }
}

} // namespace

std::vector<DoctorFinding> DoctorChecks::Run(const std::vector<vela::kom::DiscoveredPrinter>& printers,
                                             const std::string& root) {
    std::vector<DoctorFinding> findings;
    const auto usbPrinters = FindUsbPrinters(root);
    const bool anyVirtual =
        std::any_of(printers.begin(), printers.end(), [](const auto& p) { return p.isVirtual; });
    if (usbPrinters.empty()) {
        findings.push_back({"USB", anyVirtual ? Level::warning : Level::failure,
                            "no QRV printer (USB 0922:0024 or 0922:0025) is on USB",
                            "check the cable and that the printer is switched on; `lsusb -d 0922:` lists it "
                            "when it is there",
                            ExitCode::printerNotFound});
    }
    for (const auto& usb : usbPrinters) {
        CheckPrinter(findings, usb, printers, root);
    }

    const std::string lockFolder = root + "/run/lock";
    const std::string lockProblem = AccessProblemOf(lockFolder);
    if (lockProblem.empty()) {
        findings.push_back({"access lock", Level::ok,
                            lockFolder + " is writable (the printer's access lock lives there)", "",
                            ExitCode::ok});
    } else {
        findings.push_back({"access lock", Level::failure,
                            "cannot write " + lockFolder + " (" + lockProblem +
                                "); the library cannot take the printer's access lock",
                            "sudo mkdir -p /run/lock && sudo chmod 1777 /run/lock", ExitCode::accessDenied});
    }

    for (const auto& row : printers) {
        if (!row.isVirtual) {
            continue;
        }
        const std::string name = StringConverter::ToUtf8(row.printerName);
        const std::string path = StringConverter::ToUtf8(row.printerPath);
        const std::string problem = AccessProblemOf(path);
        if (problem.empty()) {
            findings.push_back(
                {"virtual printer", Level::ok, "'" + name + "' serves on " + path, "", ExitCode::ok});
        } else {
            findings.push_back(
                {"virtual printer", Level::failure,
                 "'" + name + "' (QRV_VIRTUAL_PRINTERS): " + path + ": " + problem,
                 "is its simulator (qrv-sim) still running? Start it again and export the value it prints",
                 ExitCode::printerNotFound});
        }
    }
    return findings;
}

} // namespace vela::qrvctl
