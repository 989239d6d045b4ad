#pragma once

#include "qrv/Delegates.h"
#include "qrv/Export.h"
#include "qrv/HostException.h"
#include "qrv/IKelvoCommunication.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vela::kom {

class PrinterStatus;

// The library's public class: one printer, opened by its print-queue name.
//
// Every operation forwards to the one NativeQRVDevice the gateway owns and turns a native failure
// into one warning line in the log and one host exception whose message is that line
// (GatewayErrorHandler.h has the table). Without an open printer (before Open, after Close)
// every operation throws PrinterNotFoundException with
// "QRVDeviceGateway::<Operation>(): Printer Not Found: Printer not found".
//
// Blocking: each operation blocks for its printer transaction(s) — up to 10 s for the printer's
// access lock, 3 s per USB transfer, and the fixed pauses of the native layer: query retries
// (up to 10 attempts 500 ms apart) for the status, cassette, version and device-id queries,
// 5 s after print orders (FeedForward, CutLabel, ResumePrinting, ClearErrors,
// ClearCutterJamError), 1 s before a listing, at least 24 s for ApplyUpdate, and up to about 4 s
// in Open when the printer's channel fails. Close (and so Open, and the destructor) waits at most
// kStopWaitExtraMs + 5000 ms = 9 s for the monitor thread, whatever a subscriber does.
//
// Threads: operations may be called from any thread, also from event subscribers; the printer's
// access lock makes concurrent operations run one after another. Open, Close and destruction
// must not overlap other calls on the same gateway.
// Events: OnPrinterStatusChanged and OnPrintInterrupt are raised on the library's status monitor
// thread; a subscriber should return quickly (the next printer report waits for it). The other
// five events are offered for the host's own use; the library does not raise them.
//
// Subscriber lifetime. When Close() or the destructor returns on a thread other than the monitor
// thread, no subscriber of this gateway is running on the monitor thread and none is called by
// it again; when HostEvent::Remove returns, that subscriber is not running on another thread
// and is not called again (see HostEvent.h). Only calls to what is being removed are waited
// for, each at most 9 s. A subscriber still running after 9 s is left to finish on its own and
// logged ("PrinterStatusThread::Stop() - WaitForSingleObject() did tiemout!" once for Close); the
// library keeps everything it uses alive until it returns, the rest of that one raise included,
// so the host may destroy the gateway meanwhile, but must itself keep alive what the subscriber
// uses.
// From inside a subscriber of this gateway (on the monitor thread): removing subscriptions, of
// this event or others, is allowed and never waits for the calling subscriber (it takes effect
// when the subscriber returns); Open and Close are refused with PrinterException ("...: Unknown
// Error: not allowed inside an event subscriber"); destroying the gateway is allowed and returns
// at once: the monitor thread releases the printer after the subscriber returned. Closing or
// destroying another gateway from a subscriber is allowed and does not wait for the monitor
// thread.
class QRV_API ManagedQRVDeviceGateway : public vela::printer::communication::IKelvoCommunication {
public:
    using StringPassDelegate = vela::printer::communication::StringPassDelegate;
    using UnsignedIntPassDelegate = vela::printer::communication::UnsignedIntPassDelegate;
    using PrinterStatusItem = vela::printer::communication::PrinterStatusItem;
    using PrinterStatusEventArgs = vela::printer::communication::PrinterStatusEventArgs;
    using PrintInterruptEventArgs = vela::printer::communication::PrintInterruptEventArgs;
    // Bytes of the host file moved so far, and the file's size.
    using ProgressCallback = std::function<void(uint64_t done, uint64_t total)>;
    // The steps of ApplyUpdate, each told as it begins.
    enum class UpdatePhase { waitingForPrinter, copying, applying, waiting, cleaningUp, done };
    using UpdatePhaseCallback = std::function<void(UpdatePhase phase)>;
    // An operation that has waited a while for the printer's access lock: another program (or
    // another gateway of this process) is using the printer.
    struct LockWait {
        std::wstring lockName;        // the lock's full name (event name, or lock file on Linux)
        uint32_t holderProcessId = 0; // who holds it; 0 when that cannot be told (always on Windows)
        std::wstring holderProgram;   // its program name ("qrvctl"); empty when it cannot be told
        uint32_t waitedMs = 0;        // how long the operation has waited so far (about 1000)
    };
    using LockWaitCallback = std::function<void(const LockWait& wait)>;

