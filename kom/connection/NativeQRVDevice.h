#pragma once

#include "kom/connection/FirmwareUpdate.h"
#include "kom/connection/INativeQRVListener.h"
#include "kom/connection/QRVDevice.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vela::kom {

// The native object the gateway owns: it picks the printer by its print-queue name, owns the
// QRVDevice that speaks the protocol, retries the read-only queries, answers fixed fall-backs,
// runs the firmware update, and keeps the process-wide listener list and status monitor thread.
//
// Blocking: every operation is one or more protocol transactions (see PrinterDeviceBase) plus
// the fixed pauses: 500 ms between query retries (10 attempts), 4000 ms after a failed probe in
// SetPrinterName, 5000 ms after print orders, 24 s and more in ApplyUpdate.
// Throws the vela::kom / vela::common kinds unchanged (the gateway maps them). An operation that
// needs the printer, called before a successful SetPrinterName, throws InvalidOperationException
// "Printer not found".
// Threads: the operations of one facade run on one caller thread at a time; listeners are called
// on the monitor thread, one call after another. Register/DeregisterListener and the constructors
// and destructor may run on any thread, the monitor thread (inside a listener call) included.
//
// Listener lifetime. The bound of every wait below is StopWaitMs(stopWaitExtraMs): 5000 ms plus
// stopWaitExtraMs (9000 ms for the gateway). When DeregisterListener(L), or the destructor of the
// last facade, returns on a thread other than the monitor thread, L is not in a call and will not
// be called again; only calls to what is removed are waited for. If the bound runs out the call
// keeps running on its own (logged: "did tiemout!" for the thread, a warning for one listener of
// several) and is the only one still to finish: a listener registered in the shared form is kept
// alive by the monitor thread until that call returns; one registered as a raw pointer cannot
// be, so its owner must keep it alive until its calls return (it must not block for longer than
// the bound, or be registered in the shared form). On the monitor thread itself (a listener
// removing itself or another) nothing is waited for: the removal takes effect when the current
// call returns, and a stop made there lets the thread end at its next wait.
class NativeQRVDevice {
public:
    using UpdatePhase = FirmwareUpdate::Phase;
    using ProgressCallback = std::function<void(uint64_t done, uint64_t total)>;
    using UpdatePhaseCallback = FirmwareUpdate::PhaseCallback;

    static constexpr uint32_t kProbeFailurePauseMs = 4000;

    // Counts the facade; makes the process-wide stop event when there is none. No I/O.
    explicit NativeQRVDevice(uint32_t stopWaitExtraMs);
    NativeQRVDevice(const std::wstring& printerName, uint32_t stopWaitExtraMs);
    // The last facade empties the listener list, stops the monitor thread (waits up to
    // stopWaitExtraMs + 5000 ms, see "Listener lifetime") and closes the stop event. Never throws.
    ~NativeQRVDevice();
    NativeQRVDevice(const NativeQRVDevice&) = delete;
    NativeQRVDevice& operator=(const NativeQRVDevice&) = delete;

    // Finds the printer (exact, case-sensitive queue name) among the connected ones and binds to
    // it; throws DeviceNotFoundException (message: the name) when it is not there, leaving the
    // previous binding. Without a monitor thread it probes the printer once (folder query); a
    // channel failure of the probe costs a 4000 ms pause and is not reported.
    void SetPrinterName(const std::wstring& name);
    std::wstring GetPrinterName() const { return m_printerName; }

    // Status, retried on ReplyException; a pause that does not end as a time-out answers the
    // fall-back record 3,4,3,3,8,8,4,8,4,8,4,2,0.
    PrinterStatus GetPrinterStatus();
    uint32_t GetBatteryStatus();       // field 10 of that record
    uint32_t GetChargingStatus();      // field 11
    uint32_t GetExternalPowerStatus(); // field 9
    // Retried on ReplyException; no cassette answers "" at once.
    std::wstring GetCassetteIdentifier();
    // Retried on every vela::common::Exception; the last one leaves as a plain
    // vela::common::Exception (message and source kept).
    PrinterVersion GetPrinterVersion();
    // The sixth version text; retried on ReplyException, fall-back "".
    std::wstring GetDeviceID();
    std::wstring GetPrinterType(); // "Not implemented yet!": the printer has no such query
    std::wstring GetImageLibraryPath();
    std::wstring GetJobFileLibraryPath();
    std::wstring GetTemplateLibraryPath();
    std::wstring GetUpdateLibraryPath();
    int32_t GetDiskSpace(uint64_t& first, uint64_t& second); // always 0; the counts travel out
    // Control orders, not retried.
    void Reboot();
    void ResumePrinting();
    void ClearError();
    void ClearCutterJamError();
    void FeedForward();
    void CutLabel();
    // Paths are null-terminated wide strings; a null pointer gives -1 without touching the printer.
    int32_t GetFile(const wchar_t* printerPath, const wchar_t* hostFileName);
    int32_t PutFile(const wchar_t* printerPath, const wchar_t* hostFileName);
    int32_t Rename(const wchar_t* oldPath, const wchar_t* newPath);
    int32_t Delete(const wchar_t* path);
    std::vector<std::unique_ptr<PathInfo>> GetFolderContent(const std::wstring& path);
    // The files of "/mnt/data/settings" whose name contains "syslog", as full printer paths, in
    // the printer's order.
    std::vector<std::wstring> GetLogFileNameList();
    // See FirmwareUpdate: 0, or -1 for a null path or one without a host path separator
    // (backslash on Windows, slash elsewhere).
    int32_t ApplyUpdate(const wchar_t* packagePath);

    // Null is ignored; a listener is stored once. The first listener starts the monitor thread
    // when no thread handle is held (a failure to start is ignored). Never waits for the thread.
    // The raw form does not own the listener; the shared form shares it with the monitor thread
    // for as long as it is registered or in a call.
    void RegisterListener(INativeQRVListener* listener);
    void RegisterListener(std::shared_ptr<INativeQRVListener> listener);
    // Removing the only listener stops the thread, closes the stop event (the next facade
    // constructor makes a new one) and empties the list; otherwise the first equal entry goes.
    // Blocks up to StopWaitMs for a call to this listener that runs on another thread (see
    // "Listener lifetime" above). Never throws.
    void DeregisterListener(INativeQRVListener* listener);

    // Optional progress of puts/gets (also the copy step of an update) and the update's phases.
    // Called on the caller's thread during the operation.
    void SetProgressCallback(ProgressCallback callback);
    void SetUpdatePhaseCallback(UpdatePhaseCallback callback) { m_updatePhase = std::move(callback); }
    // The host's cancel flag for puts and gets (also the copy step of an update); see
    // PrinterDeviceBase::SetCancelFlag. Not owned; it must outlive the facade.
    void SetCancelFlag(std::atomic<bool>* flag);

private:
    QRVDevice& Device(const wchar_t* operation) const;
    void Register(std::shared_ptr<INativeQRVListener> listener);

    std::wstring m_printerName;
    std::unique_ptr<QRVDevice> m_device;
    uint32_t m_stopWaitExtraMs;
    ProgressCallback m_progress;
    UpdatePhaseCallback m_updatePhase;
    std::atomic<bool>* m_cancel = nullptr;
};

} // namespace vela::kom
