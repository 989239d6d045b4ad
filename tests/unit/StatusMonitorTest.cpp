// The status monitor's decisions: change records, the 0xF0 report, the interrupt rules and their
// memory, and what one report does to the listeners. No thread, no device.
#include "kom/connection/PrinterStatusThread.h"
#include "kom/connection/StatusMonitorState.h"
#include "support/RecordingListener.h"
#include "support/TestSupport.h"

#include <gtest/gtest.h>

#include <vector>

using vela::kom::PrinterStatus;
using vela::kom::PrinterStatusThread;
using vela::kom::StatusMonitorState;
using Report = PrinterStatusThread::Report;

namespace {

std::vector<uint32_t> Fields(const PrinterStatus& s) {
    std::vector<uint32_t> f;
    for (size_t i = 0; i < PrinterStatus::kFieldCount; ++i) {
        f.push_back(s.Field(i));
    }
    return f;
}

// All thirteen fields 0 except field `n` (1-based) = `value`... and any further pairs.
PrinterStatus With(std::initializer_list<std::pair<size_t, uint32_t>> set) {
    uint32_t f[13] = {};
    for (auto [n, v] : set) {
        f[n - 1] = v;
    }
    return PrinterStatus(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9], f[10], f[11], f[12]);
}

// A report carrying status bytes b0..b6.
Report MakeReport(std::initializer_list<uint8_t> block) {
    Report r{};
    r[0] = 1;
    size_t i = 1;
    for (uint8_t b : block) {
        r[i++] = b;
    }
    return r;
}

const std::vector<uint32_t> kMarkers = {4, 5, 4, 4, 9, 9, 5, 9, 5, 9, 5, 3, 0};

} // namespace

TEST(StatusChangeRecord, MarksUnchangedFieldsAndCarriesChangedOnes) {
    EXPECT_EQ(Fields(PrinterStatusThread::UnchangedMarkers()), kMarkers);
    const PrinterStatus a = With({});
    EXPECT_EQ(Fields(PrinterStatusThread::ChangeRecord(a, a)), kMarkers);

    // Cutter and the 16-bit value change; a field changing to its own marker value still reads new.
    const PrinterStatus b = With({{5, 2}, {13, 0x34}, {2, 5}});
    std::vector<uint32_t> expected = kMarkers;
    expected[4] = 2;
    expected[12] = 0x34;
    expected[1] = 5;
    EXPECT_EQ(Fields(PrinterStatusThread::ChangeRecord(a, b)), expected);
}

TEST(StatusChangeRecord, FirmwareRecordAndReportDecoding) {
    EXPECT_EQ(Fields(PrinterStatusThread::FirmwareReportRecord()),
              (std::vector<uint32_t>{3, 5, 4, 4, 9, 9, 5, 4, 5, 9, 5, 3, 0}));

    // Bytes 1..7 are status bytes b0..b6; byte 0 (the report id) is not decoded and the 16-bit
    // value has no high byte in a report.
    Report r = MakeReport({0x11, 0x02, 0x00, 0x80, 0xAA, 0x00, 0x34});
    r[0] = 0x7F;
    const PrinterStatus s = PrinterStatusThread::DecodeReport(r);
    EXPECT_EQ(s.GetPowerStatus(), 1u);
    EXPECT_EQ(s.GetCassettePresence(), 1u);
    EXPECT_EQ(s.GetCutterStatus(), 2u);
    EXPECT_EQ(s.GetOperatingStatus(), 2u);
    EXPECT_EQ(s.Field(12), 0x34u);
}

TEST(InterruptRules, EachRuleGivesItsCodeAndEarlierRulesWin) {
    struct Rule {
        size_t field;
        uint32_t value;
        uint32_t code;
    };
    // In rule order; one line per alternative of a rule.
    const std::vector<Rule> rules = {
        {2, 1, 0},  {3, 1, 1},  {7, 3, 2},  {6, 2, 3},   {6, 3, 4},   {10, 3, 5},  {1, 1, 6},
        {1, 2, 7},  {5, 2, 8},  {5, 6, 9},  {6, 6, 10},  {4, 2, 11},  {1, 3, 12},  {4, 3, 12},
        {5, 7, 12}, {6, 7, 12}, {9, 3, 12}, {10, 7, 12}, {11, 3, 12}, {12, 1, 12}, {8, 3, 13},
    };
    EXPECT_EQ(PrinterStatusThread::InterruptCode(With({})), PrinterStatusThread::kNoInterruption);
    EXPECT_EQ(PrinterStatusThread::InterruptCode(PrinterStatus()), 12u) << "the defaults hold power 3";
    for (size_t i = 0; i < rules.size(); ++i) {
        const Rule& r = rules[i];
        EXPECT_EQ(PrinterStatusThread::InterruptCode(With({{r.field, r.value}})), r.code)
            << "rule line " << i;
        for (size_t j = i + 1; j < rules.size(); ++j) {
            if (rules[j].field == r.field) {
                continue;
            }
            const PrinterStatus both = With({{r.field, r.value}, {rules[j].field, rules[j].value}});
            EXPECT_EQ(PrinterStatusThread::InterruptCode(both), r.code) << "lines " << i << " and " << j;
        }
    }
}

