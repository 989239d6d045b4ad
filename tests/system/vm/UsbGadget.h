#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

namespace vela::test {

// The virtual USB printer of the VM harness, seen from inside the guest: its configuration
// (configfs), its plug (the UDC binding) and its nodes (host side /dev/usb/lp0 and /dev/hidraw0,
// device side /dev/g_printer0 and /dev/hidg0, served by the simulator).
class UsbGadget {
public:
    // Reads the configuration; throws std::runtime_error outside the harness's guest.
    UsbGadget();

    uint32_t ProductId() const { return m_productId; }
    const std::string& Serial() const { return m_serial; }
    bool HasHid() const { return m_hasHid; }
    // "210" or "410", as the simulator's --model takes it.
    std::string Model() const { return m_productId == 0x0024 ? "210" : "410"; }
    // The name discovery gives it without a print queue.
    std::string Name() const { return "VELA QRV " + Model() + " (" + m_serial + ")"; }

    // Unbinds the gadget from its controller (the host sees it unplugged at once), or binds it.
    void Unplug() const;
    void Plug() const;
    bool IsPlugged() const;

    // Waits until the host's nodes are there (lp0, and hidraw0 when the gadget has HID), or gone.
    bool WaitForHostNodes(std::chrono::milliseconds timeout) const;
    bool WaitUntilHostNodesGone(std::chrono::milliseconds timeout) const;
    // Waits until process `pid` holds no descriptor of a gadget node that was removed by an
    // unplug. The gadget must not be bound again before: on the harness's kernel a descriptor
    // of the old node that is closed after the re-bind corrupts the kernel.
    bool WaitUntilReleased(pid_t pid, std::chrono::milliseconds timeout) const;
    // Waits until process `pid` has the device-side printer node open (it serves again).
    bool WaitUntilServed(pid_t pid, std::chrono::milliseconds timeout) const;

private:
    uint32_t m_productId = 0;
    std::string m_serial;
    bool m_hasHid = false;
    std::string m_controller;
};

// What the descriptors of process `pid` refer to (the targets of /proc/<pid>/fd/*).
std::vector<std::string> OpenFiles(pid_t pid);

} // namespace vela::test
