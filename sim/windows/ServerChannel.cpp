// The device end of a simulated printer on Windows: named pipes that the library opens with
// CreateFileW exactly as it opens a USB printer interface.
//
// Printer channel: the library opens the path twice per transaction (a write-only handle, then a
// read-only one) and closes both when the transaction ends. Several byte-mode instances listen at
// once, so that both opens succeed at once; the instance on which request bytes arrive is the
// host's write handle, and replies go to the other connected instance (decided by the data, not by
// the order of the connections). A service thread owns the
// instances: it keeps a read pending on every connected instance (request bytes are queued for
// Read), notices when the host closes its handles (the pending read fails with
// ERROR_BROKEN_PIPE) and makes the instance listen again at once, whether or not anybody is
// calling Read at that moment: the host's next transaction may open the path microseconds later.
// The service thread learns of completed connects and reads from a completion port, in the order
// they completed. Request bytes must reach Read in the order the host wrote them, and a request
// without a reply (a restart or update order) can be followed by the next transaction's request on
// another instance before the thread wakes: looking at the instances in their own order would then
// hand the later request over first.
//
// HID channel: message-mode instances, one 8-byte report per message, sent to every connected
// host as a HID device does. The library reads 8 bytes at a time, so each read takes exactly one
// report. (A host reading more at once in byte read
// mode would get several reports merged; that is how wine behaves, and Windows too.)
//
// Behaviour measured under wine (and matching Windows): a fresh instance accepts a client before
// ConnectNamedPipe is called (ConnectNamedPipe then answers ERROR_PIPE_CONNECTED); a client open
// while no instance listens fails with ERROR_PIPE_BUSY; a server write larger than the free pipe
// buffer stays pending until the host reads; DisconnectNamedPipe fails the host's pending and later
// transfers with ERROR_PIPE_NOT_CONNECTED; once every instance is closed, opens fail with
// ERROR_FILE_NOT_FOUND and the name can be created again even while stale host handles exist.

#include "sim/ServerChannel.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace vela::sim {
namespace {

// Pipe buffers, the size of one server read and of one piece of a server write.
constexpr DWORD kBufferSize = 64 * 1024;
// Request bytes queued for Read beyond this make the service thread stop reading until Read has
// taken them, so that a host writing a large file cannot fill the memory of the simulator.
constexpr size_t kInboundLimit = 1024 * 1024;
// How long one piece of a server write may wait for the host to make room before Write gives up.
constexpr DWORD kPrinterStallMs = 5000;
// A status report nobody reads is dropped sooner: the simulator sends a newer one later.
constexpr DWORD kHidStallMs = 500;
// Completion keys: packets the channel posts itself, then one key per instance.
constexpr ULONG_PTR kStopKey = 0;
constexpr ULONG_PTR kResumeKey = 1;
constexpr ULONG_PTR kFirstInstanceKey = 2;

// A system call that failed inside the service thread.
struct SystemFailure {
    std::string call;
    DWORD error;
};

[[noreturn]] void Fail(const std::string& what, DWORD error) {
    throw std::runtime_error("ServerChannel: " + what + " failed (Win32 error " + std::to_string(error) +
                             ")");
}

class Handle {
public:
    Handle() = default;
    explicit Handle(HANDLE handle) : m_handle(handle) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    Handle(Handle&& other) noexcept : m_handle(std::exchange(other.m_handle, nullptr)) {}
    Handle& operator=(Handle&& other) noexcept {
        if (this != &other) {
            Reset(std::exchange(other.m_handle, nullptr));
        }
        return *this;
    }
    ~Handle() { Reset(); }