TEST(InterruptRules, LastCodeMemory) {
    uint32_t last = PrinterStatusThread::kNoInterruption;
    EXPECT_FALSE(PrinterStatusThread::TakeInterrupt(last, 14));
    EXPECT_TRUE(PrinterStatusThread::TakeInterrupt(last, 8));
    EXPECT_FALSE(PrinterStatusThread::TakeInterrupt(last, 8)) << "the same interruption twice is told once";
    EXPECT_TRUE(PrinterStatusThread::TakeInterrupt(last, 3)) << "another interruption is told";
    EXPECT_FALSE(PrinterStatusThread::TakeInterrupt(last, 14));
    EXPECT_EQ(last, 14u);
    EXPECT_TRUE(PrinterStatusThread::TakeInterrupt(last, 3)) << "cleared, then back: told again";
}

// One report at a time through the loop's step, with listeners in the process-wide list.
class ReportHandling : public ::testing::Test {
protected:
    void SetUp() override {
        m_state = StatusMonitorState::Instance();
        ASSERT_EQ(m_state->ListenerCount(), 0u);
        m_state->lastInterruptCode = PrinterStatusThread::kNoInterruption;
        m_state->AppendListener(&m_first);
        m_state->AppendListener(&m_second);
    }
    void TearDown() override {
        m_state->ClearListeners();
        m_state->lastInterruptCode = PrinterStatusThread::kNoInterruption;
    }
    bool Handle(const Report& r) { return PrinterStatusThread::HandleReport(m_previous, r); }

    std::shared_ptr<StatusMonitorState> m_state;
    vela::test::RecordingListener m_first, m_second;
    Report m_previous{};
};

TEST_F(ReportHandling, RepeatedReportsGiveOneCallWithExactlyTheChangedFields) {
    const Report calm = MakeReport({0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05});
    const Report charging = MakeReport({0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x05});
    ASSERT_TRUE(Handle(calm));
    ASSERT_TRUE(Handle(calm));
    ASSERT_TRUE(Handle(charging));
    ASSERT_TRUE(Handle(charging));

    for (auto* l : {&m_first, &m_second}) {
        const auto statuses = l->Statuses();
        ASSERT_EQ(statuses.size(), 2u);
        std::vector<uint32_t> expected = kMarkers;
        expected[10] = 1; // only the charging status changed
        EXPECT_EQ(Fields(statuses[1]), expected);
        EXPECT_TRUE(l->Interrupts().empty());
    }
}

TEST_F(ReportHandling, FirmwareReportIsToldEveryTimeAndNotRemembered) {
    const Report calm = MakeReport({0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00});
    Report special = calm;
    special[PrinterStatusThread::kFirmwareMarkerIndex] = PrinterStatusThread::kFirmwareMarker;
    ASSERT_TRUE(Handle(calm));
    ASSERT_TRUE(Handle(special));
    ASSERT_TRUE(Handle(special));
    ASSERT_TRUE(Handle(calm)); // still the previous report: nothing to tell

    const auto statuses = m_first.Statuses();
    ASSERT_EQ(statuses.size(), 3u);
    EXPECT_EQ(statuses[1], PrinterStatusThread::FirmwareReportRecord());
    EXPECT_EQ(statuses[2], PrinterStatusThread::FirmwareReportRecord());
}

TEST_F(ReportHandling, InterruptionsAreToldOnceAndAgainAfterClearing) {
    const Report calm = MakeReport({0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x07});
    const Report jammed = MakeReport({0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x07});
    const Report jammedCharging = MakeReport({0x00, 0x02, 0x00, 0x01, 0x00, 0x00, 0x07});
    for (const Report& r : {calm, jammed, jammedCharging, calm, jammed}) {
        ASSERT_TRUE(Handle(r));
    }
    const std::vector<std::pair<uint32_t, uint32_t>> expected = {{8, 7}, {8, 7}};
    EXPECT_EQ(m_first.Interrupts(), expected);
    EXPECT_EQ(m_second.Interrupts(), expected);
    EXPECT_EQ(m_first.Statuses().size(), 5u);
}

TEST_F(ReportHandling, NoListenerLeftEndsTheLoop) {
    vela::test::LogCapture log;
    m_state->ClearListeners();
    const Report jammed = MakeReport({0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00});
    EXPECT_FALSE(Handle(jammed));
    EXPECT_TRUE(log.Contains(L"PrinterStatusThread::PrinterInterruptEvent() - no more listener"));
    EXPECT_TRUE(log.Contains(L"PrinterStatusThread::StatusMonitor() - no more listener"));
    EXPECT_EQ(m_previous, Report{}) << "nothing was told, so nothing is remembered";

    Report special = jammed;
    special[PrinterStatusThread::kFirmwareMarkerIndex] = PrinterStatusThread::kFirmwareMarker;
    EXPECT_FALSE(Handle(special));
}
