#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vela::test {

// The VM's virtual USB printer seen from the guest: its configfs settings, its plug (the UDC
// binding) and its nodes (host lp0/hidraw0, device g_printer0/hidg0).
class UsbGadget {
public:
    // Throws std::runtime_error outside the guest.
    UsbGadget();

    uint32_t ProductId() const { return m_productId; }
    const std::string& Serial() const { return m_serial; }
    bool HasHid() const { return m_hasHid; }
    std::string Model() const { return m_productId == 0x0024 ? "210" : "410"; }
    std::string Name() const { return "VELA QRV " + Model() + " (" + m_serial + ")"; }

    void Unplug() const;
    void Plug() const;
    bool IsPlugged() const;

    bool WaitForHostNodes(std::chrono::milliseconds timeout) const;
    bool WaitUntilHostNodesGone(std::chrono::milliseconds timeout) const;
    // Until `pid` holds no removed gadget node: closing one after a re-bind corrupts the kernel.
    bool WaitUntilReleased(pid_t pid, std::chrono::milliseconds timeout) const;
    bool WaitUntilServed(pid_t pid, std::chrono::milliseconds timeout) const;

private:
    uint32_t m_productId = 0;
    std::string m_serial;
    bool m_hasHid = false;
    std::string m_controller;
};

// The targets of /proc/<pid>/fd/*.
std::vector<std::string> OpenFiles(pid_t pid);

} // namespace vela::test
