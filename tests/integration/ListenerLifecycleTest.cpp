// A removal waits only for calls to what it removes, never past the stop bound, and what a stuck
// call uses stays alive.
#include "kom/connection/NativeQRVDevice.h"
#include "kom/connection/PrinterStatusThread.h"
#include "kom/connection/StatusMonitorState.h"
#include "qrv/ManagedQRVDeviceGateway.h"
#include "support/FaultChecks.h"
#include "support/RecordingListener.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <future>
#include <mutex>
#include <random>
#include <thread>

namespace {

namespace host = vela::printer::communication;
using vela::kom::ManagedQRVDeviceGateway;
using vela::kom::PrinterStatusThread;
using namespace std::chrono;
using vela::test::Eventually;

constexpr uint32_t kBound = 400;     // the stop bound in these tests
constexpr milliseconds kSlack{2000}; // scheduling of a loaded machine, sanitizers, wine

// Opens for good (Open), or only for those waiting at the moment (Pulse).
struct Gate {
    void Open(bool forGood = true) {
        std::lock_guard<std::mutex> lock(mutex);
        open = open || forGood, ++pulses;
        changed.notify_all();
    }
    bool Wait(milliseconds limit = seconds(10)) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, limit, [&, seen = pulses] { return open || pulses != seen; });
    }
    std::mutex mutex;
    std::condition_variable changed;
    bool open = false;
    uint64_t pulses = 0;
};

template <class F> milliseconds Timed(F&& f) {
    const auto start = steady_clock::now();
    f();
    return duration_cast<milliseconds>(steady_clock::now() - start);
}

struct SmallBound { // the seam, while it lives
    ~SmallBound() { PrinterStatusThread::SetStopWaitOverride(previous); }
    const uint32_t previous = PrinterStatusThread::SetStopWaitOverride(kBound);
};

// Its first status call opens `entered`, waits for `release`, then runs `then`.
struct BlockingListener : vela::kom::INativeQRVListener {
    void OnPrinterStatusChangedEvent(const vela::kom::PrinterStatus&) override {
        if (calls++ == 0) {
            entered.Open();
            release.Wait();
            if (then) {
                then();
            }
        }
    }
    void OnPrinterInterruptEvent(uint32_t, uint32_t) override {}
    std::atomic<int> calls{0};
    Gate entered, release;
    std::function<void()> then;
};

class ListenerLifecycle : public ::testing::Test {
protected:
    // Changes the printer's status until `gate` opens (the monitor may open its channel late).
    bool PulseUntil(Gate& gate) {
        for (int i = 0; i < 100; ++i) {
            m_printer.Printer().SetDoorOpen(i % 2 == 0);
            if (gate.Wait(milliseconds(100))) {
                return true;
            }
        }
        return false;
    }
    // The stop ran into the bound, said so once, and nothing else went wrong.
    void ExpectOneTimeout(milliseconds waited) {
        EXPECT_GE(waited, milliseconds(kBound));
        EXPECT_LT(waited, milliseconds(kBound) + kSlack);
        EXPECT_EQ(m_log.Count(vela::common::LogLevel::warning), 1u);
        EXPECT_TRUE(m_log.Contains(L"PrinterStatusThread::Stop() - WaitForSingleObject() did tiemout!"));
    }

    SmallBound m_bound;
    vela::test::LogCapture m_log;
    vela::test::SimulatedPrinter m_printer{vela::test::SimulatedPrinter::Options{true}};
    vela::kom::NativeQRVDevice m_facade{m_printer.Name(), 0};
    const std::shared_ptr<vela::kom::StatusMonitorState> m_state = vela::kom::StatusMonitorState::Instance();
};

TEST_F(ListenerLifecycle, AStuckOnlyListenerIsGivenUpAfterTheBoundAndKeptAliveUntilItReturns) {
    auto listener = std::make_shared<BlockingListener>();
    const std::weak_ptr<BlockingListener> weak = listener;
    m_facade.RegisterListener(listener);
    ASSERT_TRUE(PulseUntil(listener->entered));
    ExpectOneTimeout(Timed([&] { m_facade.DeregisterListener(listener.get()); }));
    listener.reset(); // what an owner does once the deregistration returned
    ASSERT_FALSE(weak.expired()) << "the monitor thread holds the listener through its call";
    weak.lock()->release.Open();
    EXPECT_TRUE(Eventually([&] { return weak.expired(); }));
}

