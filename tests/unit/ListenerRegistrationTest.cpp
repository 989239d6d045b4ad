// The facade's listener list and the monitor thread's start/stop rules, with the thread body
// replaced: no printer and no discovery are involved.
#include "kom/connection/NativeQRVDevice.h"
#include "kom/connection/PrinterStatusThread.h"
#include "kom/connection/StatusMonitorState.h"
#include "support/RecordingListener.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

using vela::kom::INativeQRVListener;
using vela::kom::NativeQRVDevice;
using vela::kom::PrinterStatusThread;
using vela::kom::StatusMonitorState;

namespace {

// Stands in for the thread body: records each run and, when it was given a stop event, waits
// for it (at most 10 s, so a broken stop fails the test instead of hanging it).
class FakeMonitor {
public:
    FakeMonitor() {
        m_previous = PrinterStatusThread::SetMonitorBody(
            [this](const std::wstring& name, std::shared_ptr<vela::common::Event> stop) {
                {
                    std::lock_guard<std::mutex> lock(m_mutex);
                    m_runs.push_back({name, stop != nullptr});
                    m_started.notify_all();
                }
                if (stop) {
                    stop->Wait(10000);
                }
                return 0;
            });
    }
    ~FakeMonitor() { PrinterStatusThread::SetMonitorBody(m_previous); }

    struct Run {
        std::wstring printerName;
        bool hadStopEvent;
    };
    // The runs so far, after waiting (up to 10 s) until there are at least `atLeast`.
    std::vector<Run> Runs(size_t atLeast = 0) const {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_started.wait_for(lock, std::chrono::seconds(10), [&] { return m_runs.size() >= atLeast; });
        return m_runs;
    }

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_started;
    std::vector<Run> m_runs;
    PrinterStatusThread::MonitorBody m_previous;
};

class ListenerRegistration : public ::testing::Test {
protected:
    void SetUp() override {
        m_state = StatusMonitorState::Instance();
        ASSERT_EQ(m_state->instanceCount, 0u);
        ASSERT_FALSE(m_state->thread.Exists());
        ASSERT_EQ(m_state->ListenerCount(), 0u);
    }
    void TearDown() override {
        EXPECT_EQ(m_state->instanceCount, 0u);
        EXPECT_FALSE(m_state->thread.Exists());
        EXPECT_EQ(m_state->ListenerCount(), 0u);
    }
    std::vector<INativeQRVListener*> Listeners() const { return m_state->Listeners(); }

    std::shared_ptr<StatusMonitorState> m_state;
    FakeMonitor m_monitor;
    vela::test::RecordingListener m_a, m_b, m_c;
};

} // namespace

TEST_F(ListenerRegistration, ListIsKeptInOrderWithoutDuplicates) {
    NativeQRVDevice facade(L"Queue 1", 0);
    facade.RegisterListener(nullptr);
    EXPECT_TRUE(Listeners().empty());
    EXPECT_FALSE(m_state->thread.Exists()) << "a null listener starts nothing";

    facade.RegisterListener(&m_a);
    facade.RegisterListener(&m_a);
    facade.RegisterListener(&m_b);
    facade.RegisterListener(&m_c);
    EXPECT_EQ(Listeners(), (std::vector<INativeQRVListener*>{&m_a, &m_b, &m_c}));
    EXPECT_EQ(m_monitor.Runs(1).size(), 1u) << "only the first registration starts the thread";

    facade.DeregisterListener(&m_b);
    facade.DeregisterListener(nullptr);
    vela::test::RecordingListener stranger;
    facade.DeregisterListener(&stranger);
    EXPECT_EQ(Listeners(), (std::vector<INativeQRVListener*>{&m_a, &m_c}));
    EXPECT_TRUE(m_state->thread.IsStillActive());

    facade.DeregisterListener(&m_a);
    facade.DeregisterListener(&m_c);
    EXPECT_TRUE(Listeners().empty());
    EXPECT_FALSE(m_state->thread.Exists());
}

TEST_F(ListenerRegistration, TheLastDeregistrationClosesTheStopEventUntilTheNextFacade) {
    NativeQRVDevice facade(L"Queue 1", 0);
    ASSERT_NE(m_state->stopEvent, nullptr);
    facade.RegisterListener(&m_a);
    ASSERT_EQ(m_monitor.Runs(1).size(), 1u);
    EXPECT_EQ(m_monitor.Runs()[0].printerName, L"Queue 1");
    EXPECT_TRUE(m_monitor.Runs()[0].hadStopEvent);

    facade.DeregisterListener(&m_a);
    EXPECT_FALSE(m_state->thread.Exists()) << "the thread was stopped";
    EXPECT_EQ(m_state->stopEvent, nullptr);

    // A thread started now has nothing to be stopped with.
    facade.RegisterListener(&m_a);
    ASSERT_EQ(m_monitor.Runs(2).size(), 2u);
    EXPECT_FALSE(m_monitor.Runs()[1].hadStopEvent);
    facade.DeregisterListener(&m_a);

    {
        NativeQRVDevice second(0);
        EXPECT_NE(m_state->stopEvent, nullptr) << "the next facade makes a new one";
        EXPECT_EQ(second.GetPrinterName(), L"DummyPrinter");
        second.RegisterListener(&m_b);
        ASSERT_EQ(m_monitor.Runs(3).size(), 3u);
        EXPECT_TRUE(m_monitor.Runs()[2].hadStopEvent);
        EXPECT_EQ(m_monitor.Runs()[2].printerName, L"DummyPrinter");
    }
    // Not the last facade: the thread and the list stay.
    EXPECT_TRUE(m_state->thread.IsStillActive());
    EXPECT_EQ(Listeners(), std::vector<INativeQRVListener*>{&m_b});
    facade.DeregisterListener(&m_b);
}

TEST_F(ListenerRegistration, TheLastFacadeStopsTheThreadAndEmptiesTheList) {
    auto first = std::make_unique<NativeQRVDevice>(L"Queue 1", 0);
    auto second = std::make_unique<NativeQRVDevice>(L"Queue 2", 0);
    EXPECT_EQ(m_state->instanceCount, 2u);
    first->RegisterListener(&m_a);
    second->RegisterListener(&m_b);

    first.reset();
    EXPECT_EQ(m_state->instanceCount, 1u);
    EXPECT_TRUE(m_state->thread.IsStillActive());
    EXPECT_EQ(Listeners().size(), 2u);

    second.reset();
    EXPECT_FALSE(m_state->thread.Exists());
    EXPECT_EQ(m_state->stopEvent, nullptr);
    EXPECT_TRUE(Listeners().empty());
}

TEST_F(ListenerRegistration, AThreadThatEndedByItselfBlocksANewOneUntilStopped) {
    NativeQRVDevice facade(L"Queue 1", 0);
    // A body that ends at once, as the real one does when the printer is not attached.
    auto previous = PrinterStatusThread::SetMonitorBody(
        [](const std::wstring&, std::shared_ptr<vela::common::Event>) { return 0; });
    facade.RegisterListener(&m_a);
    ASSERT_TRUE(m_state->thread.Wait(10000));
    EXPECT_TRUE(m_state->thread.Exists());
    EXPECT_EQ(PrinterStatusThread::Start(L"Queue 1"), -1);
    PrinterStatusThread::SetMonitorBody(previous);
    facade.DeregisterListener(&m_a);
}
