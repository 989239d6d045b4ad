#include "kom/connection/NativeQRVDevice.h"

#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/Pause.h"
#include "kom/connection/PrinterStatusThread.h"
#include "kom/connection/QueryRetry.h"
#include "kom/connection/StatusMonitorState.h"
#include "kom/discovery/QRVPrinters.h"

#include <mutex>

namespace vela::kom {

using vela::common::LogAndThrow;

namespace {

const wchar_t* const kDefaultPrinterName = L"DummyPrinter";
const wchar_t* const kLogFolder = L"/mnt/data/settings";
const wchar_t* const kLogFileMark = L"syslog";

// Answered when a status query's retry pause is cut short; the values are deliberate.
PrinterStatus StatusFallback() {
    return PrinterStatus(3, 4, 3, 3, 8, 8, 4, 8, 4, 8, 4, 2, 0);
}

[[noreturn]] void Rethrow(const vela::common::Exception&) {
    throw;
}

// The update's view of this facade and its device.
class UpdateTarget : public FirmwareUpdate::ITarget {
public:
    UpdateTarget(NativeQRVDevice& facade, QRVDevice& device) : m_facade(facade), m_device(device) {}
    DeviceManagerStatus GetUpdateStatusReport() override { return m_device.GetUpdateStatusReport(); }
    std::wstring GetUpdateLibraryPath() override { return m_facade.GetUpdateLibraryPath(); }
    int32_t PutFile(const wchar_t* printerPath, const wchar_t* hostFileName) override {
        return m_facade.PutFile(printerPath, hostFileName);
    }
    void StartUpdate() override { m_device.StartUpdate(); }
    int32_t DeleteFile(const std::wstring& printerPath) override { return m_device.DeleteFile(printerPath); }

private:
    NativeQRVDevice& m_facade;
    QRVDevice& m_device;
};

} // namespace

NativeQRVDevice::NativeQRVDevice(uint32_t stopWaitExtraMs)
    : NativeQRVDevice(kDefaultPrinterName, stopWaitExtraMs) {}

NativeQRVDevice::NativeQRVDevice(const std::wstring& printerName, uint32_t stopWaitExtraMs)
    : m_printerName(printerName), m_stopWaitExtraMs(stopWaitExtraMs) {
    const auto state = StatusMonitorState::Instance();
    std::lock_guard<std::recursive_mutex> lifecycle(state->Lifecycle());
    if (!state->stopEvent) {
        // Made before the count goes up: a facade whose construction throws is not counted.
        state->stopEvent = std::make_shared<vela::common::Event>(vela::common::Event::Mode::autoReset, false);
    }
    ++state->instanceCount;
}

NativeQRVDevice::~NativeQRVDevice() {
    try {
        const auto state = StatusMonitorState::Instance();
        PrinterStatusThread::PendingStop stop;
        bool last = false;
        {
            std::lock_guard<std::recursive_mutex> lifecycle(state->Lifecycle());
            const uint32_t count = state->instanceCount;
            if (count > 0) {
                --state->instanceCount;
            }
            if (count == 1) {
                last = true;
                stop = PrinterStatusThread::TakeForStop();
                state->ClearListeners();
            }
        }
        if (last) {
            PrinterStatusThread::FinishStop(std::move(stop),
                                            PrinterStatusThread::StopWaitMs(m_stopWaitExtraMs));
            m_printerName.clear();
        }
    } catch (...) {
        // Nothing above throws but a failing mutex; a destructor must not pass it on.
    }
    m_device.reset();
}

QRVDevice& NativeQRVDevice::Device(const wchar_t* operation) const {
    if (!m_device) {
        LogAndThrow(vela::common::InvalidOperationException(L"Printer not found", operation));
    }
    return *m_device;
}

void NativeQRVDevice::SetPrinterName(const std::wstring& name) {
    m_printerName = name;
    QRVPrinters discovery;
    const std::vector<ConnectedPrinter> printers = discovery.GetConnectedPrinters();
    const ConnectedPrinter* match = nullptr;
    for (const ConnectedPrinter& printer : printers) {
        if (printer.printerName == m_printerName) { // exact: same length, same code units
            match = &printer;
            break;
        }
    }
    if (match == nullptr) {
        LogAndThrow(DeviceNotFoundException(m_printerName, L"NativeQRVDevice::SetPrinterName()"));
    }
    auto device = std::make_unique<QRVDevice>(*match);
    device->SetProgressCallback(m_progress);
    device->SetCancelFlag(m_cancel);
    m_device = std::move(device);

    bool monitorRuns = false;
    {
        const auto state = StatusMonitorState::Instance();
        std::lock_guard<std::recursive_mutex> lifecycle(state->Lifecycle());
        monitorRuns = state->thread.Exists();
    }
    if (!monitorRuns) {
        // A printer that was just plugged in may not answer yet: give it a moment once.
        try {
            m_device->GetImageLibraryPath();
        } catch (const vela::common::UsbPrintDeviceException&) {
            vela::common::Pause(kProbeFailurePauseMs);
        }
    }
}

// ---- queries -------------------------------------------------------------------------------------

PrinterStatus NativeQRVDevice::GetPrinterStatus() {
    QRVDevice& device = Device(L"NativeQRVDevice::GetPrinterStatus()");
    return RunQueryWithRetry<ReplyException>(
        kRetryAttempts, [&device] { return device.GetStatus(); }, StatusFallback, Rethrow);
}

uint32_t NativeQRVDevice::GetBatteryStatus() {
    return GetPrinterStatus().GetBatteryStatus();
}

uint32_t NativeQRVDevice::GetChargingStatus() {
    return GetPrinterStatus().GetChargingStatus();
}

uint32_t NativeQRVDevice::GetExternalPowerStatus() {
    return GetPrinterStatus().GetExternalPowerStatus();
}

std::wstring NativeQRVDevice::GetCassetteIdentifier() {
    QRVDevice& device = Device(L"NativeQRVDevice::GetCassetteIdentifier()");
    return RunQueryWithRetry<ReplyException>(
        kRetryAttempts,
        [&device] {
            try {
                return device.GetSkuNumber();
            } catch (const NoCassettePresentException&) {
                return std::wstring(); // no cassette is an answer, not a failure: no retry
            }
        },
        [] { return std::wstring(); }, Rethrow);
}

PrinterVersion NativeQRVDevice::GetPrinterVersion() {
    QRVDevice& device = Device(L"NativeQRVDevice::GetPrinterVersion()");
    return RunQueryWithRetry<vela::common::Exception>(
        kRetryAttempts, [&device] { return device.GetPrinterVersion(); }, [] { return PrinterVersion(); },
        [](const vela::common::Exception& e) {
            // Logged where it was raised; it leaves as the root kind, message and source kept.
            throw vela::common::Exception(e.Message(), e.Source());
        });
}

std::wstring NativeQRVDevice::GetDeviceID() {
    QRVDevice& device = Device(L"NativeQRVDevice::GetDeviceID()");
    return RunQueryWithRetry<ReplyException>(
        kRetryAttempts, [&device] { return device.GetPrinterVersion().Text(5); },
        [] { return std::wstring(); }, Rethrow);
}

std::wstring NativeQRVDevice::GetPrinterType() {
    return L"Not implemented yet!";
}

std::wstring NativeQRVDevice::GetImageLibraryPath() {
    return Device(L"NativeQRVDevice::GetImageLibraryPath()").GetImageLibraryPath();
}

std::wstring NativeQRVDevice::GetJobFileLibraryPath() {
    return Device(L"NativeQRVDevice::GetJobFileLibraryPath()").GetJobFileLibraryPath();
}

std::wstring NativeQRVDevice::GetTemplateLibraryPath() {
    return Device(L"NativeQRVDevice::GetTemplateLibraryPath()").GetTemplateLibraryPath();
}

std::wstring NativeQRVDevice::GetUpdateLibraryPath() {
    return Device(L"NativeQRVDevice::GetUpdateLibraryPath()").GetUpdateLibraryPath();
}

int32_t NativeQRVDevice::GetDiskSpace(uint64_t& first, uint64_t& second) {
    Device(L"NativeQRVDevice::GetDiskSpace()").GetDiskSpace(first, second);
    return 0;
}

// ---- control orders ------------------------------------------------------------------------------

void NativeQRVDevice::Reboot() {
    Device(L"NativeQRVDevice::Reboot()").Reboot();
}

void NativeQRVDevice::ResumePrinting() {
    Device(L"NativeQRVDevice::ResumePrinting()").ResumePrinting();
}

void NativeQRVDevice::ClearError() {
    Device(L"NativeQRVDevice::ClearError()").ClearError();
}

void NativeQRVDevice::ClearCutterJamError() {
    Device(L"NativeQRVDevice::ClearCutterJamError()").ClearCutterJamError();
}

void NativeQRVDevice::FeedForward() {
    Device(L"NativeQRVDevice::FeedForward()").FeedForward();
}

void NativeQRVDevice::CutLabel() {
    Device(L"NativeQRVDevice::CutLabel()").CutLabel();
}

// ---- files ---------------------------------------------------------------------------------------

int32_t NativeQRVDevice::GetFile(const wchar_t* printerPath, const wchar_t* hostFileName) {
    if (printerPath == nullptr || hostFileName == nullptr) {
        return -1;
    }
    return Device(L"NativeQRVDevice::GetFile()").GetFile(printerPath, hostFileName);
}

int32_t NativeQRVDevice::PutFile(const wchar_t* printerPath, const wchar_t* hostFileName) {
    if (printerPath == nullptr || hostFileName == nullptr) {
        return -1;
    }
    return Device(L"NativeQRVDevice::PutFile()").PutFile(printerPath, hostFileName);
}

int32_t NativeQRVDevice::Rename(const wchar_t* oldPath, const wchar_t* newPath) {
    if (oldPath == nullptr || newPath == nullptr) {
        return -1;
    }
    return Device(L"NativeQRVDevice::Rename()").RenameFile(oldPath, newPath);
}

int32_t NativeQRVDevice::Delete(const wchar_t* path) {
    if (path == nullptr) {
        return -1;
    }
    return Device(L"NativeQRVDevice::Delete()").DeleteFile(path);
}

std::vector<std::unique_ptr<PathInfo>> NativeQRVDevice::GetFolderContent(const std::wstring& path) {
    return Device(L"NativeQRVDevice::GetFolderContent()").GetFolderContent(path);
}

std::vector<std::wstring> NativeQRVDevice::GetLogFileNameList() {
    const std::wstring folder = kLogFolder;
    std::vector<std::wstring> result;
    for (const auto& entry : Device(L"NativeQRVDevice::GetLogFileNameList()").GetFolderContent(folder)) {
        if (!entry->IsFile()) {
            continue;
        }
        const std::wstring name = entry->Name();
        if (name.find(kLogFileMark) != std::wstring::npos) {
            result.push_back(folder + L"/" + name);
        }
    }
    return result;
}

int32_t NativeQRVDevice::ApplyUpdate(const wchar_t* packagePath) {
    if (packagePath == nullptr) {
        return -1;
    }
    UpdateTarget target(*this, Device(L"NativeQRVDevice::ApplyUpdate()"));
    return FirmwareUpdate::Apply(target, packagePath, m_updatePhase);
}

void NativeQRVDevice::SetProgressCallback(ProgressCallback callback) {
    m_progress = std::move(callback);
    if (m_device) {
        m_device->SetProgressCallback(m_progress);
    }
}

void NativeQRVDevice::SetCancelFlag(std::atomic<bool>* flag) {
    m_cancel = flag;
    if (m_device) {
        m_device->SetCancelFlag(m_cancel);
    }
}

// ---- listeners -----------------------------------------------------------------------------------

void NativeQRVDevice::RegisterListener(INativeQRVListener* listener) {
    if (listener != nullptr) {
        Register(std::shared_ptr<INativeQRVListener>(listener, [](INativeQRVListener*) {}));
    }
}

void NativeQRVDevice::RegisterListener(std::shared_ptr<INativeQRVListener> listener) {
    if (listener) {
        Register(std::move(listener));
    }
}

void NativeQRVDevice::Register(std::shared_ptr<INativeQRVListener> listener) {
    const auto state = StatusMonitorState::Instance();
    std::lock_guard<std::recursive_mutex> lifecycle(state->Lifecycle());
    if (state->ListenerCount() != 0) {
        if (!state->ContainsListener(listener.get())) {
            state->AppendListener(std::move(listener));
        }
        return;
    }
    state->AppendListener(std::move(listener));
    if (!state->thread.Exists()) {
        // Without the thread the listener simply hears nothing; that is no reason to fail.
        PrinterStatusThread::Start(m_printerName);
    }
}

void NativeQRVDevice::DeregisterListener(INativeQRVListener* listener) {
    if (listener == nullptr) {
        return;
    }
    const auto state = StatusMonitorState::Instance();
    const uint32_t waitMs = PrinterStatusThread::StopWaitMs(m_stopWaitExtraMs);
    std::shared_ptr<StatusMonitorState::Registration> removed;
    PrinterStatusThread::PendingStop stop;
    {
        std::lock_guard<std::recursive_mutex> lifecycle(state->Lifecycle());
        const std::vector<INativeQRVListener*> listeners = state->Listeners();
        if (listeners.size() != 1 || listeners.front() != listener) {
            removed = state->TakeListener(listener);
            if (!removed) {
                return;
            }
        } else {
            // Also closes the stop event: only the next facade constructor makes a new one, so a
            // thread started before that has none (it ends at its first wait).
            stop = PrinterStatusThread::TakeForStop();
            state->ClearListeners();
        }
    }
    // The waits run without the lock: the listener being waited for may register, deregister
    // or close a gateway meanwhile.
    if (!removed) {
        PrinterStatusThread::FinishStop(std::move(stop), waitMs);
    } else if (!state->WaitUntilNotCalled(removed, waitMs)) {
        vela::common::Log::LogWarning(
            L"NativeQRVDevice::DeregisterListener() - the listener is still in a call after %u ms: "
            L"it is not called again",
            waitMs);
    }
}

} // namespace vela::kom
