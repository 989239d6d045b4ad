#include "system/vm/UsbGadget.h"

#include "support/TestSupport.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace vela::test {

namespace {

const std::string kGadget = "/sys/kernel/config/usb_gadget/qrv";
const std::string kPrinterNode = "/dev/g_printer0";
const std::string kHidNode = "/dev/hidg0";

std::string ReadLine(const std::string& path) {
    std::ifstream in(path);
    std::string line;
    if (!in || !std::getline(in, line)) {
        throw std::runtime_error("cannot read " + path + " (not inside the USB gadget VM?)");
    }
    return line;
}

bool Exists(const std::string& path) {
    struct stat st;
    return ::stat(path.c_str(), &st) == 0;
}

bool Within(std::chrono::milliseconds timeout, const std::function<bool()>& condition) {
    return Eventually(condition, static_cast<uint32_t>(timeout.count()));
}

void WriteUdc(const std::string& value) {
    std::ofstream udc(kGadget + "/UDC", std::ios::app); // never truncated
    udc << value << "\n"
        << std::flush; // one write: a write of zero bytes is refused, unbinding takes a lone newline
    if (!udc) {
        throw std::runtime_error("write '" + value + "' to UDC failed");
    }
}

} // namespace

UsbGadget::UsbGadget() {
    m_productId = static_cast<uint32_t>(std::stoul(ReadLine(kGadget + "/idProduct"), nullptr, 16));
    m_serial = ReadLine(kGadget + "/strings/0x409/serialnumber");
    m_hasHid = Exists(kGadget + "/functions/hid.usb0");
    m_controller = ReadLine("/opt/udc");
}

void UsbGadget::Unplug() const {
    WriteUdc("");
}

void UsbGadget::Plug() const {
    WriteUdc(m_controller);
}

bool UsbGadget::IsPlugged() const {
    std::ifstream in(kGadget + "/UDC");
    std::string line;
    return std::getline(in, line) && !line.empty();
}

bool UsbGadget::WaitForHostNodes(std::chrono::milliseconds timeout) const {
    return Within(timeout, [&] { return Exists("/dev/usb/lp0") && (!m_hasHid || Exists("/dev/hidraw0")); });
}

bool UsbGadget::WaitUntilHostNodesGone(std::chrono::milliseconds timeout) const {
    return Within(timeout, [&] { return !Exists("/dev/usb/lp0") && !Exists("/dev/hidraw0"); });
}

bool UsbGadget::WaitUntilReleased(pid_t pid, std::chrono::milliseconds timeout) const {
    return Within(timeout, [pid] {
        const std::vector<std::string> files = OpenFiles(pid);
        return std::none_of(files.begin(), files.end(), [](const std::string& target) {
            return target == kPrinterNode + " (deleted)" || target == kHidNode + " (deleted)";
        });
    });
}

bool UsbGadget::WaitUntilServed(pid_t pid, std::chrono::milliseconds timeout) const {
    return Within(timeout, [pid] {
        const std::vector<std::string> files = OpenFiles(pid);
        return std::find(files.begin(), files.end(), kPrinterNode) != files.end();
    });
}

std::vector<std::string> OpenFiles(pid_t pid) {
    std::vector<std::string> targets;
    std::error_code ec;
    for (const auto& entry :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", ec)) {
        const std::filesystem::path target = std::filesystem::read_symlink(entry.path(), ec);
        if (!ec) {
            targets.push_back(target.string());
        }
    }
    return targets;
}

} // namespace vela::test