// A subscriber waits for the thread that closes another gateway: that Close must not wait for it.
TEST_F(ListenerLifecycle, ClosingAGatewayDoesNotWaitForAnotherGatewaysSubscriber) {
    ManagedQRVDeviceGateway first, second;
    first.Open(m_printer.Name());
    second.Open(m_printer.Name());
    Gate entered;
    std::promise<void> closed;
    std::promise<bool> sawClose;
    second.OnPrinterStatusChanged().Add([&](const host::PrinterStatusEventArgs&) {
        if (!entered.open) {
            entered.Open();
            sawClose.set_value(closed.get_future().wait_for(seconds(3)) == std::future_status::ready);
        }
    });
    std::thread closer([&] { entered.Wait(), first.Close(), closed.set_value(); });
    ASSERT_TRUE(PulseUntil(entered));
    closer.join();
    EXPECT_TRUE(sawClose.get_future().get());
}

// Close gives up after the bound, with its one warning, even while the subscriber waits for it.
TEST_F(ListenerLifecycle, CloseIsBoundedWhileItsSubscriberWaitsForTheClosingThread) {
    auto gateway = std::make_unique<ManagedQRVDeviceGateway>();
    gateway->Open(m_printer.Name());
    Gate entered, closed, left;
    gateway->OnPrinterStatusChanged().Add([&](const host::PrinterStatusEventArgs&) {
        if (!entered.open) {
            entered.Open(), closed.Wait(seconds(5)), left.Open();
        }
    });
    ASSERT_TRUE(PulseUntil(entered));
    ExpectOneTimeout(Timed([&] { gateway->Close(); }));
    gateway.reset(); // while its subscriber still runs on the monitor thread
    closed.Open();
    EXPECT_TRUE(left.Wait());
}

TEST_F(ListenerLifecycle, AGatewayDestroyedByItsOwnSubscriberIsReleasedWhenTheSubscriberReturns) {
    auto gateway = std::make_unique<ManagedQRVDeviceGateway>();
    gateway->Open(m_printer.Name());
    Gate destroyed;
    std::atomic<int64_t> tookMs{-1};
    gateway->OnPrinterStatusChanged().Add([&](const host::PrinterStatusEventArgs&) {
        tookMs = Timed([&] { gateway.reset(); }).count(); // called once: the gateway is gone after
        destroyed.Open();
    });
    ASSERT_TRUE(PulseUntil(destroyed));
    EXPECT_LT(tookMs, 200) << "no wait on itself";
    EXPECT_TRUE(Eventually([&] {
        std::lock_guard<std::recursive_mutex> lock(m_state->Lifecycle()); // the monitor thread stops it
        return m_state->ListenerCount() == 0 && !m_state->thread.Exists();
    }));
    EXPECT_FALSE(m_log.ContainsSubstring(L"did tiemout!"));
}

TEST_F(ListenerLifecycle, RegisteringFromAListenerDoesNotWaitForAStopInProgress) {
    vela::test::RecordingListener late;
    auto listener = std::make_shared<BlockingListener>();
    std::atomic<int64_t> registerMs{-1};
    listener->then = [&] { registerMs = Timed([&] { m_facade.RegisterListener(&late); }).count(); };
    m_facade.RegisterListener(listener);
    ASSERT_TRUE(PulseUntil(listener->entered));
    std::thread stopper([&] { m_facade.DeregisterListener(listener.get()); });
    Eventually([&] { return m_state->ListenerCount() == 0; }, 200); // the stop waits
    listener->release.Open();
    stopper.join();
    EXPECT_LT(registerMs, int64_t(kBound / 4));
    // As after any last deregistration: the new thread has no stop event and ends by itself.
    EXPECT_EQ(m_state->Listeners(), std::vector<vela::kom::INativeQRVListener*>{&late});
    EXPECT_TRUE(Eventually([&] { return m_state->thread.Exists() && !m_state->thread.IsStillActive(); }));
#ifndef _WIN32 // there the old thread may still hold the simulator's pipe: the new one then ends quietly
    EXPECT_TRUE(m_log.Contains(L"PrinterStatusThread::StatusMonitor() - unknown poll() return code!"));
#endif
    m_facade.DeregisterListener(&late);
}

