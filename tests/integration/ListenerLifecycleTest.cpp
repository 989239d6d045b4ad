// Listeners and gateways coming and going while the monitor thread calls them: every wait is for
// what is removed only, bounded, and what a stuck call uses stays alive. The stop bound is made
// small through the seam; the simulator sends the reports over the real channel.
#include "SimulatedPrinter.h"

#include "kom/connection/PrinterStatusThread.h"
#include "kom/connection/StatusMonitorState.h"
#include "qrv/ManagedQRVDeviceGateway.h"
#include "support/RecordingListener.h"
#include "support/TestSupport.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <future>
#include <mutex>
#include <thread>

using vela::kom::ManagedQRVDeviceGateway;
using vela::kom::PrinterStatusThread;
using vela::kom::StatusMonitorState;
using vela::printer::communication::PrinterStatusEventArgs;
using vela::test::LogCapture;
using namespace std::chrono;

namespace {

constexpr uint32_t kBound = 400;         // the stop bound in these tests
constexpr milliseconds kSlack{1500};     // scheduling of a loaded machine, sanitizers, wine
constexpr milliseconds kPatience{10000}; // an upper limit for waits that end by themselves
const std::wstring kTimeout = L"PrinterStatusThread::Stop() - WaitForSingleObject() did tiemout!";

class Gate {
public:
    void Open() {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }
    bool Wait(milliseconds limit = kPatience) {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_changed.wait_for(lock, limit, [this] { return m_open; });
    }
    bool IsOpen() {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_open;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
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

template <class F> milliseconds Timed(F&& f) {
    const auto start = steady_clock::now();
    f();
    return duration_cast<milliseconds>(steady_clock::now() - start);
}

size_t Lines(const LogCapture& log, const std::wstring& text) {
    size_t n = 0;
    for (const auto& line : log.Lines()) {
        n += line.text == text ? 1 : 0;
    }
    return n;
}

class ListenerLifecycle : public vela::test::SimulatedPrinter {
protected:
    void SetUp() override {
        SimulatedPrinter::SetUp();
        m_previousBound = PrinterStatusThread::SetStopWaitOverride(kBound);
    }
    void TearDown() override {
        PrinterStatusThread::SetStopWaitOverride(m_previousBound);
        SimulatedPrinter::TearDown();
    }
    // Changes the printer's status until `gate` opens (the monitor may open the channel late).
    bool PulseUntil(Gate& gate) {
        for (int i = 0; i < 100; ++i) {
            Printer().SetDoorOpen(i % 2 == 0);
            if (gate.Wait(milliseconds(100))) {
                return true;
            }
        }
        return false;
    }
    static bool InWindow(milliseconds waited) {
        return waited >= milliseconds(kBound) && waited < milliseconds(kBound) + kSlack;
    }

    uint32_t m_previousBound = 0;
};

} // namespace

TEST_F(ListenerLifecycle, AStuckOnlyListenerIsGivenUpAfterTheBoundAndKeptAliveUntilItReturns) {
    LogCapture log;
    auto listener = std::make_shared<BlockingListener>();
    const std::weak_ptr<BlockingListener> weak = listener;
    Facade().RegisterListener(listener);
    ASSERT_TRUE(PulseUntil(listener->entered));

    EXPECT_TRUE(InWindow(Timed([&] { Facade().DeregisterListener(listener.get()); })));
    EXPECT_EQ(Lines(log, kTimeout), 1u);
    listener.reset(); // what an owner does once the deregistration returned
    ASSERT_FALSE(weak.expired()) << "the monitor thread still holds the listener in its call";
    weak.lock()->release.Open();
    EXPECT_TRUE(Eventually([&] { return weak.expired(); }));
}

// The deadlock of a subscriber that waits for a thread which closes another gateway.
TEST_F(ListenerLifecycle, ClosingAGatewayDoesNotWaitForAnotherGatewaysSubscriber) {
    ManagedQRVDeviceGateway first, second;
    first.Open(Name());
    second.Open(Name());
    Gate entered, done;
    std::promise<void> closed;
    std::atomic<bool> sawClose{false};
    second.OnPrinterStatusChanged().Add([&](const PrinterStatusEventArgs&) {
        if (!entered.IsOpen()) {
            entered.Open();
            sawClose = closed.get_future().wait_for(seconds(3)) == std::future_status::ready;
            done.Open();
        }
    });
    std::thread closer([&] {
        entered.Wait();
        first.Close();
        closed.set_value();
    });
    ASSERT_TRUE(PulseUntil(entered));
    closer.join();
    ASSERT_TRUE(done.Wait());
    EXPECT_TRUE(sawClose);
}

TEST_F(ListenerLifecycle, CloseIsBoundedWhileItsSubscriberWaitsForTheClosingThread) {
    LogCapture log;
    auto gateway = std::make_unique<ManagedQRVDeviceGateway>();
    gateway->Open(Name());
    Gate entered, closed, left;
    gateway->OnPrinterStatusChanged().Add([&](const PrinterStatusEventArgs&) {
        if (!entered.IsOpen()) {
            entered.Open();
            closed.Wait(seconds(5));
            left.Open();
        }
    });
    ASSERT_TRUE(PulseUntil(entered));
    EXPECT_TRUE(InWindow(Timed([&] { gateway->Close(); })));
    EXPECT_EQ(Lines(log, kTimeout), 1u);
    gateway.reset(); // while its subscriber still runs on the monitor thread
    closed.Open();
    EXPECT_TRUE(left.Wait());
}

TEST_F(ListenerLifecycle, AGatewayDestroyedByItsOwnSubscriberIsReleasedWhenTheSubscriberReturns) {
    LogCapture log;
    auto gateway = std::make_unique<ManagedQRVDeviceGateway>();
    gateway->Open(Name());
    Gate destroyed;
    std::atomic<int64_t> tookMs{-1}, laterCalls{0};
    gateway->OnPrinterStatusChanged().Add([&](const PrinterStatusEventArgs&) {
        if (destroyed.IsOpen()) {
            ++laterCalls;
            return;
        }
        tookMs = Timed([&] { gateway.reset(); }).count();
        destroyed.Open();
    });
    ASSERT_TRUE(PulseUntil(destroyed));
    EXPECT_LT(tookMs, 200) << "no wait on itself";
    const auto state = StatusMonitorState::Instance();
    EXPECT_TRUE(Eventually([&] { return state->ListenerCount() == 0 && !state->thread.Exists(); }));
    EXPECT_FALSE(log.ContainsSubstring(L"did tiemout!"));
    EXPECT_EQ(laterCalls, 0);
}

TEST_F(ListenerLifecycle, RegisteringFromAListenerDoesNotWaitForAStopInProgress) {
    LogCapture log;
    vela::test::RecordingListener late;
    auto listener = std::make_shared<BlockingListener>();
    std::atomic<int64_t> registerMs{-1};
    listener->then = [&] { registerMs = Timed([&] { Facade().RegisterListener(&late); }).count(); };
    Facade().RegisterListener(listener);
    ASSERT_TRUE(PulseUntil(listener->entered));

    const auto state = StatusMonitorState::Instance();
    std::thread stopper([&] { Facade().DeregisterListener(listener.get()); });
    Eventually([&] { return state->ListenerCount() == 0; }, 200); // the stopper is in its wait
    listener->release.Open();
    stopper.join();
    EXPECT_LT(registerMs, int64_t(kBound / 2));

    // As after any last deregistration: the new thread has no stop event and ends by itself.
    EXPECT_EQ(state->Listeners(), std::vector<vela::kom::INativeQRVListener*>{&late});
    EXPECT_TRUE(Eventually([&] { return state->thread.Exists() && !state->thread.IsStillActive(); }));
#ifndef _WIN32 // there the old thread may still hold the simulator's pipe: the new one then ends quietly
    EXPECT_TRUE(log.Contains(L"PrinterStatusThread::StatusMonitor() - unknown poll() return code!"));
#endif
    Facade().DeregisterListener(&late);
}
