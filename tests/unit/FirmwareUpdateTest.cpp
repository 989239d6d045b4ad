// The update procedure against a scripted printer: order of steps, pauses, busy polls, the
// package name and where it goes.
#include "kom/connection/FirmwareUpdate.h"
#include "kom/QRVException.h"
#include "support/PauseRecorder.h"

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <vector>

using vela::kom::DeviceManagerStatus;
using vela::kom::FirmwareUpdate;
using vela::test::PauseRecorder;
using Phase = FirmwareUpdate::Phase;

namespace {

class ScriptedPrinter : public FirmwareUpdate::ITarget {
public:
    // Update states the printer reports, one per poll; when they run out it reports `idle`.
    std::deque<uint32_t> states;
    std::vector<std::wstring> calls;

    DeviceManagerStatus GetUpdateStatusReport() override {
        calls.push_back(L"poll");
        DeviceManagerStatus s;
        s.status = vela::kom::update_idle;
        if (!states.empty()) {
            s.status = states.front();
            states.pop_front();
        }
        return s;
    }
    std::wstring GetUpdateLibraryPath() override { return L"/mnt/data/update"; }
    int32_t PutFile(const wchar_t* printerPath, const wchar_t* hostFileName) override {
        calls.push_back(std::wstring(L"put ") + printerPath + L" <- " + hostFileName);
        return 0;
    }
    void StartUpdate() override { calls.push_back(L"start"); }
    int32_t DeleteFile(const std::wstring& printerPath) override {
        calls.push_back(L"delete " + printerPath);
        return 0;
    }
};

const wchar_t kSep = FirmwareUpdate::kHostPathSeparator;
const wchar_t kForeignSep = kSep == L'/' ? L'\\' : L'/';

std::wstring HostPath(wchar_t sep) {
    return std::wstring(L"host") + sep + L"packages" + sep + L"fw-2.1.swu";
}

} // namespace

TEST(FirmwareUpdate, CopiesAppliesWaitsAndCleansUpInOrder) {
    PauseRecorder pauses;
    ScriptedPrinter printer;
    printer.states = {1, 4, 0, /* after the order: */ 1, 0};
    std::vector<Phase> phases;
    const std::wstring package = HostPath(kSep);

    EXPECT_EQ(FirmwareUpdate::Apply(printer, package.c_str(), [&](Phase p) { phases.push_back(p); }), 0);

    const std::vector<std::wstring> expected = {
        L"poll",  L"poll", L"poll", L"put /mnt/data/update/fw-2.1.swu <- " + package,
        L"start", L"poll", L"poll", L"delete /mnt/data/update/fw-2.1.swu"};
    EXPECT_EQ(printer.calls, expected);
    EXPECT_EQ(pauses.Pauses(), (std::vector<uint32_t>{500, 500, 4000, 20000, 500}));
    EXPECT_EQ(phases, (std::vector<Phase>{Phase::waitingForPrinter, Phase::copying, Phase::applying,
                                          Phase::waiting, Phase::cleaningUp, Phase::done}));
}

TEST(FirmwareUpdate, APrinterThatStaysBusyFailsAfterTenWaits) {
    PauseRecorder pauses;
    ScriptedPrinter printer;
    printer.states = std::deque<uint32_t>(11, 1);
    const std::wstring package = HostPath(kSep);
    try {
        FirmwareUpdate::Apply(printer, package.c_str(), nullptr);
        FAIL() << "no exception";
    } catch (const vela::kom::ReplyException& e) {
        EXPECT_EQ(e.Source(), L"NativeQRVDevice::ApplyUpdate()");
    }
    EXPECT_EQ(printer.calls, std::vector<std::wstring>(11, L"poll")) << "nothing was copied";
    EXPECT_EQ(pauses.Pauses(), std::vector<uint32_t>(10, 500));

    // Busy after the order: the package stays on the printer.
    ScriptedPrinter late;
    late.states = {0};
    for (int i = 0; i < 11; ++i) {
        late.states.push_back(5); // an unknown state counts as busy
    }
    EXPECT_THROW(FirmwareUpdate::Apply(late, package.c_str(), nullptr), vela::kom::ReplyException);
    EXPECT_EQ(late.calls.back(), L"poll");
}

TEST(FirmwareUpdate, APathWithoutTheHostSeparatorReturnsMinusOneAfterOnePoll) {
    PauseRecorder pauses;
    ScriptedPrinter printer;
    const std::wstring foreign = HostPath(kForeignSep);
    EXPECT_EQ(FirmwareUpdate::Apply(printer, foreign.c_str(), nullptr), -1);
    EXPECT_EQ(printer.calls, std::vector<std::wstring>{L"poll"});
    EXPECT_TRUE(pauses.Pauses().empty());

    ScriptedPrinter untouched;
    EXPECT_EQ(FirmwareUpdate::Apply(untouched, nullptr, nullptr), -1);
    EXPECT_TRUE(untouched.calls.empty());
}
