// The facade's listener list and the monitor thread's start/stop rules, with the body replaced.
#include "kom/connection/NativeQRVDevice.h"
#include "kom/connection/PrinterStatusThread.h"
#include "kom/connection/StatusMonitorState.h"
#include "support/RecordingListener.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

using vela::kom::INativeQRVListener;
using vela::kom::NativeQRVDevice;
using vela::kom::PrinterStatusThread;
using vela::kom::StatusMonitorState;
using List = std::vector<INativeQRVListener*>;

namespace {

class ListenerRegistration : public ::testing::Test {
protected:
    // Records each run; waits for its stop event at most 10 s, so that a broken stop fails.
    void SetUp() override {
        m_previous = PrinterStatusThread::SetMonitorBody(
            [this](const std::wstring& name, std::shared_ptr<vela::common::Event> stop) {
                {
                    std::lock_guard<std::mutex> lock(m_mutex);
                    m_runs.push_back(name + (stop ? L"" : L" (no stop event)"));
                    m_started.notify_all();
                }
                if (stop) {
                    stop->Wait(10000);
                }
                return 0;
            });
    }
    void TearDown() override {
        PrinterStatusThread::SetMonitorBody(m_previous);
        EXPECT_EQ(m_state->instanceCount, 0u);
        EXPECT_FALSE(m_state->thread.Exists());
        EXPECT_EQ(m_state->ListenerCount(), 0u);
    }
    std::vector<std::wstring> Runs(size_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_started.wait_for(lock, std::chrono::seconds(10), [&] { return m_runs.size() >= count; });
        return m_runs;
    }

    std::shared_ptr<StatusMonitorState> m_state = StatusMonitorState::Instance();
    vela::test::RecordingListener m_a, m_b, m_c;
    std::mutex m_mutex;
    std::condition_variable m_started;
    std::vector<std::wstring> m_runs;
    PrinterStatusThread::MonitorBody m_previous;
};

} // namespace

TEST_F(ListenerRegistration, OrderedWithoutDuplicatesAndOneThreadForAll) {
    NativeQRVDevice facade(L"Queue 1", 0);
    facade.RegisterListener(nullptr);
    EXPECT_FALSE(m_state->thread.Exists()) << "a null listener starts nothing";
    for (INativeQRVListener* l : List{&m_a, &m_a, &m_b, &m_c}) {
        facade.RegisterListener(l);
    }
    EXPECT_EQ(m_state->Listeners(), (List{&m_a, &m_b, &m_c}));
    EXPECT_EQ(Runs(1), std::vector<std::wstring>{L"Queue 1"}) << "only the first registration starts it";

    vela::test::RecordingListener stranger;
    for (INativeQRVListener* l : List{&m_b, nullptr, &stranger}) {
        facade.DeregisterListener(l);
    }
    EXPECT_EQ(m_state->Listeners(), (List{&m_a, &m_c}));
    EXPECT_TRUE(m_state->thread.IsStillActive());
    facade.DeregisterListener(&m_a);
    facade.DeregisterListener(&m_c);
    EXPECT_FALSE(m_state->thread.Exists()) << "the last one stopped it";
}

TEST_F(ListenerRegistration, TheLastDeregistrationClosesTheStopEventUntilTheNextFacade) {
    NativeQRVDevice facade(L"Queue 1", 0);
    facade.RegisterListener(&m_a);
    facade.DeregisterListener(&m_a);
    EXPECT_EQ(m_state->stopEvent, nullptr);

    facade.RegisterListener(&m_a); // a thread that has nothing to be stopped with
    facade.DeregisterListener(&m_a);
    {
        NativeQRVDevice second(0);
        EXPECT_NE(m_state->stopEvent, nullptr) << "the next facade makes a new one";
        second.RegisterListener(&m_b);
        EXPECT_EQ(Runs(3),
                  (std::vector<std::wstring>{L"Queue 1", L"Queue 1 (no stop event)", L"DummyPrinter"}));
    }
    // Not the last facade: the thread and the list stay.
    EXPECT_TRUE(m_state->thread.IsStillActive());
    EXPECT_EQ(m_state->Listeners(), List{&m_b});
    facade.DeregisterListener(&m_b);
}

TEST_F(ListenerRegistration, AThreadThatEndedByItselfBlocksANewOneUntilStopped) {
    NativeQRVDevice facade(L"Queue 1", 0);
    auto body =
        PrinterStatusThread::SetMonitorBody([](const std::wstring&, std::shared_ptr<vela::common::Event>) {
            return 0; // as the real body does when the printer is not attached
        });
    facade.RegisterListener(&m_a);
    ASSERT_TRUE(m_state->thread.Wait(10000));
    EXPECT_EQ(PrinterStatusThread::Start(L"Queue 1"), -1);
    PrinterStatusThread::SetMonitorBody(body);
    facade.DeregisterListener(&m_a);
}
