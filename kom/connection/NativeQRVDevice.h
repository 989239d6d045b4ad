#pragma once

#include "kom/connection/INativeQRVListener.h"
#include "kom/connection/QRVDevice.h"

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
// Throws the vela::kom / vela::common kinds unchanged (the gateway maps them).
// Threads: operations run on the caller's thread; listeners are called on the monitor thread.
// Register/DeregisterListener may be called from any thread (the list is guarded).
class NativeQRVDevice {
public:
    enum class UpdatePhase { waitingForPrinter, copying, applying, waiting, cleaningUp, done };
    using ProgressCallback = std::function<void(uint64_t done, uint64_t total)>;
    using UpdatePhaseCallback = std::function<void(UpdatePhase phase)>;

    explicit NativeQRVDevice(uint32_t stopWaitExtraMs);
    NativeQRVDevice(const std::wstring& printerName, uint32_t stopWaitExtraMs);
    ~NativeQRVDevice();
    NativeQRVDevice(const NativeQRVDevice&) = delete;
    NativeQRVDevice& operator=(const NativeQRVDevice&) = delete;

    // Finds the printer (exact, case-sensitive queue name) among the connected ones; throws
    // DeviceNotFoundException when it is not there.
    void SetPrinterName(const std::wstring& name);
    std::wstring GetPrinterName() const { return m_printerName; }

    PrinterStatus GetPrinterStatus();
    uint32_t GetBatteryStatus();
    uint32_t GetChargingStatus();
    uint32_t GetExternalPowerStatus();
    std::wstring GetCassetteIdentifier();
    PrinterVersion GetPrinterVersion();
    std::wstring GetDeviceID();
    std::wstring GetPrinterType();
    std::wstring GetImageLibraryPath();
    std::wstring GetJobFileLibraryPath();
    std::wstring GetTemplateLibraryPath();
    std::wstring GetUpdateLibraryPath();
    int32_t GetDiskSpace(uint64_t& first, uint64_t& second); // always 0; the counts travel out
    void Reboot();
    void ResumePrinting();
    void ClearError();
    void ClearCutterJamError();
    void FeedForward();
    void CutLabel();
    // Paths are null-terminated wide strings; a null pointer gives −1 without touching the printer.
    int32_t GetFile(const wchar_t* printerPath, const wchar_t* hostFileName);
    int32_t PutFile(const wchar_t* printerPath, const wchar_t* hostFileName);
    int32_t Rename(const wchar_t* oldPath, const wchar_t* newPath);
    int32_t Delete(const wchar_t* path);
    std::vector<std::unique_ptr<PathInfo>> GetFolderContent(const std::wstring& path);
    std::vector<std::wstring> GetLogFileNameList();
    int32_t ApplyUpdate(const wchar_t* packagePath);

    void RegisterListener(INativeQRVListener* listener);
    void DeregisterListener(INativeQRVListener* listener);

    // Optional progress of puts/gets (also the copy step of an update) and the update's phases.
    void SetProgressCallback(ProgressCallback callback);
    void SetUpdatePhaseCallback(UpdatePhaseCallback callback) { m_updatePhase = std::move(callback); }

private:
    std::wstring m_printerName;
    std::unique_ptr<QRVDevice> m_device;
    uint32_t m_stopWaitExtraMs;
    ProgressCallback m_progress;
    UpdatePhaseCallback m_updatePhase;
};

} // namespace vela::kom
