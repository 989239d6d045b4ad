#pragma once

#include "kom/protocol/PrinterVersion.h"

#include <cstdint>
#include <functional>
#include <string>

namespace vela::kom {

// Installs a firmware update package that lies in a host file: waits until the printer reports
// no update in progress, copies the package into the printer's update folder, orders the printer
// to apply it, waits, waits again until the printer is idle, and deletes the package from the
// printer. The printer is not rebooted.
//
// Blocks the calling thread for at least 24 s (4 s after the copy, 20 s after the order), plus up
// to 5 s per busy poll and the transfers. Throws ReplyException "NativeQRVDevice::ApplyUpdate()"
// when the printer stays busy through a poll; errors of the copy, the order and the delete pass
// through unchanged (the package may then stay on the printer).
class FirmwareUpdate {
public:
    enum class Phase { waitingForPrinter, copying, applying, waiting, cleaningUp, done };
    using PhaseCallback = std::function<void(Phase phase)>;

    static constexpr uint32_t kBusyPollMs = 500;
    static constexpr uint32_t kBusyPollWaits = 10;
    static constexpr uint32_t kAfterCopyMs = 4000;
    static constexpr uint32_t kAfterStartMs = 20000;
    // The separator before the package's file name in a host path.
#ifdef _WIN32
    static constexpr wchar_t kHostPathSeparator = L'\\';
#else
    static constexpr wchar_t kHostPathSeparator = L'/';
#endif

    // What the update needs from the printer (the facade provides it).
    class ITarget {
    public:
        virtual ~ITarget() = default;
        virtual DeviceManagerStatus GetUpdateStatusReport() = 0;
        virtual std::wstring GetUpdateLibraryPath() = 0;
        // (printer path, host file name), as the facade's PutFile takes them.
        virtual int32_t PutFile(const wchar_t* printerPath, const wchar_t* hostFileName) = 0;
        virtual void StartUpdate() = 0;
        virtual int32_t DeleteFile(const std::wstring& printerPath) = 0;
    };

    // 0 on success; -1 for a null path, or for a path without a host path separator (after the
    // first status poll, without touching the printer's files). `onPhase` (may be empty) is told
    // each phase as it begins, on the calling thread.
    static int32_t Apply(ITarget& target, const wchar_t* packagePath, const PhaseCallback& onPhase);
};

} // namespace vela::kom
