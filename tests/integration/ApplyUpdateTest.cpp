// Updates the facade refuses; a whole update's steps are checked through qrvctl update.
#include "support/SimulatedPrinter.h"

#include "kom/QRVException.h"
#include "support/PauseRecorder.h"
#include "support/TestSupport.h"

using vela::sim::RequestKind;
using ApplyUpdateSim = vela::test::OnSimulatedPrinter;

TEST_F(ApplyUpdateSim, RefusesAPathWithoutTheSeparatorAndABusyPrinter) {
    vela::test::PauseRecorder pauses;
    // Only the other system's separator: no file name can be taken from it.
    const wchar_t* foreign = vela::kom::FirmwareUpdate::kHostPathSeparator == L'/'
                                 ? L"C:\\packages\\qrv-fw.pkg"
                                 : L"/home/me/packages/qrv-fw.pkg";
    EXPECT_EQ(Facade().ApplyUpdate(foreign), -1);
    EXPECT_EQ(Printer().Requests().size(), 1u);
    EXPECT_EQ(Printer().CountRequests(RequestKind::updateStatus), 1u);

    Printer().ClearRequests();
    Printer().SetUpdaterBusy(100);
    vela::test::TempDir dir;
    vela::test::WriteHostFile(dir.File("qrv-fw-3.1.5.pkg"), std::vector<uint8_t>(3000, 0x5A));
    try {
        Facade().ApplyUpdate(dir.WFile("qrv-fw-3.1.5.pkg").c_str());
        FAIL() << "no exception";
    } catch (const vela::kom::ReplyException& e) {
        EXPECT_EQ(e.Source(), L"NativeQRVDevice::ApplyUpdate()");
    }
    EXPECT_EQ(Printer().CountRequests(RequestKind::updateStatus), 11u);
    EXPECT_EQ(Printer().CountRequests(RequestKind::putFile), 0u);
    EXPECT_EQ(pauses.Pauses(), std::vector<uint32_t>(10, 500));
}
