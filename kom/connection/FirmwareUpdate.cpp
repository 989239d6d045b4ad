#include "kom/connection/FirmwareUpdate.h"

#include "common/LogAndThrow.h"
#include "common/Pause.h"
#include "kom/QRVException.h"

namespace vela::kom {

namespace {

const wchar_t* const kSource = L"NativeQRVDevice::ApplyUpdate()";

// Reads the updater's state until it is idle: at most kBusyPollWaits pauses of kBusyPollMs.
void WaitWhileBusy(FirmwareUpdate::ITarget& target) {
    DeviceManagerStatus report = target.GetUpdateStatusReport();
    for (uint32_t waits = 0; report.status != update_idle; ++waits) {
        if (waits == FirmwareUpdate::kBusyPollWaits) {
            vela::common::LogAndThrow(ReplyException(L"'Printer is busy with an update'", kSource));
        }
        vela::common::Pause(FirmwareUpdate::kBusyPollMs);
        report = target.GetUpdateStatusReport();
    }
}

} // namespace

int32_t FirmwareUpdate::Apply(ITarget& target, const wchar_t* packagePath, const PhaseCallback& onPhase) {
    if (packagePath == nullptr) {
        return -1;
    }
    auto phase = [&onPhase](Phase p) {
        if (onPhase) {
            onPhase(p);
        }
    };

    phase(Phase::waitingForPrinter);
    WaitWhileBusy(target);

    const std::wstring package(packagePath);
    const size_t separator = package.rfind(kHostPathSeparator);
    if (separator == std::wstring::npos) {
        return -1;
    }
    const std::wstring fileName = package.substr(separator + 1);
    const std::wstring targetPath = target.GetUpdateLibraryPath() + L"/" + fileName;

    phase(Phase::copying);
    // The package travels from the host file to the printer's update folder, and the facade's
    // PutFile takes the printer path first and the host file second. Handing over (package,
    // target) instead would look for a host file named like the printer path and fail, or worse,
    // copy the wrong file: keep this order.
    target.PutFile(targetPath.c_str(), package.c_str());

    phase(Phase::applying);
    vela::common::Pause(kAfterCopyMs);
    target.StartUpdate();

    phase(Phase::waiting);
    vela::common::Pause(kAfterStartMs);
    WaitWhileBusy(target);

    phase(Phase::cleaningUp);
    if (!targetPath.empty()) {
        target.DeleteFile(targetPath);
    }
    phase(Phase::done);
    return 0;
}

} // namespace vela::kom