    HANDLE Get() const { return m_handle; }
    bool Valid() const { return m_handle != nullptr && m_handle != INVALID_HANDLE_VALUE; }
    void Reset(HANDLE handle = nullptr) {
        if (Valid()) {
            ::CloseHandle(m_handle);
        }
        m_handle = handle;
    }

private:
    HANDLE m_handle = nullptr;
};

Handle MakeEvent(bool manualReset) {
    Handle event(::CreateEventW(nullptr, manualReset ? TRUE : FALSE, FALSE, nullptr));
    if (!event.Valid()) {
        Fail("CreateEventW", ::GetLastError());
    }
    return event;
}

std::wstring UniquePipePath() {
    static std::atomic<unsigned> counter{0};
    std::random_device random;
    return L"\\\\.\\pipe\\qrv-sim-" + std::to_wstring(::GetCurrentProcessId()) + L"-" +
           std::to_wstring(++counter) + L"-" + std::to_wstring(random());
}

// One server end of the pipe. Only the service thread starts requests on it (connect, read):
// Windows cancels a thread's requests when the thread ends, so they must belong to a thread that
// lives as long as the instance. Writers use requests of their own.
struct Instance {
    enum class Op { none, connect, read };

    Handle pipe;
    Handle event = MakeEvent(true);
    OVERLAPPED overlapped{};
    Op op = Op::none;
    bool connected = false;
    std::vector<uint8_t> buffer = std::vector<uint8_t>(kBufferSize);

    bool Completed() const { return op != Op::none && HasOverlappedIoCompleted(&overlapped); }
    // Has a host: connected, or a connect has completed that the service thread will see next.
    bool Attached() const { return connected || (op == Op::connect && Completed()); }

    void Prepare(Op next) {
        ::ResetEvent(event.Get());
        overlapped = OVERLAPPED{};
        overlapped.hEvent = event.Get();
        op = next;
    }
};

class WindowsServerChannel : public ServerChannel {
public:
    explicit WindowsServerChannel(Kind kind)
        : m_kind(kind), m_path(UniquePipePath()), m_stop(MakeEvent(true)) {
        std::unique_lock<std::mutex> lock(m_mutex);
        Plug(lock);
    }

    ~WindowsServerChannel() override {
        std::lock_guard<std::mutex> plugging(m_plugMutex);
        std::unique_lock<std::mutex> lock(m_mutex);
        m_closing = true;
        m_changed.notify_all();
        Unplug(lock);
        m_changed.wait(lock, [&] { return m_calls == 0; });
    }

    std::wstring ClientPath() const override { return m_path; }

    long Read(uint8_t* buffer, size_t capacity, int timeoutMs) override {
        const auto deadline =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));
        std::unique_lock<std::mutex> lock(m_mutex);
        CallGuard call(*this);
        for (;;) {
            if (m_closing || !m_failure.empty()) {
                return -1; // being destroyed, or the service thread failed (m_failure says why)
            }
            if (InboundSize() > 0 && capacity > 0) {
                return static_cast<long>(TakeInbound(buffer, capacity));
            }
            // While unplugged this simply waits: Reconnect() brings the host back.
            auto ready = [&] {
                return m_closing || !m_failure.empty() || (InboundSize() > 0 && capacity > 0);
            };
            if (timeoutMs < 0) {
                m_changed.wait(lock, ready);
            } else if (!m_changed.wait_until(lock, deadline, ready)) {
                return 0;
            }
        }
    }

    bool Write(const uint8_t* data, size_t size) override {
        std::unique_lock<std::mutex> lock(m_mutex);
        CallGuard call(*this);
        if (!m_plugged || m_closing || !m_failure.empty()) {
            return false;
        }
        std::vector<std::unique_ptr<PendingWrite>> writes;
        for (Instance* target : Targets()) {
            writes.push_back(std::make_unique<PendingWrite>(target));
        }
        if (writes.empty()) {
            return false;
        }
        // Unplug waits for this count to drop before it closes the instances the writes use.
        ++m_writers;
        lock.unlock();
        const bool written = WriteTo(writes, data, size);
        lock.lock();
        if (--m_writers == 0) {
            m_changed.notify_all();
        }
        return written;
    }

    void Disconnect() override {
        std::lock_guard<std::mutex> plugging(m_plugMutex);
        std::unique_lock<std::mutex> lock(m_mutex);
        Unplug(lock);
    }

    bool Reconnect() override {
        std::lock_guard<std::mutex> plugging(m_plugMutex);
        std::unique_lock<std::mutex> lock(m_mutex);
        if (m_closing) {
            return false;
        }
        Unplug(lock);
        Plug(lock);
        m_changed.notify_all();
        return true;
    }

