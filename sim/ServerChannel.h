#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace vela::sim {

// The device end of a channel that the library opens as if it were a printer:
//   Linux   : a raw-mode pseudo-terminal; the library opens the slave path (/dev/pts/N).
//             The server keeps a slave descriptor of its own open so that the library may open
//             and close the path for every transaction without the master seeing a hang-up.
//   Windows : a named pipe \\.\pipe\<name>. The printer channel has two instances, because the
//             library opens the path twice per transaction (a write handle, then a read
//             handle); the instance on which requests arrive is the write side and replies go
//             to the other. The server re-listens after the library closes its handles.
//             The HID channel is one message-mode instance (one 8-byte report per read).
//   Gadget  : an existing device node (/dev/g_printer0, /dev/hidg0) inside the VM harness.
// All calls may block; one thread reads, any thread may write or disconnect.
class ServerChannel {
public:
    enum class Kind { printer, hid };

    // A new channel of the platform's kind. Throws std::runtime_error when the system refuses.
    static std::unique_ptr<ServerChannel> Create(Kind kind);
    // Serves an existing device node (the USB gadget's device side). Linux only.
    static std::unique_ptr<ServerChannel> OpenDeviceNode(const std::string& path, Kind kind);

    virtual ~ServerChannel() = default;

    // The path the library opens (UTF-8 on Linux; the pipe path on Windows).
    virtual std::wstring ClientPath() const = 0;

    // Reads what the host wrote: waits up to timeoutMs (-1: no limit) for at least one byte.
    // Returns the byte count, 0 on time-out, -1 when the channel is closed for good.
    // While disconnected, Read waits for Reconnect() (0 on time-out) instead of failing, so a
    // serving loop runs on across a re-plug; -1 means the channel failed or is being destroyed.
    virtual long Read(uint8_t* buffer, size_t capacity, int timeoutMs) = 0;
    // Sends bytes to the host (a reply, or one HID report). False when nobody can receive them
    // (Windows: no host connected; any platform: disconnected).
    virtual bool Write(const uint8_t* data, size_t size) = 0;

    // Simulates pulling the cable: the host's open transfers fail and new opens fail until
    // Reconnect(). Safe to call from any thread, also while another thread is in Read().
    virtual void Disconnect() = 0;
    // Plugs the printer in again at the same path where the platform allows; returns false
    // where it does not (the new path is then ClientPath()).
    virtual bool Reconnect() = 0;
};

} // namespace vela::sim
