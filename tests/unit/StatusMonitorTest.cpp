// The monitor: the facade's listener list and the thread's start/stop rules (with the body
// replaced), change records, interrupt rules, what one report tells the listeners.
#include "kom/connection/NativeQRVDevice.h"
#include "kom/connection/PrinterStatusThread.h"
#include "kom/connection/StatusMonitorState.h"
#include "support/RecordingListener.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

using vela::kom::INativeQRVListener;
using vela::kom::NativeQRVDevice;
using vela::kom::PrinterStatus;
using vela::kom::PrinterStatusThread;
using vela::kom::StatusMonitorState;
using List = std::vector<INativeQRVListener*>;
using Report = PrinterStatusThread::Report;
using vela::test::Fields;

namespace {

const std::vector<uint32_t> kMarkers = {4, 5, 4, 4, 9, 9, 5, 9, 5, 9, 5, 3, 0};

// All thirteen fields 0 but the given (1-based field, value) pairs.
PrinterStatus With(std::initializer_list<std::pair<size_t, uint32_t>> set) {
    uint32_t f[13] = {};
    for (auto [n, v] : set) {
        f[n - 1] = v;
    }
    return PrinterStatus(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9], f[10], f[11], f[12]);
}

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

TEST(StatusChangeRecord, MarkersForEqualFieldsNewValuesForChangedOnes) {
    EXPECT_EQ(Fields(PrinterStatusThread::FirmwareReportRecord()),
              (std::vector<uint32_t>{3, 5, 4, 4, 9, 9, 5, 4, 5, 9, 5, 3, 0}));
    const PrinterStatus a = With({});
    EXPECT_EQ(Fields(PrinterStatusThread::ChangeRecord(a, a)), kMarkers);
    // A field that changes to its own marker value still carries it.
    std::vector<uint32_t> expected = kMarkers;
    expected[4] = 2, expected[12] = 0x34, expected[1] = 5;
    EXPECT_EQ(Fields(PrinterStatusThread::ChangeRecord(a, With({{5, 2}, {13, 0x34}, {2, 5}}))), expected);

    // Report bytes 1..7 are status bytes b0..b6; the id is not decoded; no high byte of the value.
    const PrinterStatus s =
        PrinterStatusThread::DecodeReport(Report{0x7F, 0x11, 0x02, 0, 0x80, 0xAA, 0, 0x34});
    EXPECT_EQ(Fields(s), (std::vector<uint32_t>{1, 0, 1, 0, 2, 0, 0, 0, 0, 0, 0, 2, 0x34}));
}

TEST(InterruptRules, EachRuleGivesItsCodeAndEarlierRulesWin) {
    struct Rule {
        size_t field;
        uint32_t value, code;
    };
    // In rule order; one line per alternative of a rule.
    const std::vector<Rule> rules = {
        {2, 1, 0},  {3, 1, 1},  {7, 3, 2},  {6, 2, 3},   {6, 3, 4},   {10, 3, 5},  {1, 1, 6},
        {1, 2, 7},  {5, 2, 8},  {5, 6, 9},  {6, 6, 10},  {4, 2, 11},  {1, 3, 12},  {4, 3, 12},
        {5, 7, 12}, {6, 7, 12}, {9, 3, 12}, {10, 7, 12}, {11, 3, 12}, {12, 1, 12}, {8, 3, 13},
    };
    EXPECT_EQ(PrinterStatusThread::InterruptCode(With({})), 14u);
    for (size_t i = 0; i < rules.size(); ++i) {
        const Rule& r = rules[i];
        EXPECT_EQ(PrinterStatusThread::InterruptCode(With({{r.field, r.value}})), r.code) << "line " << i;
        for (size_t j = i + 1; j < rules.size(); ++j) {
            if (rules[j].field != r.field) {
                const PrinterStatus both = With({{r.field, r.value}, {rules[j].field, rules[j].value}});
                EXPECT_EQ(PrinterStatusThread::InterruptCode(both), r.code) << "lines " << i << ", " << j;
            }
        }
    }
}

// Reports one at a time through the loop's step, with two listeners in the process-wide list.
TEST(ReportHandling, ListenersHearChangesOnceFirmwareReportsAlwaysAndEachNewInterruption) {
    auto state = StatusMonitorState::Instance();
    ASSERT_EQ(state->ListenerCount(), 0u);
    state->lastInterruptCode = PrinterStatusThread::kNoInterruption;
    vela::test::RecordingListener first, second;
    state->AppendListener(&first);
    state->AppendListener(&second);

    // Status bytes b1 (cutter/label), b3 (charging) and b6 (value) follow the report's id.
    const Report calm{1, 0, 0, 0, 0, 0, 0, 7}, jammed{1, 0, 2, 0, 0, 0, 0, 7},
        jammedCharging{1, 0, 2, 0, 1, 0, 0, 7};
    Report special = calm;
    special[PrinterStatusThread::kFirmwareMarkerIndex] = PrinterStatusThread::kFirmwareMarker;
    Report previous{};
    for (const Report& r : {calm, calm, jammed, jammed, special, special, jammedCharging, calm, jammed}) {
        ASSERT_TRUE(PrinterStatusThread::HandleReport(previous, r));
    }
    state->ClearListeners();

    // What each report carries is checked over the channel (tests/integration/StatusMonitorTest).
    for (const auto* l : {&first, &second}) {
        EXPECT_EQ(l->Statuses().size(), 7u) << "the repeated reports were told once";
        EXPECT_EQ(l->Interrupts(), (std::vector<std::pair<uint32_t, uint32_t>>{{8, 7}, {8, 7}}));
    }

    // Nobody left to tell: the loop ends, and the report is not taken as the previous one.
    vela::test::LogCapture log;
    const Report before = previous;
    EXPECT_FALSE(PrinterStatusThread::HandleReport(previous, calm));
    EXPECT_FALSE(PrinterStatusThread::HandleReport(previous, special));
    EXPECT_TRUE(log.Contains(L"PrinterStatusThread::StatusMonitor() - no more listener"));
    EXPECT_FALSE(log.Contains(L"PrinterStatusThread::PrinterInterruptEvent() - no more listener"));
    EXPECT_EQ(previous, before);
    EXPECT_EQ(PrinterStatusThread::PrinterInterruptEvent(jammed), -1);
    EXPECT_TRUE(log.Contains(L"PrinterStatusThread::PrinterInterruptEvent() - no more listener"));
    state->lastInterruptCode = PrinterStatusThread::kNoInterruption;
}

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