private:
    // One server write to one instance, with its own request record and event.
    struct PendingWrite {
        explicit PendingWrite(Instance* target) : instance(target) {}
        Instance* instance;
        Handle event = MakeEvent(true);
        OVERLAPPED overlapped{};
    };

    // Counts the Read/Write calls inside, so that the destructor lets them out before it goes.
    struct CallGuard {
        explicit CallGuard(WindowsServerChannel& channel) : m_channel(channel) { ++m_channel.m_calls; }
        ~CallGuard() {
            if (--m_channel.m_calls == 0) {
                m_channel.m_changed.notify_all();
            }
        }
        CallGuard(const CallGuard&) = delete;
        CallGuard& operator=(const CallGuard&) = delete;
        WindowsServerChannel& m_channel;
    };

    size_t InstanceCount() const { return m_kind == Kind::printer ? kPrinterInstances : kHidInstances; }

    // Creates the instances and starts serving them. Called with m_mutex held; releases it while
    // the service thread starts.
    void Plug(std::unique_lock<std::mutex>& lock) {
        const DWORD openMode = PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED;
        const DWORD pipeMode = (m_kind == Kind::printer ? PIPE_TYPE_BYTE | PIPE_READMODE_BYTE
                                                        : PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE) |
                               PIPE_WAIT | PIPE_REJECT_REMOTE_CLIENTS;
        // A fresh port per plug: packets of the instances an unplug took away stay with the old one.
        Handle port(::CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 1));
        if (!port.Valid()) {
            Fail("CreateIoCompletionPort", ::GetLastError());
        }
        std::vector<std::unique_ptr<Instance>> instances;
        for (size_t i = 0; i < InstanceCount(); ++i) {
            auto instance = std::make_unique<Instance>();
            instance->pipe.Reset(::CreateNamedPipeW(m_path.c_str(), openMode, pipeMode,
                                                    PIPE_UNLIMITED_INSTANCES, kBufferSize, kBufferSize, 0,
                                                    nullptr));
            if (!instance->pipe.Valid()) {
                Fail("CreateNamedPipeW", ::GetLastError());
            }
            if (::CreateIoCompletionPort(instance->pipe.Get(), port.Get(), kFirstInstanceKey + i, 0) ==
                nullptr) {
                Fail("CreateIoCompletionPort", ::GetLastError());
            }
            instances.push_back(std::move(instance));
        }
        m_port = std::move(port);
        m_instances = std::move(instances);
        m_requestSide = nullptr;
        m_inbound.clear();
        m_inboundStart = 0;
        ::ResetEvent(m_stop.Get());
        m_plugged = true;
        m_service = std::thread([this] { Serve(); });
        // Every instance listens (or has its host) when this returns.
        m_changed.wait(lock, [&] { return m_serving; });
    }

    // Takes the instances away: the host's open transfers fail, new opens find no pipe. Waits for
    // the service thread and for writers (both are woken through m_stop). Called with m_mutex
    // held; releases it while it waits.
    void Unplug(std::unique_lock<std::mutex>& lock) {
        if (!m_plugged) {
            return;
        }
        m_plugged = false;
        ::SetEvent(m_stop.Get());
        ::PostQueuedCompletionStatus(m_port.Get(), 0, kStopKey, nullptr);
        std::thread service = std::move(m_service);
        lock.unlock();
        if (service.joinable()) {
            service.join();
        }
        lock.lock();
        m_serving = false;
        m_changed.wait(lock, [&] { return m_writers == 0; });
        for (auto& instance : m_instances) {
            ::DisconnectNamedPipe(instance->pipe.Get());
        }
        m_instances.clear();
        m_port.Reset();
        m_requestSide = nullptr;
        m_inbound.clear();
        m_inboundStart = 0;
        m_changed.notify_all();
    }

    void Serve() {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            AdvanceAll();
            m_serving = true;
            m_changed.notify_all();
        }
        for (bool serving = m_failure.empty(); serving;) {
            DWORD count = 0;
            ULONG_PTR key = 0;
            OVERLAPPED* overlapped = nullptr;
            // A failed transfer comes as a packet too (FALSE with a record); only FALSE without one
            // is a failure of the port itself.
            const BOOL ok = ::GetQueuedCompletionStatus(m_port.Get(), &count, &key, &overlapped, INFINITE);
            const DWORD error = ::GetLastError();
            if (ok && overlapped == nullptr && key == kStopKey) {
                break;
            }
            std::lock_guard<std::mutex> lock(m_mutex);
            if (!ok && overlapped == nullptr) {
                Failed("GetQueuedCompletionStatus", error);
            } else if (overlapped == nullptr) {
                AdvanceAll(); // kResumeKey: Read made room in the queue
            } else if (key >= kFirstInstanceKey && key - kFirstInstanceKey < m_instances.size()) {
                Instance& instance = *m_instances[key - kFirstInstanceKey];
                // A packet for a transfer handled already (it completed at once and was taken up
                // then) finds the instance waiting for its next one: nothing to do.
                if (overlapped == &instance.overlapped && instance.Completed()) {
                    AdvanceOne(instance);
                }
            }
            serving = m_failure.empty();
        }
        // The requests of this thread end with it; the records must stay valid until they have.
        std::lock_guard<std::mutex> lock(m_mutex);
        for (auto& instance : m_instances) {
            if (instance->op != Instance::Op::none) {
                ::CancelIoEx(instance->pipe.Get(), &instance->overlapped);
                ::WaitForSingleObject(instance->event.Get(), INFINITE);
                instance->op = Instance::Op::none;
            }
        }
    }

    // The channel stops serving for good: Read answers -1, Write false. The simulator has no
    // other way to report it, so the reason goes to standard error.
    void Failed(const std::string& call, DWORD error) {
        if (m_failure.empty()) {
            m_failure = "ServerChannel: " + call + " failed (Win32 error " + std::to_string(error) + ")";
            std::fprintf(stderr, "%s\n", m_failure.c_str());
        }
        m_changed.notify_all();
    }

    size_t InboundSize() const { return m_inbound.size() - m_inboundStart; }

    // Hands queued request bytes to Read (m_mutex held).
    size_t TakeInbound(uint8_t* buffer, size_t capacity) {
        const bool wasFull = InboundSize() >= kInboundLimit;
        const size_t count = std::min(capacity, InboundSize());
        std::memcpy(buffer, m_inbound.data() + m_inboundStart, count);
        m_inboundStart += count;
        if (m_inboundStart == m_inbound.size()) {
            m_inbound.clear();
            m_inboundStart = 0;
        } else if (m_inboundStart >= kInboundLimit) {
            m_inbound.erase(m_inbound.begin(),
                            m_inbound.begin() + static_cast<std::ptrdiff_t>(m_inboundStart));
            m_inboundStart = 0;
        }
        if (wasFull && InboundSize() < kInboundLimit && m_port.Valid()) {
            ::PostQueuedCompletionStatus(m_port.Get(), 0, kResumeKey, nullptr);
        }
        return count;
    }

    // Called by the service thread with m_mutex held. Only at the start and when Read has made
    // room: then no instance has request bytes that another instance's could overtake.
    void AdvanceAll() {
        for (auto& instance : m_instances) {
            AdvanceOne(*instance);
        }
    }

    void AdvanceOne(Instance& instance) {
        try {
            if (Advance(instance)) {
                m_changed.notify_all();
            }
        } catch (const SystemFailure& e) {
            Failed(e.call, e.error);
        }
    }

    // Moves one instance on until it waits for something: a client, request bytes, or room in the
    // queue. A transfer that completes at once is taken up here, before any other instance's
    // packet: its bytes were waiting before the host could have opened a later transaction.
    // Returns true when Read has something new to look at.
    bool Advance(Instance& instance) {
        bool changed = false;
        for (;;) {
            switch (instance.op) {
            case Instance::Op::none:
                if (!instance.connected) {
                    StartConnect(instance);
                } else if (InboundSize() < kInboundLimit) {
                    StartRead(instance);
                } else {
                    return changed; // the queue is full: a resume packet brings the thread back
                }
                if (instance.op != Instance::Op::none && !instance.Completed()) {
                    return changed;
                }
                break;
            case Instance::Op::connect: {
                if (!instance.Completed()) {
                    return changed;
                }
                DWORD count = 0;
                const BOOL ok =
                    ::GetOverlappedResult(instance.pipe.Get(), &instance.overlapped, &count, FALSE);
                const DWORD error = ok ? ERROR_SUCCESS : ::GetLastError();
                instance.op = Instance::Op::none;
                if (ok || error == ERROR_PIPE_CONNECTED) {
                    instance.connected = true;
                } else {
                    Recycle(instance); // the client came and went before we looked
                }
                break;
            }
            case Instance::Op::read: {
                if (!instance.Completed()) {
                    return changed;
                }
                DWORD count = 0;
                const BOOL ok =
                    ::GetOverlappedResult(instance.pipe.Get(), &instance.overlapped, &count, FALSE);
                const DWORD error = ok ? ERROR_SUCCESS : ::GetLastError();
                instance.op = Instance::Op::none;
                if (ok || error == ERROR_MORE_DATA) {
                    if (count > 0) {
                        m_inbound.insert(m_inbound.end(), instance.buffer.begin(),
                                         instance.buffer.begin() + count);
                        // Request bytes come from the host's write handle only.
                        m_requestSide = &instance;
                        changed = true;
                    }
                } else {
                    // ERROR_BROKEN_PIPE: the host closed its handle. Anything else (the pipe was
                    // disconnected, the request cancelled) ends this client's session just the same.
                    Recycle(instance);
                }
                break;
            }
            }
        }
    }

    void StartConnect(Instance& instance) {
        for (;;) {
            instance.Prepare(Instance::Op::connect);
            if (::ConnectNamedPipe(instance.pipe.Get(), &instance.overlapped)) {
                instance.op = Instance::Op::none;
                instance.connected = true;
                return;
            }
            const DWORD error = ::GetLastError();
            if (error == ERROR_IO_PENDING) {
                return;
            }
            instance.op = Instance::Op::none;
            if (error == ERROR_PIPE_CONNECTED) {
                instance.connected = true; // the client was quicker than this call
                return;
            }
            if (error != ERROR_NO_DATA) {
                throw SystemFailure{"ConnectNamedPipe", error};
            }
            ::DisconnectNamedPipe(instance.pipe.Get()); // connected and already gone: listen again
        }
    }

    void StartRead(Instance& instance) {
        instance.Prepare(Instance::Op::read);
        if (!::ReadFile(instance.pipe.Get(), instance.buffer.data(), kBufferSize, nullptr,
                        &instance.overlapped)) {
            const DWORD error = ::GetLastError();
            if (error != ERROR_IO_PENDING && error != ERROR_MORE_DATA) {
                instance.op = Instance::Op::none;
                Recycle(instance);
            }
        }
        // Done at once or not: the event is set on completion, and Advance picks the result up.
    }

    // The host has gone from this instance: make it listen for the next one.
    void Recycle(Instance& instance) {
        ::DisconnectNamedPipe(instance.pipe.Get());
        instance.connected = false;
        if (m_requestSide == &instance) {
            m_requestSide = nullptr;
        }
    }

    // Where bytes go (m_mutex held).
    // Printer: to the host's read handle, that is every attached instance except the one the
    // requests came from (its write-only handle). A reply follows a request, which the service
    // thread saw after both of the host's opens, so this view is current. Instances that get a
    // host only later must not be written to: the bytes would reach the host's next transaction.
    // Before any request has arrived there is no telling the two handles apart, so both get the
    // bytes; the copy sent to the write-only handle is never read and vanishes when it is closed.
    // HID: every instance, as a HID device sends each report to every open handle. Instances
    // without a host refuse the write at once (ERROR_PIPE_LISTENING), and the service thread
    // learns of a host only a moment after the host's open has returned.
    std::vector<Instance*> Targets() {
        std::vector<Instance*> targets;
        for (auto& instance : m_instances) {
            if (m_kind == Kind::hid || (instance->Attached() && instance.get() != m_requestSide)) {
                targets.push_back(instance.get());
            }
        }
        return targets;
    }

    // Writes the bytes in pieces to the targets; a target that falls behind another, fails or
    // goes away is dropped. True when at least one target took everything.
    bool WriteTo(std::vector<std::unique_ptr<PendingWrite>>& writes, const uint8_t* data, size_t size) {
        const DWORD stallMs = m_kind == Kind::printer ? kPrinterStallMs : kHidStallMs;
        size_t done = 0;
        do {
            const DWORD piece = static_cast<DWORD>(std::min<size_t>(size - done, kBufferSize));
            std::vector<HANDLE> handles{m_stop.Get()};
            for (auto it = writes.begin(); it != writes.end();) {
                PendingWrite& write = **it;
                ::ResetEvent(write.event.Get());
                write.overlapped = OVERLAPPED{};
                // The low bit keeps the completion off the service thread's port; the event is
                // still set.
                write.overlapped.hEvent =
                    reinterpret_cast<HANDLE>(reinterpret_cast<ULONG_PTR>(write.event.Get()) | 1);
                if (!::WriteFile(write.instance->pipe.Get(), data + done, piece, nullptr,
                                 &write.overlapped) &&
                    ::GetLastError() != ERROR_IO_PENDING) {
                    it = writes.erase(it); // nobody there (ERROR_NO_DATA, ERROR_PIPE_NOT_CONNECTED, ...)
                    continue;
                }
                handles.push_back(write.event.Get());
                ++it;
            }
            if (writes.empty()) {
                return false;
            }
            const DWORD result =
                ::WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE, stallMs);
            const bool anyDone = result > WAIT_OBJECT_0 && result < WAIT_OBJECT_0 + handles.size();
            for (auto it = writes.begin(); it != writes.end();) {
                PendingWrite& write = **it;
                bool keep = false;
                if (anyDone && HasOverlappedIoCompleted(&write.overlapped)) {
                    DWORD count = 0;
                    keep =
                        ::GetOverlappedResult(write.instance->pipe.Get(), &write.overlapped, &count, FALSE) &&
                        count == piece;
                } else {
                    ::CancelIoEx(write.instance->pipe.Get(), &write.overlapped);
                    ::WaitForSingleObject(write.event.Get(), INFINITE);
                }
                it = keep ? it + 1 : writes.erase(it);
            }
            if (writes.empty()) {
                return false;
            }
            done += piece;
        } while (done < size);
        return true;
    }

    // A transaction needs two listening instances, and the host opens its next transaction as soon
    // as it has closed the last one, often before the service thread has seen the close. With
    // only two instances that race is lost at once, and then for good: each failed open takes the
    // one instance that is listening again (measured under wine: 299 of 300 back-to-back
    // transactions failed with ERROR_PIPE_BUSY). Spare instances keep the host's opens
    // independent of the service thread's timing; on a loaded machine (two cores, a dozen
    // runnable processes) two spares still ran out about once in a few hundred update runs, so
    // there are six: enough for three transactions to close before the service thread catches up.
    // A HID handle may likewise be reopened at once, and like a real HID device the channel serves
    // several readers.
    static constexpr size_t kPrinterInstances = 8;
    static constexpr size_t kHidInstances = 2;

    const Kind m_kind;
    const std::wstring m_path;
    Handle m_stop;          // manual reset: set while unplugging; wakes writers
    Handle m_port;          // completions of the instances' connects and reads, while plugged
    std::mutex m_plugMutex; // serialises Disconnect, Reconnect and destruction
    std::mutex m_mutex;     // everything below
    std::condition_variable m_changed;
    bool m_plugged = false;
    bool m_serving = false; // the service thread has made its first pass over the instances
    bool m_closing = false;
    int m_calls = 0;
    int m_writers = 0;
    std::string m_failure;
    std::vector<std::unique_ptr<Instance>> m_instances;
    Instance* m_requestSide = nullptr;
    std::vector<uint8_t> m_inbound; // request bytes from m_inboundStart on are not taken yet
    size_t m_inboundStart = 0;
    std::thread m_service;
};

} // namespace

std::unique_ptr<ServerChannel> ServerChannel::Create(Kind kind) {
    return std::make_unique<WindowsServerChannel>(kind);
}

std::unique_ptr<ServerChannel> ServerChannel::OpenDeviceNode(const std::string& path, Kind) {
    throw std::runtime_error("ServerChannel: device nodes (" + path + ") are served on Linux only");
}

} // namespace vela::sim
