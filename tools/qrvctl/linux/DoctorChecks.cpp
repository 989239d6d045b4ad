#include "DoctorChecks.h"

#include "UdevRuleText.h"
#include "common/StringConverter.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace vela::qrvctl {

using vela::common::StringConverter;
using vela::printer::communication::PrinterInfo;
using Level = DoctorFinding::Level;

namespace {

std::string Utf8(const std::wstring& text) {
    return StringConverter::ToUtf8(text);
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

void CheckPrinter(std::vector<DoctorFinding>& findings, const PrinterInfo& printer) {
    const std::string model = Utf8(printer.model);
    const std::string who = model + " at USB port " + Utf8(printer.usbPort);
    char usbId[16];
    std::snprintf(usbId, sizeof usbId, "%04x:%04x", printer.vendorId, printer.productId);
    findings.push_back({"USB", Level::ok,
                        who + " (" + usbId +
                            (printer.serial.empty() ? ", no serial" : ", serial " + Utf8(printer.serial)) +
                            ")",
                        "", ExitCode::ok});

    const std::string driver = Utf8(printer.driver);
    if (!printer.hasPrinterInterface) {
        findings.push_back(
            {"printer interface", Level::failure, who + " shows no printer interface",
             "unplug the printer and plug it in again; if it stays so, the printer needs service",
             ExitCode::printerNotFound});
    } else if (driver.empty()) {
        findings.push_back({"usblp driver", Level::failure,
                            "no driver is bound to the printer interface of " + who,
                            "sudo modprobe usblp   (and check that /etc/modprobe.d does not blacklist usblp)",
                            ExitCode::printerNotFound});
    } else if (driver != "usblp") {
        findings.push_back(
            {"usblp driver", Level::failure,
             "the driver '" + driver + "' holds the printer interface of " + who + ", not usblp",
             "stop the program that claimed it (for example: sudo systemctl stop ipp-usb), then unplug "
             "and plug in the printer",
             ExitCode::printerNotFound});
    } else {
        findings.push_back(
            {"usblp driver", Level::ok,
             "usblp is bound; printer channel " +
                 (printer.channelPath.empty() ? std::string("(no node)") : Utf8(printer.channelPath)),
             "", ExitCode::ok});
    }

    if (printer.statusPath.empty()) {
        findings.push_back({"status reports", Level::warning,
                            "no hidraw node for the status interface of " + who +
                                ": commands work, `status --watch` gets no reports",
                            "sudo modprobe usbhid hid-generic", ExitCode::ok});
    } else {
        findings.push_back(
            {"status reports", Level::ok, "status reports on " + Utf8(printer.statusPath), "", ExitCode::ok});
    }

    for (const std::wstring& path : {printer.channelPath, printer.statusPath}) {
        if (path.empty()) {
            continue;
        }
        const std::string node = Utf8(path);
        const std::string problem = AccessProblemOf(node);
        if (problem.empty()) {
            findings.push_back(
                {"access", Level::ok, "this user can read and write " + node, "", ExitCode::ok});
        } else {
            findings.push_back({"access", Level::failure, "cannot open " + node + ": " + problem, UdevFix(),
                                ExitCode::accessDenied});
        }
    }

    if (printer.isQueueName) {
        findings.push_back({"print queue", Level::ok,
                            "CUPS queue '" + Utf8(printer.name) + "' names this printer", "", ExitCode::ok});
    } else {
        const std::string why = printer.queueProblem.empty() ? "no local CUPS queue names this printer"
                                                             : Utf8(printer.queueProblem);
        findings.push_back({"print queue", Level::warning,
                            why + "; qrvctl and the library open it as '" + Utf8(printer.name) + "'",
                            "to give it a queue name of your choice: sudo lpadmin -p QRV-Printer -E -v '" +
                                Utf8(printer.deviceUri) + "'",
                            ExitCode::ok});
    }
}

} // namespace

std::vector<DoctorFinding> DoctorChecks::Run(const std::vector<PrinterInfo>& printers,
                                             const std::string& lockFolder) {
    std::vector<DoctorFinding> findings;
    bool anyVirtual = false;
    bool anyOnUsb = false;
    for (const auto& printer : printers) {
        anyVirtual = anyVirtual || printer.isVirtual;
        if (!printer.isVirtual) {
            anyOnUsb = true;
            CheckPrinter(findings, printer);
        }
    }
    if (!anyOnUsb) {
        findings.insert(findings.begin(),
                        {"USB", anyVirtual ? Level::warning : Level::failure,
                         "no QRV printer (USB 0922:0024 or 0922:0025) is on USB",
                         "check the cable and that the printer is switched on; `lsusb -d 0922:` lists it "
                         "when it is there",
                         ExitCode::printerNotFound});
    }

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

    for (const auto& printer : printers) {
        if (!printer.isVirtual) {
            continue;
        }
        const std::string name = Utf8(printer.name);
        const std::string path = Utf8(printer.channelPath);
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
