// Threads make and break listeners, subscriptions and gateways while the monitor thread calls
// them with a steady stream of status changes from the simulator, and while the callbacks sleep,
// block on a latch, raise, subscribe, remove themselves, and close or destroy gateways. Nothing
// may be called once its removal returned, no wait may pass the stop bound, and the process ends
// with the threads and descriptors it began with. Under the sanitizer presets it also shows that
// no call touches what was freed. The steps are drawn from a fixed seed.
#include "kom/connection/NativeQRVDevice.h"
#include "kom/connection/PrinterStatusThread.h"
#include "qrv/ManagedQRVDeviceGateway.h"
#include "reliability/FaultChecks.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace host = vela::printer::communication;
using vela::kom::ManagedQRVDeviceGateway;
using namespace std::chrono;

constexpr uint32_t kBound = 400;     // the stop bound, through the seam
constexpr milliseconds kSlack{2000}; // scheduling of a loaded machine, sanitizers, wine
constexpr int kWorkers = 4, kSteps = 600, kRounds = 6;
constexpr uint32_t kSeed = 20240611;
constexpr size_t kSlots = 3;

enum Act {
    sleepBriefly,
    waitForLatch,
    raise,
    subscribe,
    removeSelf,
    closeOther,
    closeOwn,
    destroyOwn,
    stall,
    kActs
};

class Stress {
public:
    struct Slot {
        std::mutex mutex; // held by workers for every step on the slot; callbacks only try it
        std::unique_ptr<ManagedQRVDeviceGateway> gateway;
        std::vector<std::pair<uint64_t, std::shared_ptr<std::atomic<bool>>>> subscriptions;
        std::atomic<bool> closed{true}; // a Close or the destruction returned
    };
    // A raw listener, alive for the whole run; its act is drawn from its call count.
    struct Listener : vela::kom::INativeQRVListener {
        void OnPrinterStatusChangedEvent(const vela::kom::PrinterStatus&) override { stress->Heard(*this); }
        void OnPrinterInterruptEvent(uint32_t, uint32_t) override { stress->Heard(*this); }
        Stress* stress = nullptr;
        std::mutex mutex;
        std::atomic<bool> removed{true}; // not registered, or its deregistration returned
        std::atomic<uint32_t> calls{0};
    };

    Stress() : m_printer(vela::test::SimulatedPrinter::Options{true}) {
        for (auto& listener : m_listeners) {
            listener.stress = this;
        }
    }

    // Rounds that each end with everything torn down: a thread started without a stop event
    // (a registration after the last deregistration, before a new facade) stays until a stop.
    void Run() {
        std::atomic<bool> done{false};
        std::thread pulse([&] {
            for (uint32_t i = 0; !done; ++i) {
                m_printer.Printer().SetDoorOpen(i % 2 == 0);
                {
                    std::lock_guard<std::mutex> lock(m_latchMutex);
                    ++m_latch;
                }
                m_latchMoved.notify_all();
                std::this_thread::sleep_for(milliseconds(2));
            }
        });
        std::vector<std::mt19937> rngs;
        for (int w = 0; w < kWorkers; ++w) {
            rngs.emplace_back(kSeed + w);
        }
        for (int round = 0; round < kRounds; ++round) {
            for (auto& facade : m_facades) {
                facade = std::make_unique<vela::kom::NativeQRVDevice>(m_printer.Name(), 0);
            }
            std::vector<std::thread> workers;
            for (int w = 0; w < kWorkers; ++w) {
                workers.emplace_back([this, w, &rngs] {
                    for (int i = 0; i < kSteps / kRounds; ++i) {
                        Step(rngs[w], w);
                        std::this_thread::sleep_for(microseconds(500)); // room for the monitor's calls
                    }
                });
            }
            for (auto& worker : workers) {
                worker.join();
            }
            TearDown();
        }
        done = true;
        pulse.join();
    }

    void TearDown() {
        for (auto& slot : m_slots) {
            std::lock_guard<std::mutex> lock(slot.mutex);
            Destroy(slot);
        }
        for (auto& listener : m_listeners) {
            std::lock_guard<std::mutex> lock(listener.mutex);
            Bounded("deregistration", [&] { m_facades[0]->DeregisterListener(&listener); });
            listener.removed = true;
        }
        Bounded("last facade", [&] { m_facades = {}; });
    }

