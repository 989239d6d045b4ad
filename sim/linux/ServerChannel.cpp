#include "sim/ServerChannel.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/eventfd.h>
#include <termios.h>
#include <unistd.h>

namespace vela::sim {

namespace {

using Clock = std::chrono::steady_clock;

// A replying Write gives up when the host has taken nothing for this long: the library's reads
// time out after 3000 ms, so a host that stopped reading has abandoned the transaction.
constexpr int kWriteStallMs = 10000;

[[noreturn]] void Fail(const std::string& what) {
    throw std::runtime_error("ServerChannel: " + what + ": " + std::strerror(errno));
}

// A descriptor owned by the channel; closed on destruction.
class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : m_fd(fd) {}
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    Fd(Fd&& other) noexcept : m_fd(other.m_fd) { other.m_fd = -1; }
    Fd& operator=(Fd&& other) noexcept {
        if (this != &other) {
            Reset();
            m_fd = other.m_fd;
            other.m_fd = -1;
        }
        return *this;
    }
    ~Fd() { Reset(); }
    int Get() const { return m_fd; }
    void Reset() {
        if (m_fd >= 0) {
            ::close(m_fd);
            m_fd = -1;
        }
    }

private:
    int m_fd = -1;
};

// ClientPath() widens the path byte by byte, so only a plain ASCII temporary folder is taken.
std::string TempFolder() {
    const char* temp = std::getenv("TMPDIR");
    if (temp == nullptr || temp[0] != '/') {
        return "/tmp";
    }
    for (const char* c = temp; *c != '\0'; ++c) {
        if (static_cast<unsigned char>(*c) < 0x20 || static_cast<unsigned char>(*c) > 0x7E) {
            return "/tmp";
        }
    }
    return temp;
}

// The descriptors of one "cable": what the server reads and writes, and for a pseudo-terminal
// the slave end the server keeps open itself.
struct Link {
    Fd device;   // pty master, or the device node
    Fd ownSlave; // pty only
    std::string slavePath;
};

Link OpenPty() {
    Link link;
    link.device = Fd(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (link.device.Get() < 0) {
        Fail("posix_openpt");
    }
    const int master = link.device.Get();
    if (::grantpt(master) != 0 || ::unlockpt(master) != 0) {
        Fail("grantpt/unlockpt");
    }
    char name[128] = {};
    if (::ptsname_r(master, name, sizeof name) != 0) {
        Fail("ptsname_r");
    }
    link.slavePath = name;
    // Raw mode: no echo, no line editing, no CR/LF translation, no flow-control characters, so
    // protocol bytes pass unchanged. Set through the master, it applies to the slave's side.
    termios tio{};
    if (::tcgetattr(master, &tio) != 0) {
        Fail("tcgetattr");
    }
    ::cfmakeraw(&tio);
    if (::tcsetattr(master, TCSANOW, &tio) != 0) {
        Fail("tcsetattr");
    }
    // While any slave descriptor is open the master never sees a hang-up, so the library may
    // open and close the slave for every transaction.
    link.ownSlave = Fd(::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
    if (link.ownSlave.Get() < 0) {
        Fail(std::string("open ") + name);
    }
    const int flags = ::fcntl(master, F_GETFL);
    if (flags < 0 || ::fcntl(master, F_SETFL, flags | O_NONBLOCK) != 0) {
        Fail("fcntl O_NONBLOCK");
    }
    return link;
}

class LinuxServerChannel : public ServerChannel {
public:
    // A pseudo-terminal behind a stable symbolic link in a private folder.
    explicit LinuxServerChannel(Kind kind) : m_isPty(true) {
        InitWake();
        std::string pattern = TempFolder() + "/qrv-sim-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            Fail("mkdtemp " + pattern);
        }
        m_folder = pattern;
        m_clientPath = m_folder + (kind == Kind::printer ? "/printer" : "/hid");
        try {
            Plug();
        } catch (...) {
            RemoveFolder();
            throw;
        }
    }

    // An existing device node (the USB gadget's device side).
    LinuxServerChannel(const std::string& nodePath, Kind) : m_isPty(false), m_clientPath(nodePath) {
        InitWake();
        Plug();
    }

    ~LinuxServerChannel() override {
        {
            // Another thread still inside Read/Write is woken and let out before the members go.
            std::unique_lock<std::mutex> lock(m_mutex);
            m_closing = true;
            Unplug(lock);
            m_changed.wait(lock, [&] { return m_calls == 0; });
        }
        if (m_isPty) {
            RemoveFolder();
        }
    }

    std::wstring ClientPath() const override {
        // The path is ASCII (temporary folder and device names), so a plain widening is exact.
        return std::wstring(m_clientPath.begin(), m_clientPath.end());
    }

    long Read(uint8_t* buffer, size_t capacity, int timeoutMs) override {
        const bool forever = timeoutMs < 0;
        const auto deadline = Clock::now() + std::chrono::milliseconds(forever ? 0 : timeoutMs);
        std::unique_lock<std::mutex> lock(m_mutex);
        CallGuard call(*this);
        for (;;) {
            if (m_closing || m_failed) {
                return -1;
            }
            if (!m_plugged) {
                // Unplugged: wait for Reconnect() rather than fail, so a serving loop survives
                // the re-plug.
                auto replugged = [&] { return m_plugged || m_closing; };
                if (forever) {
                    m_changed.wait(lock, replugged);
                } else if (!m_changed.wait_until(lock, deadline, replugged)) {
                    return 0;
                }
                continue;
            }
            if (capacity == 0) {
                return 0;
            }
            const int fd = m_link.device.Get();
            ++m_users;
            lock.unlock();
            long n = ReadSome(fd, buffer, capacity, forever, deadline);
            lock.lock();
            if (--m_users == 0) {
                m_changed.notify_all();
            }
            if (n == kInterrupted) {
                continue; // state changed (unplugged or closing): look again
            }
            if (n < 0) {
                m_failed = true;
            }
            return n;
        }
    }

    bool Write(const uint8_t* data, size_t size) override {
        std::unique_lock<std::mutex> lock(m_mutex);
        CallGuard call(*this);
        if (!m_plugged || m_closing || m_failed) {
            return false;
        }
        const int fd = m_link.device.Get();
        ++m_users;
        lock.unlock();
        bool ok = WriteAll(fd, data, size);
        lock.lock();
        if (--m_users == 0) {
            m_changed.notify_all();
        }
        return ok;
    }

    void Disconnect() override {
        std::unique_lock<std::mutex> lock(m_mutex);
        Unplug(lock);
    }

    bool Reconnect() override {
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_closing) {
            return false;
        }
        Unplug(lock);
        Plug();
        m_changed.notify_all();
        return true;
    }

private:
    static constexpr long kInterrupted = -2;

    // Counts a Read/Write in progress; constructed and destroyed with the mutex held.
    struct CallGuard {
        explicit CallGuard(LinuxServerChannel& channel) : m_channel(channel) { ++m_channel.m_calls; }
        ~CallGuard() {
            if (--m_channel.m_calls == 0) {
                m_channel.m_changed.notify_all();
            }
        }
        CallGuard(const CallGuard&) = delete;
        CallGuard& operator=(const CallGuard&) = delete;
        LinuxServerChannel& m_channel;
    };

    void InitWake() {
        m_wake = Fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        if (m_wake.Get() < 0) {
            Fail("eventfd");
        }
    }

    // Opens a fresh cable. Called with the mutex held (or from the constructor).
    void Plug() {
        Link link;
        if (m_isPty) {
            link = OpenPty();
            // Re-point the stable path atomically: a new link under a temporary name, renamed
            // over the old one, so the library never sees the path missing or half-made.
            const std::string temporary = m_folder + "/.plugging";
            ::unlink(temporary.c_str());
            if (::symlink(link.slavePath.c_str(), temporary.c_str()) != 0) {
                Fail("symlink " + temporary);
            }
            if (::rename(temporary.c_str(), m_clientPath.c_str()) != 0) {
                ::unlink(temporary.c_str());
                Fail("rename " + temporary);
            }
        } else {
            link.device = Fd(::open(m_clientPath.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK));
            if (link.device.Get() < 0) {
                Fail("open " + m_clientPath);
            }
        }
        // Drain a wake-up left from an earlier Unplug.
        uint64_t value;
        while (::read(m_wake.Get(), &value, sizeof value) > 0) {
        }
        m_link = std::move(link);
        m_plugged = true;
        m_failed = false;
    }

    // Pulls the cable: wakes a blocked Read/Write, waits until none uses the descriptors, then
    // closes them. Closing the master hangs up every slave descriptor the library holds (its
    // transfers fail), and the /dev/pts node goes away; the link is removed too, so that a later
    // pseudo-terminal that reuses the number is not reached through it.
    void Unplug(std::unique_lock<std::mutex>& lock) {
        if (!m_plugged) {
            m_changed.notify_all();
            return;
        }
        m_plugged = false;
        uint64_t one = 1;
        (void)!::write(m_wake.Get(), &one, sizeof one);
        m_changed.wait(lock, [&] { return m_users == 0; });
        if (m_isPty) {
            ::unlink(m_clientPath.c_str());
        }
        m_link = Link();
        m_changed.notify_all();
    }

    void RemoveFolder() {
        ::unlink(m_clientPath.c_str());
        ::unlink((m_folder + "/.plugging").c_str());
        ::rmdir(m_folder.c_str());
    }

    int PollTimeout(bool forever, Clock::time_point deadline) const {
        if (forever) {
            return -1;
        }
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        return left > 0 ? static_cast<int>(left) + 1 : 0;
    }

    // Waits for `events` on fd or a wake-up. 1: ready, 0: time-out, kInterrupted: woken, -1: error.
    int WaitFor(int fd, short events, bool forever, Clock::time_point deadline) const {
        for (;;) {
            pollfd p[2] = {{fd, events, 0}, {m_wake.Get(), POLLIN, 0}};
            int n = ::poll(p, 2, PollTimeout(forever, deadline));
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n < 0) {
                return -1;
            }
            if ((p[1].revents & POLLIN) != 0) {
                return kInterrupted;
            }
            if (n == 0) {
                if (!forever && Clock::now() < deadline) {
                    continue;
                }
                return 0;
            }
            return (p[0].revents & POLLNVAL) != 0 ? -1 : 1;
        }
    }