    // The wait for the monitor thread on Close, on top of the facade's own 5000 ms.
    static constexpr uint32_t kStopWaitExtraMs = 4000;

    ManagedQRVDeviceGateway();
    // Releases like Close; never throws. Inside one of its own subscribers it hands the release
    // to the monitor thread, which makes it once that subscriber returned.
    ~ManagedQRVDeviceGateway() override;
    ManagedQRVDeviceGateway(const ManagedQRVDeviceGateway&) = delete;
    ManagedQRVDeviceGateway& operator=(const ManagedQRVDeviceGateway&) = delete;

    // Closes what is open, finds the printer by its exact queue name and starts listening to its
    // status reports (unless told not to: SetStatusEvents). Throws PrinterCommunicationException
    // when the printer is not connected or answers wrongly ("QRVDeviceGateway::CreateQRVDevice():
    // Printer Communication Error '<name>': <reason>"), PrinterException for other failures
    // ("... Unknown Error '<name>': <reason>"); the gateway is closed after a failure.
    void Open(const std::wstring& printerName) override;
    // Stops listening and releases the printer. Repeatable; never fails except when called from
    // inside an event subscriber of this gateway (PrinterException). Blocks up to 9 s for a
    // subscriber in progress on the monitor thread (see "Subscriber lifetime").
    void Close() override;
    bool IsOpen() const;

    // Version texts: "OS", "Firmware", "Application", "Overall", "Auxiliary", "DeviceID", "RootFS".
    VersionList GetVersions() override;
    // Installs the update package at host path `fileName` (0; -1 for a path the update cannot use).
    int32_t ApplyUpdate(const std::wstring& fileName) override;
    void Reboot() override;
    std::wstring GetDeviceID() override;
    std::wstring GetPrinterType() override;
    std::wstring GetUpdateLibraryPath() override;
    std::wstring GetImageLibraryPath() override;
    std::wstring GetJobFileLibraryPath() override;
    std::wstring GetTemplateLibraryPath() override;
    void FeedForward() override;
    void CutLabel() override;
    // The printer decides how it cuts; the setting is accepted and ignored. Never blocks or throws.
    void SetCutterMode(vela::printer::communication::TapeCutMode mode) override;

    // File operations: `printerPath` is the file on the printer ("/..."), `fileName` the host file.
    // Their failure lines quote the printer path (RenameFile: both names). A path holding a zero
    // character is rejected as an invalid name before anything is sent.
    int32_t GetFile(const std::wstring& printerPath, const std::wstring& fileName) override;
    int32_t PutFile(const std::wstring& printerPath, const std::wstring& fileName) override;
    int32_t RenameFile(const std::wstring& oldFileName, const std::wstring& newFileName) override;
    int32_t DeleteFile(const std::wstring& printerPath) override;
    std::vector<vela::printer::communication::FileComponent>
    GetFiles(const std::wstring& printerPath) override;
    // Full printer paths of the printer's system log files.
    std::vector<std::wstring> GetLogFiles() override;
    // The printer's two disk counts in whole KiB (bytes shifted right by 10); unchanged on failure.
    void GetDiskSpaceKB(uint64_t& freeDiskSpace, uint64_t& usedDiskSpace) override;

    // All eleven status items, kinds 0..10 in order.
    std::vector<PrinterStatusItem> GetPrinterStatus() override;
    // Only the items a user has to act on (see StatusConversion::ErrorItems for the list).
    std::vector<PrinterStatusItem> GetFilteredPrinterErrorStatus() override;
    // The items of `all` (a GetPrinterStatus result) that GetFilteredPrinterErrorStatus would
    // give, without asking the printer again. Pure; never throws; any thread.
    static std::vector<PrinterStatusItem> ErrorItemsOf(const std::vector<PrinterStatusItem>& all);
    // 0, 20, 40, 60, 80 or 100 for the battery's levels; 0 when the battery reports an error or
    // its state is unknown.
    uint32_t GetBatteryChargedPercentage() override;
    vela::printer::communication::EBatteryStatus GetBatteryStatus() override;
    vela::printer::communication::EChargingStatus GetChargingStatus() override;
    vela::printer::communication::EExternalPowerSupplyStatus GetExternalPowerStatus() override;
    // The inserted cassette's SKU; empty when there is no cassette.
    std::wstring GetCassetteIdentifier() override;
    void ResumePrinting() override;
    void ClearErrors() override;
    void ClearCutterJamError() override;