    std::vector<std::string> Violations() {
        std::lock_guard<std::mutex> lock(m_violationMutex);
        return m_violations;
    }
    uint32_t Callbacks() const { return m_callbacks; }
    uint32_t Refusals() const { return m_refusals; }

private:
    void Step(std::mt19937& rng, int worker) {
        const uint32_t r = rng() % 100;
        Slot& slot = m_slots[rng() % kSlots];
        if (r >= 75) {
            Listener& listener = m_listeners[worker * 2 + rng() % 2];
            auto& facade = *m_facades[rng() % m_facades.size()];
            std::lock_guard<std::mutex> lock(listener.mutex);
            if (listener.removed) {
                // Through a new facade, as a host opening a printer would: after the last
                // deregistration only a new facade brings the stop event back.
                listener.removed = false;
                vela::kom::NativeQRVDevice(m_printer.Name(), 0).RegisterListener(&listener);
            } else {
                Bounded("deregistration", [&] { facade.DeregisterListener(&listener); });
                listener.removed = true;
            }
            return;
        }
        std::lock_guard<std::mutex> lock(slot.mutex);
        if (r < 15 || !slot.gateway) {
            if (!slot.gateway) {
                slot.gateway = std::make_unique<ManagedQRVDeviceGateway>();
            }
            slot.closed = false;
            try {
                slot.gateway->Open(m_printer.Name());
            } catch (const host::HostException& e) {
                Violation(std::string("Open failed: ") + e.what());
            }
        } else if (r < 25) {
            Bounded("Close", [&] { slot.gateway->Close(); });
            slot.closed = true;
        } else if (r < 30) {
            Destroy(slot);
        } else if (r < 55) {
            const auto act = static_cast<Act>(rng() % kActs);
            Subscribe(slot, act == stall && rng() % 16 != 0 ? sleepBriefly : act); // stalls are rare

        } else if (!slot.subscriptions.empty()) {
            const size_t index = rng() % slot.subscriptions.size();
            const auto [token, removed] = slot.subscriptions[index];
            slot.subscriptions.erase(slot.subscriptions.begin() + index);
            Bounded("Remove", [&] { slot.gateway->OnPrinterStatusChanged().Remove(token); });
            *removed = true;
        }
    }

    // Under the slot's mutex.
    void Destroy(Slot& slot) {
        for (auto& subscription : slot.subscriptions) {
            *subscription.second = true; // set before: a stuck call may still be running after
        }
        slot.subscriptions.clear();
        Bounded("destruction", [&] { slot.gateway.reset(); });
        slot.closed = true;
    }

    void Subscribe(Slot& slot, Act act) {
        ManagedQRVDeviceGateway* gateway = slot.gateway.get();
        auto removed = std::make_shared<std::atomic<bool>>(false);
        auto token = std::make_shared<std::atomic<uint64_t>>(0);
        auto stalled = std::make_shared<std::atomic<bool>>(false);
        *token = gateway->OnPrinterStatusChanged().Add([this, &slot, gateway, act, removed, token,
                                                        stalled](const host::PrinterStatusEventArgs&) {
            if (*removed || slot.closed) {
                Violation("subscriber (act " + std::to_string(act) + ") called after its removal or Close");
            }
            ++m_callbacks;
            switch (act) {
            case sleepBriefly:
                std::this_thread::sleep_for(microseconds(300));
                break;
            case waitForLatch:
                WaitForLatch();
                break;
            case raise:
                gateway->ThrowPrintInterruptEvent(
                    host::PrintInterruptEventArgs(1, host::EPrintInterruptIssue::cassetteMissing, 0));
                break;
            case subscribe:
                if (slot.mutex.try_lock()) {
                    if (slot.gateway.get() == gateway && slot.subscriptions.size() < 10) {
                        Subscribe(slot, static_cast<Act>(m_callbacks % stall));
                    }
                    slot.mutex.unlock();
                }
                break;
            case removeSelf:
                if (*token != 0 && gateway->OnPrinterStatusChanged().Remove(*token)) {
                    *removed = true; // from here on no call may come
                }
                break;
            case closeOwn:
                try {
                    gateway->Close();
                    Violation("Close from its own subscriber was not refused");
                } catch (const host::PrinterException&) {
                    ++m_refusals;
                }
                break;
            case destroyOwn:
                if (slot.mutex.try_lock()) {
                    if (slot.gateway.get() == gateway) {
                        Destroy(slot);
                    }
                    slot.mutex.unlock();
                }
                break;
            case stall:
                if (!stalled->exchange(true)) {
                    std::this_thread::sleep_for(milliseconds(kBound + 100)); // past the bound, once
                }
                break;
            default:
                CloseSome(&slot);
            }
        });
        slot.subscriptions.emplace_back(*token, removed);
    }