    long ReadSome(int fd, uint8_t* buffer, size_t capacity, bool forever, Clock::time_point deadline) const {
        for (;;) {
            ssize_t n = ::read(fd, buffer, capacity);
            if (n > 0) {
                return static_cast<long>(n);
            }
            if (n < 0 && errno != EAGAIN && errno != EINTR) {
                return -1;
            }
            if (n == 0 && !m_isPty) {
                return -1; // end of file on a device node: its function went away
            }
            int ready = WaitFor(fd, POLLIN, forever, deadline);
            if (ready != 1) {
                return ready; // time-out, wake-up or error
            }
        }
    }

    bool WriteAll(int fd, const uint8_t* data, size_t size) const {
        size_t done = 0;
        auto stallDeadline = Clock::now() + std::chrono::milliseconds(kWriteStallMs);
        while (done < size) {
            ssize_t n = ::write(fd, data + done, size - done);
            if (n > 0) {
                done += static_cast<size_t>(n);
                stallDeadline = Clock::now() + std::chrono::milliseconds(kWriteStallMs);
                continue;
            }
            if (n < 0 && errno != EAGAIN && errno != EINTR) {
                return false;
            }
            // The host's input queue is full: wait until it reads, we are unplugged, or it
            // evidently gave up.
            if (WaitFor(fd, POLLOUT, false, stallDeadline) != 1) {
                return false;
            }
        }
        return true;
    }

    const bool m_isPty;
    std::string m_folder;
    std::string m_clientPath;
    Fd m_wake;

    std::mutex m_mutex;
    std::condition_variable m_changed;
    Link m_link;
    bool m_plugged = false;
    bool m_closing = false;
    bool m_failed = false;
    int m_users = 0; // calls using the current descriptors outside the mutex
    int m_calls = 0; // Read/Write calls in progress
};

} // namespace

std::unique_ptr<ServerChannel> ServerChannel::Create(Kind kind) {
    return std::make_unique<LinuxServerChannel>(kind);
}

std::unique_ptr<ServerChannel> ServerChannel::OpenDeviceNode(const std::string& path, Kind kind) {
    return std::make_unique<LinuxServerChannel>(path, kind);
}

} // namespace vela::sim