    StringEvent& OnUSBPrinterDisconnect() override { return m_onUSBPrinterDisconnect; }
    StringEvent& OnCassetteIdentifierChanged() override { return m_onCassetteIdentifierChanged; }
    StringEvent& OnPrinterException() override { return m_onPrinterException; }
    UnsignedIntEvent& OnBatteryStatusChanged() override { return m_onBatteryStatusChanged; }
    UnsignedIntEvent& OnBatteryChargedPercentageChanged() override {
        return m_onBatteryChargedPercentageChanged;
    }
    PrinterStatusChangedEvent& OnPrinterStatusChanged() override { return m_onPrinterStatusChanged; }
    PrintInterruptEvent& OnPrintInterrupt() override { return m_onPrintInterrupt; }

    // The native listener's two calls as host events, raised on the calling thread (the monitor
    // thread raises them the same way, and stops calling subscribers once the gateway is closed).
    // A change record holds each changed field's new value and the "unchanged" marker elsewhere;
    // the event carries one item per changed field, in field order. Subscriber failures
    // propagate to the caller.
    void OnNativePrinterStatusChangedEvent(const PrinterStatus& status);
    void OnNativePrinterInterruptEvent(uint32_t code, uint32_t value);
    // Raise the two events from prepared arguments, on the calling thread.
    void ThrowPrinterStatusChangedEvent(const PrinterStatusEventArgs& args);
    void ThrowPrintInterruptEvent(const PrintInterruptEventArgs& args);

    // Progress of file transfers (also the copy step of an update) and the update's phases,
    // called on the thread that runs the operation. Kept across Open/Close. Set them while no
    // operation runs.
    void SetProgressCallback(ProgressCallback callback);
    // Asks the file transfer that runs on this gateway (GetFile, PutFile, or the copy step of
    // ApplyUpdate) to stop at its next chunk; that operation then throws
    // OperationCancelledException, leaves no host file behind and the printer ready for the next
    // operation. It only sets a flag: async-signal-safe, never blocks, any thread. Without a
    // transfer in progress it has no effect.
    void CancelTransfer() noexcept;
    void SetUpdatePhaseCallback(UpdatePhaseCallback callback);
    // Told once per lock wait when an operation of this gateway (Open included) has waited about
    // 1 s for the printer's access lock; the operation then goes on waiting, up to its 10 s in
    // all. Called on the thread that runs the operation, inside it: it must not call this
    // gateway. What it throws is logged and ignored. Linux names the holder from /proc/locks
    // when it can. Kept across Open/Close. Set it while no operation runs.
    void SetLockWaitCallback(LockWaitCallback callback);
    // Whether Open listens to the printer's status reports (true, the default). A host that never
    // subscribes to OnPrinterStatusChanged and OnPrintInterrupt can say false: Open then registers
    // no listener, so it starts no status monitor thread and does not open the HID node, and those
    // two events are not raised for this gateway until it is opened again with true. Nothing else
    // changes: Open still makes its first folder query unless another gateway of this process
    // listens. Kept across Open/Close; takes effect at the next Open. Set it while no operation runs.
    void SetStatusEvents(bool enabled);

private:
    struct Impl; // the native facade, its listener and the callbacks
    void ThrowIfCalledFromSubscriber(const wchar_t* entry) const;
    void Release() noexcept;

    StringEvent m_onUSBPrinterDisconnect;
    StringEvent m_onCassetteIdentifierChanged;
    StringEvent m_onPrinterException;
    UnsignedIntEvent m_onBatteryStatusChanged;
    UnsignedIntEvent m_onBatteryChargedPercentageChanged;
    PrinterStatusChangedEvent m_onPrinterStatusChanged;
    PrintInterruptEvent m_onPrintInterrupt;
    std::unique_ptr<Impl> m_impl;
};

} // namespace vela::kom
