// A firmware update against the simulator's updater, through the pause seam.
#include "support/SimulatedPrinter.h"

#include "kom/QRVException.h"
#include "support/PauseRecorder.h"
#include "support/TestSupport.h"

#include <algorithm>
#include <chrono>

using vela::sim::RequestKind;
using vela::test::PauseRecorder;

namespace {

class ApplyUpdateSim : public vela::test::OnSimulatedPrinter {
protected:
    // A package in a host folder, named by a path with this system's separator.
    std::wstring Package(const std::string& name) {
        vela::test::WriteHostFile(m_dir.File(name), std::vector<uint8_t>(3000, 0x5A));
        return m_dir.WFile(name);
    }
    std::vector<RequestKind> Kinds() {
        std::vector<RequestKind> kinds;
        for (const auto& r : Printer().Requests()) {
            if (r.kind != RequestKind::completionPoll) {
                kinds.push_back(r.kind);
            }
        }
        return kinds;
    }
    vela::test::TempDir m_dir;
};

} // namespace

TEST_F(ApplyUpdateSim, CopiesOrdersWaitsAndRemovesThePackage) {
    PauseRecorder pauses;
    Printer().SetUpdateBusyReports(3);
    Printer().SetUpdaterBusy(2); // busy with something of its own when the update begins
    const std::wstring package = Package("qrv-fw-3.1.4.pkg");

    ASSERT_EQ(Facade().ApplyUpdate(package.c_str()), 0);

    using K = RequestKind;
    EXPECT_EQ(Kinds(), (std::vector<K>{K::updateStatus, K::updateStatus, K::updateStatus, K::folderDetail,
                                       K::putFile, K::deviceControl, K::updateStatus, K::updateStatus,
                                       K::updateStatus, K::updateStatus, K::deleteFile}));
    EXPECT_FALSE(Printer().ReadFile("/mnt/data/update/qrv-fw-3.1.4.pkg").has_value());

    // The fixed pauses, in order, between the busy polls.
    std::vector<uint32_t> fixed;
    for (uint32_t p : pauses.Pauses()) {
        if (p == 4000 || p == 20000) {
            fixed.push_back(p);
        }
    }
    EXPECT_EQ(fixed, (std::vector<uint32_t>{4000, 20000}));
}

TEST_F(ApplyUpdateSim, RefusesAPathWithoutTheSeparatorAndABusyPrinter) {
    PauseRecorder pauses;
    // Only the other system's separator: no file name can be taken from it.
    const wchar_t* foreign = vela::kom::FirmwareUpdate::kHostPathSeparator == L'/'
                                 ? L"C:\\packages\\qrv-fw.pkg"
                                 : L"/home/me/packages/qrv-fw.pkg";
    EXPECT_EQ(Facade().ApplyUpdate(foreign), -1);
    EXPECT_EQ(Kinds(), std::vector<RequestKind>{RequestKind::updateStatus});

    Printer().ClearRequests();
    Printer().SetUpdaterBusy(100);
    const std::wstring package = Package("qrv-fw-3.1.5.pkg");
    try {
        Facade().ApplyUpdate(package.c_str());
        FAIL() << "no exception";
    } catch (const vela::kom::ReplyException& e) {
        EXPECT_EQ(e.Source(), L"NativeQRVDevice::ApplyUpdate()");
    }
    EXPECT_EQ(Printer().CountRequests(RequestKind::updateStatus), 11u);
    EXPECT_EQ(Printer().CountRequests(RequestKind::putFile), 0u);
    EXPECT_EQ(pauses.Pauses(), std::vector<uint32_t>(10, 500));
}