// Four threads open (registering the gateway's listener), close and destroy gateways, and add and
// remove subscriptions. Callbacks block on a latch, raise, subscribe, remove themselves, close
// another gateway, destroy their own, or stall once past the bound.
enum Act { latch, raise, subscribe, removeSelf, closeOther, destroyOwn, stall, kActs };
constexpr uint32_t kEnoughCalls = 200;

class Stress {
public:
    struct Subscription {
        std::atomic<uint64_t> token{0};
        std::atomic<bool> removed{false};
        std::atomic<int> inCall{0}, calls{0};
    };
    struct Slot {
        std::mutex mutex; // held by workers for a whole step; callbacks only try it
        std::unique_ptr<ManagedQRVDeviceGateway> gateway;
        std::vector<std::shared_ptr<Subscription>> subscriptions;
        // Calls in progress since the last Open (std::atomic_load/store: read without the mutex).
        std::shared_ptr<std::atomic<int>> inCall = std::make_shared<std::atomic<int>>(0);
        std::atomic<bool> closed{true}; // a Close or the destruction returned
        bool gaveUp = false;            // a Close since the last Open ran out of time
    };
    void Run() {
        std::atomic<bool> done{false};
        std::thread pulse([&] {
            for (uint32_t i = 0; !done; ++i) {
                m_printer.Printer().SetDoorOpen(i % 2 == 0);
                m_latch.Open(false);
                std::this_thread::sleep_for(milliseconds(2));
            }
        });
        // At least 500 steps each, and on until the monitor thread made enough calls: on wine
        // that rate varies with what ran before, so the limit is a time, not a number of steps.
        const auto giveUp = steady_clock::now() + seconds(60);
        std::vector<std::thread> workers;
        for (int w = 0; w < 4; ++w) {
            workers.emplace_back([this, w, giveUp] {
                std::mt19937 rng(20240611 + w);
                for (int i = 0; i < 500 || (m_callbacks < kEnoughCalls && steady_clock::now() < giveUp);
                     ++i) {
                    Step(rng);
                    std::this_thread::sleep_for(microseconds(500)); // room for the monitor's calls
                }
            });
        }
        for (auto& worker : workers) {
            worker.join();
        }
        for (auto& slot : m_slots) { // the last one stops the monitor thread
            std::lock_guard<std::mutex> lock(slot.mutex);
            Destroy(slot, 0);
        }
        done = true;
        pulse.join();
    }

    vela::test::SimulatedPrinter m_printer{vela::test::SimulatedPrinter::Options{true}};
    std::vector<std::string> m_violations; // under m_violationMutex
    std::atomic<uint32_t> m_callbacks{0};

private:
    void Step(std::mt19937& rng) {
        const uint32_t r = rng() % 100;
        Slot& slot = m_slots[rng() % m_slots.size()];
        std::lock_guard<std::mutex> lock(slot.mutex);
        if (r < 20 || !slot.gateway) {
            if (!slot.gateway) {
                slot.gateway = std::make_unique<ManagedQRVDeviceGateway>();
            }
            std::atomic_store(&slot.inCall, std::make_shared<std::atomic<int>>(0));
            slot.gaveUp = slot.closed = false;
            slot.gateway->Open(m_printer.Name());
        } else if (r < 35) {
            Release(slot, "Close", 0, [&] { slot.gateway->Close(); });
        } else if (r < 40) {
            Destroy(slot, 0);
        } else if (r < 72) {
            const auto act = static_cast<Act>(rng() % kActs);
            Subscribe(slot, act == stall && rng() % 16 != 0 ? latch : act); // stalls are rare
        } else if (!slot.subscriptions.empty()) {
            const size_t index = rng() % slot.subscriptions.size();
            const auto sub = slot.subscriptions[index];
            slot.subscriptions.erase(slot.subscriptions.begin() + index);
            if (Bounded("Remove", [&] { slot.gateway->OnPrinterStatusChanged().Remove(sub->token); }) &&
                sub->inCall != 0) {
                Violation("a subscriber still ran when its Remove returned");
            }
            sub->removed = true;
        }
    }