    void Heard(Listener& listener) {
        if (listener.removed) {
            Violation("listener called after its deregistration returned");
        }
        ++m_callbacks;
        switch (++listener.calls % 5) {
        case 0:
            WaitForLatch();
            break;
        case 1:
            CloseSome(nullptr);
            break;
        case 2:
            if (listener.calls % 3 == 0 && listener.mutex.try_lock()) {
                m_facades[0]->DeregisterListener(&listener); // takes effect when this call returns
                listener.removed = true;
                listener.mutex.unlock();
            }
            break;
        default:
            std::this_thread::sleep_for(microseconds(200));
        }
    }

    // Closes a gateway other than `own`, if nobody works on it right now.
    void CloseSome(Slot* own) {
        Slot& slot = m_slots[m_callbacks % kSlots];
        if (&slot != own && slot.mutex.try_lock()) {
            if (slot.gateway) {
                Bounded("Close from a callback", [&] { slot.gateway->Close(); });
                slot.closed = true;
            }
            slot.mutex.unlock();
        }
    }

    void WaitForLatch() {
        std::unique_lock<std::mutex> lock(m_latchMutex);
        const uint64_t seen = m_latch;
        m_latchMoved.wait_for(lock, milliseconds(50), [&] { return m_latch != seen; });
    }

    template <class F> void Bounded(const std::string& what, F&& f) {
        const auto start = steady_clock::now();
        f();
        const auto waited = duration_cast<milliseconds>(steady_clock::now() - start);
        if (waited > milliseconds(kBound) + kSlack) {
            Violation(what + " waited " + std::to_string(waited.count()) + " ms");
        }
    }

    void Violation(const std::string& what) {
        std::lock_guard<std::mutex> lock(m_violationMutex);
        m_violations.push_back(what);
    }

    vela::test::SimulatedPrinter m_printer;
    std::array<std::unique_ptr<vela::kom::NativeQRVDevice>, 2> m_facades;
    std::array<Slot, kSlots> m_slots;
    std::array<Listener, kWorkers * 2> m_listeners;
    std::mutex m_latchMutex;
    std::condition_variable m_latchMoved;
    uint64_t m_latch = 0;
    std::atomic<uint32_t> m_callbacks{0}, m_refusals{0};
    std::mutex m_violationMutex;
    std::vector<std::string> m_violations;
};

TEST(ListenerLifecycleStress, NothingIsCalledAfterItsRemovalAndNothingWaitsPastTheBound) {
    vela::test::QuietLog quiet; // every stalled callback logs its time-out
    const uint32_t previousBound = vela::kom::PrinterStatusThread::SetStopWaitOverride(kBound);
    {
        Stress stress;
        const auto before = vela::test::ResourceSnapshot::Take();
        stress.Run();
        const auto violations = stress.Violations();
        EXPECT_TRUE(violations.empty())
            << violations.size() << " violations, the first: " << violations.front();
        EXPECT_GT(stress.Callbacks(), 200u) << "the monitor thread hardly called anybody";
        EXPECT_GT(stress.Refusals(), 0u);
        const auto deadline = steady_clock::now() + seconds(5); // given-up threads end by themselves
        while (vela::test::ThreadCount() != before.threads && steady_clock::now() < deadline) {
            std::this_thread::sleep_for(milliseconds(10));
        }
        EXPECT_EQ(vela::test::ThreadCount(), before.threads);
        EXPECT_EQ(vela::test::SettledHandleCount(before.descriptors), before.descriptors);
    }
    vela::kom::PrinterStatusThread::SetStopWaitOverride(previousBound);
}

} // namespace