    void Subscribe(Slot& slot, Act act) {
        ManagedQRVDeviceGateway* gateway = slot.gateway.get();
        auto sub = std::make_shared<Subscription>();
        sub->token = gateway->OnPrinterStatusChanged().Add([this, &slot, gateway, act, sub](const auto&) {
            if (sub->removed || slot.closed) {
                Violation("a subscriber (act " + std::to_string(act) +
                          ") was called after its removal or Close");
            }
            const auto calls = std::atomic_load(&slot.inCall);
            ++m_callbacks, ++*calls, ++sub->inCall;
            if (act == latch) {
                m_latch.Wait(milliseconds(50));
            } else if (act == raise) {
                gateway->ThrowPrintInterruptEvent(
                    host::PrintInterruptEventArgs(1, host::EPrintInterruptIssue::cassetteMissing, 0));
            } else if (act == removeSelf && sub->token != 0) {
                sub->removed = gateway->OnPrinterStatusChanged().Remove(sub->token);
            } else if (act == stall && sub->calls++ == 0) {
                std::this_thread::sleep_for(milliseconds(kBound + 100));
            } else if (act == closeOther) {
                CloseSome(&slot);
            } else if ((act == subscribe || act == destroyOwn) && slot.mutex.try_lock()) {
                if (slot.gateway.get() == gateway && act == destroyOwn) {
                    Destroy(slot, 1); // the gateway is gone from here on
                } else if (slot.gateway.get() == gateway && slot.subscriptions.size() < 10) {
                    Subscribe(slot, static_cast<Act>(m_callbacks % stall));
                }
                slot.mutex.unlock();
            }
            --*calls, --sub->inCall;
        });
        slot.subscriptions.push_back(sub);
    }

    void CloseSome(Slot* own) {
        Slot& slot = m_slots[m_callbacks % m_slots.size()];
        if (&slot != own && slot.mutex.try_lock()) {
            if (slot.gateway) {
                Release(slot, "Close from a callback", 0, [&] { slot.gateway->Close(); });
            }
            slot.mutex.unlock();
        }
    }

    // Under the slot's mutex; `own`: its subscribers' calls on this thread. Removed once it returned.
    void Destroy(Slot& slot, int own) {
        Release(slot, "destruction", own, [&] { slot.gateway.reset(); });
        for (auto& sub : slot.subscriptions) {
            sub->removed = true;
        }
        slot.subscriptions.clear();
    }

    // A subscriber that outlived an earlier Close since the last Open may still run.
    template <class F> void Release(Slot& slot, const char* what, int own, F&& release) {
        if (!Bounded(what, release)) {
            slot.gaveUp = true;
        } else if (!slot.gaveUp && *slot.inCall > own) {
            Violation(std::string("a subscriber still ran when ") + what + " returned");
        }
        slot.closed = true;
    }

    // True when `f` returned before the bound ran out: then nothing it removed may still run.
    template <class F> bool Bounded(const std::string& what, F&& f) {
        const milliseconds waited = Timed(f);
        if (waited > milliseconds(kBound) + kSlack) {
            Violation(what + " waited " + std::to_string(waited.count()) + " ms");
        }
        return waited < milliseconds(kBound);
    }

    void Violation(const std::string& what) {
        std::lock_guard<std::mutex> lock(m_violationMutex);
        m_violations.push_back(what);
    }

    std::array<Slot, 3> m_slots;
    Gate m_latch; // pulsed every 2 ms: a wait on it ends with the next pulse
    std::mutex m_violationMutex;
};

TEST(ListenerLifecycleStress, NothingIsCalledAfterItsRemovalAndNothingWaitsPastTheBound) {
    vela::test::QuietLog quiet; // the stalls log their time-outs
    SmallBound bound;
    Stress stress;
    const auto before = vela::test::ResourceSnapshot::Take();
    stress.Run();
    // Counted before any assertion: the first failure on a thread costs a thread and a handle
    // of the test framework's own on Windows.
    const bool threadsEnded = Eventually([&] { return vela::test::ThreadCount() == before.threads; });
    const size_t descriptors = vela::test::SettledHandleCount(before.descriptors);
    const auto& violations = stress.m_violations;
    EXPECT_TRUE(violations.empty()) << violations.size() << " violations, the first: " << violations.front();
    EXPECT_GE(stress.m_callbacks, kEnoughCalls) << "the monitor thread hardly called anybody";
    EXPECT_TRUE(threadsEnded) << "given up on, yet ended";
    EXPECT_EQ(descriptors, before.descriptors);
}

} // namespace
