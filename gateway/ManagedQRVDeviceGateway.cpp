#include "qrv/ManagedQRVDeviceGateway.h"

#include "common/Log.h"
#include "gateway/GatewayErrorHandler.h"
#include "gateway/NativeQRVListenerImp.h"
#include "gateway/StatusConversion.h"
#include "kom/QRVException.h"
#include "kom/connection/NativeQRVDevice.h"
#include "kom/connection/PrinterAccessSynchronizer.h"

#include <atomic>
#include <exception>

namespace vela::kom {

namespace host = vela::printer::communication;
using vela::common::Log;
using Handler = GatewayErrorHandler;
using FileSubject = GatewayErrorHandler::FileSubject;

namespace {

constexpr const wchar_t* kCreateEntry = L"QRVDeviceGateway::CreateQRVDevice()";

// A wide string handed to the facade as a null-terminated path: a zero inside it would silently
// cut the path short, so it is refused as a bad path character.
const wchar_t* PathArgument(const std::wstring& path, const wchar_t* entry) {
    if (path.find(L'\0') != std::wstring::npos) {
        throw InvalidPathCharsException(L"'Invalid path characters found'", entry);
    }
    return path.c_str();
}

host::PrintInterruptEventArgs InterruptArgs(uint32_t code, uint32_t value) {
    return host::PrintInterruptEventArgs(code, StatusConversion::GetPrintInterruptIssue(code), value);
}

NativeQRVDevice::UpdatePhaseCallback
NativeUpdatePhase(const ManagedQRVDeviceGateway::UpdatePhaseCallback& phase) {
    if (!phase) {
        return nullptr;
    }
    // The two enumerations list the same steps in the same order.
    return [phase](NativeQRVDevice::UpdatePhase native) {
        phase(static_cast<ManagedQRVDeviceGateway::UpdatePhase>(native));
    };
}

} // namespace

struct ManagedQRVDeviceGateway::Impl {
    NativeQRVDevice& Facade(const wchar_t* entry) const {
        ListenForLockWaits();
        if (!m_pNativeQRVDevice) {
            // Thrown inside the operation's handler, which logs it once as "Printer Not Found".
            throw vela::common::InvalidOperationException(L"Printer not found", entry);
        }
        return *m_pNativeQRVDevice;
    }

    // Stops the events and lets go of the facade and the listener. The deregistration waits (up
    // to the facade's bound) for a forward in progress on another thread; one that outlasts it
    // keeps the listener alive through the monitor thread's reference.
    void Release() noexcept {
        if (m_pNativeListener) {
            m_pNativeListener->Disarm(); // no event reaches the gateway from here on
        }
        if (m_pNativeQRVDevice) {
            try {
                if (m_pNativeListener) {
                    m_pNativeQRVDevice->DeregisterListener(m_pNativeListener.get());
                }
            } catch (const vela::common::Exception& e) {
                Log::LogWarning(L"QRVDeviceGateway::Close(): %s", e.Message());
            } catch (const std::exception& e) {
                Log::LogWarning(L"QRVDeviceGateway::Close(): %s", e.what());
            } catch (...) {
                Log::LogWarning(L"QRVDeviceGateway::Close(): failed to stop listening");
            }
            m_pNativeQRVDevice.reset(); // the facade's destructor never throws
        }
        m_pNativeListener.reset();
    }

    std::unique_ptr<NativeQRVDevice> m_pNativeQRVDevice;
    std::shared_ptr<NativeQRVListenerImp> m_pNativeListener;
    ProgressCallback m_progress;
    UpdatePhaseCallback m_updatePhase;
    std::atomic<bool> m_cancelRequested{false};
    bool m_statusEvents = true;

    // Lock waits of this thread go to this gateway's callback from here on (every operation
    // starts here); the weak reference ends with the gateway.
    void ListenForLockWaits() const { PrinterAccessSynchronizer::SetWaitNotice(m_lockWait); }
    std::shared_ptr<const LockWaitNotice> m_lockWait;
};

ManagedQRVDeviceGateway::ManagedQRVDeviceGateway() : m_impl(std::make_unique<Impl>()) {}

ManagedQRVDeviceGateway::~ManagedQRVDeviceGateway() {
    const std::shared_ptr<NativeQRVListenerImp> listener = m_impl->m_pNativeListener;
    if (listener && listener->IsForwardingOnThisThread()) {
        // Destroyed by one of its own subscribers, on the monitor thread: the release cannot
        // wait for the forward it is part of. The listener runs it once that forward returned;
        // until then it owns the facade, and the gateway forwards nothing more.
        listener->Disarm();
        std::shared_ptr<Impl> impl(std::move(m_impl));
        listener->AfterForward([impl] { impl->Release(); });
        return;
    }
    m_impl->Release();
}

bool ManagedQRVDeviceGateway::IsOpen() const {
    return m_impl->m_pNativeQRVDevice != nullptr;
}

void ManagedQRVDeviceGateway::ThrowIfCalledFromSubscriber(const wchar_t* entry) const {
    // Tearing the facade down from the monitor thread would make it wait for itself and then
    // return into a destroyed listener.
    if (m_impl->m_pNativeListener && m_impl->m_pNativeListener->IsForwardingOnThisThread()) {
        std::wstring line = std::wstring(entry) + L": Unknown Error: not allowed inside an event subscriber";
        Log::LogWarning(line);
        throw host::PrinterException(line);
    }
}

void ManagedQRVDeviceGateway::Open(const std::wstring& printerName) {
    Log::LogInfo(L"QRVDeviceGateway::Open()");
    ThrowIfCalledFromSubscriber(L"QRVDeviceGateway::Open()");
    Release();
    try {
        Impl& impl = *m_impl;
        impl.ListenForLockWaits();
        impl.m_pNativeQRVDevice = std::make_unique<NativeQRVDevice>(kStopWaitExtraMs);
        impl.m_pNativeQRVDevice->SetCancelFlag(&impl.m_cancelRequested);
        if (impl.m_progress) {
            impl.m_pNativeQRVDevice->SetProgressCallback(impl.m_progress);
        }
        if (impl.m_updatePhase) {
            impl.m_pNativeQRVDevice->SetUpdatePhaseCallback(NativeUpdatePhase(impl.m_updatePhase));
        }
        impl.m_pNativeQRVDevice->SetPrinterName(printerName);
        if (!impl.m_statusEvents) {
            return;
        }
        // Once the gateway is closed, a raise in progress calls no further subscriber.
        auto armed = std::make_shared<std::atomic<bool>>(true);
        auto stillOpen = [armed] { return armed->load(); };
        impl.m_pNativeListener = std::make_shared<NativeQRVListenerImp>(
            NativeQRVListenerImp::Targets{
                [this, stillOpen](const PrinterStatus& status) {
                    m_onPrinterStatusChanged.RaiseWhile(
                        stillOpen, PrinterStatusEventArgs(StatusConversion::ChangedItems(status)));
                },
                [this, stillOpen](uint32_t code, uint32_t value) {
                    m_onPrintInterrupt.RaiseWhile(stillOpen, InterruptArgs(code, value));
                }},
            armed);
        impl.m_pNativeQRVDevice->RegisterListener(impl.m_pNativeListener);
    } catch (const QRVException& e) {
        Release();
        std::wstring line = std::wstring(kCreateEntry) + L": Printer Communication Error '" + printerName +
                            L"': " + e.Message();
        Log::LogWarning(line);
        throw host::PrinterCommunicationException(line);
    } catch (const vela::common::Exception& e) {
        Release();
        std::wstring line =
            std::wstring(kCreateEntry) + L": Unknown Error '" + printerName + L"': " + e.Message();
        Log::LogWarning(line);
        throw host::PrinterException(line);
    } catch (...) {
        Release();
        throw;
    }
}

void ManagedQRVDeviceGateway::Close() {
    ThrowIfCalledFromSubscriber(L"QRVDeviceGateway::Close()");
    Release();
}

void ManagedQRVDeviceGateway::Release() noexcept {
    m_impl->Release();
}

void ManagedQRVDeviceGateway::SetProgressCallback(ProgressCallback callback) {
    m_impl->m_progress = std::move(callback);
    if (m_impl->m_pNativeQRVDevice) {
        m_impl->m_pNativeQRVDevice->SetProgressCallback(m_impl->m_progress);
    }
}

void ManagedQRVDeviceGateway::CancelTransfer() noexcept {
    m_impl->m_cancelRequested.store(true);
}

void ManagedQRVDeviceGateway::SetLockWaitCallback(LockWaitCallback callback) {
    if (!callback) {
        m_impl->m_lockWait.reset();
        return;
    }
    m_impl->m_lockWait = std::make_shared<const LockWaitNotice>([callback](const LockWaitInfo& info) {
        callback(LockWait{info.lockName, info.holderProcessId, info.holderProgram, info.waitedMs});
    });
}

void ManagedQRVDeviceGateway::SetStatusEvents(bool enabled) {
    m_impl->m_statusEvents = enabled;
}

void ManagedQRVDeviceGateway::SetUpdatePhaseCallback(UpdatePhaseCallback callback) {
    m_impl->m_updatePhase = std::move(callback);
    if (m_impl->m_pNativeQRVDevice) {
        m_impl->m_pNativeQRVDevice->SetUpdatePhaseCallback(NativeUpdatePhase(m_impl->m_updatePhase));
    }
}

// --- operations, in declaration order -------------------------------------------------------

ManagedQRVDeviceGateway::VersionList ManagedQRVDeviceGateway::GetVersions() {
    const wchar_t* entry = L"QRVDeviceGateway::GetVersions()";
    Log::LogInfo(entry);
    return Handler::RunShort(entry, [&] {
        PrinterVersion v = m_impl->Facade(entry).GetPrinterVersion();
        return VersionList{{L"OS", v.GetOSVersion()},           {L"Firmware", v.GetFWVersion()},
                           {L"Application", v.GetAppVersion()}, {L"Overall", v.GetOverallVersion()},
                           {L"Auxiliary", v.Text(4)},           {L"DeviceID", v.Text(5)},
                           {L"RootFS", v.GetRootFSVersion()}};
    });
}

int32_t ManagedQRVDeviceGateway::ApplyUpdate(const std::wstring& fileName) {
    const wchar_t* entry = L"QRVDeviceGateway::ApplyUpdate()";
    Log::LogInfo(entry);
    return Handler::RunShort(entry, [&] {
        NativeQRVDevice& facade = m_impl->Facade(entry);
        return facade.ApplyUpdate(PathArgument(fileName, entry));
    });
}

void ManagedQRVDeviceGateway::Reboot() {
    const wchar_t* entry = L"QRVDeviceGateway::Reboot()";
    Log::LogInfo(entry);
    Handler::RunShort(entry, [&] { m_impl->Facade(entry).Reboot(); });
}

std::wstring ManagedQRVDeviceGateway::GetDeviceID() {
    const wchar_t* entry = L"QRVDeviceGateway::GetDeviceID()";
    Log::LogInfo(entry);
    return Handler::RunShort(entry, [&] { return m_impl->Facade(entry).GetDeviceID(); });
}

std::wstring ManagedQRVDeviceGateway::GetPrinterType() {
    const wchar_t* entry = L"QRVDeviceGateway::GetPrinterType()";
    Log::LogInfo(entry);
    return Handler::RunShort(entry, [&] { return m_impl->Facade(entry).GetPrinterType(); });
}

std::wstring ManagedQRVDeviceGateway::GetUpdateLibraryPath() {
    const wchar_t* entry = L"QRVDeviceGateway::GetUpdatePath()";
    Log::LogInfo(entry);
    return Handler::RunShort(entry, [&] { return m_impl->Facade(entry).GetUpdateLibraryPath(); });
}

std::wstring ManagedQRVDeviceGateway::GetImageLibraryPath() {
    const wchar_t* entry = L"QRVDeviceGateway::GetImageLibraryPath()";
    Log::LogInfo(entry);
    return Handler::RunShort(entry, [&] { return m_impl->Facade(entry).GetImageLibraryPath(); });
}

std::wstring ManagedQRVDeviceGateway::GetJobFileLibraryPath() {
    const wchar_t* entry = L"QRVDeviceGateway::GetJobfileLibraryPath()";
    Log::LogInfo(entry);
    return Handler::RunShort(entry, [&] { return m_impl->Facade(entry).GetJobFileLibraryPath(); });
}

std::wstring ManagedQRVDeviceGateway::GetTemplateLibraryPath() {
    const wchar_t* entry = L"QRVDeviceGateway::GetTemaplateLibraryPath()";
    Log::LogInfo(entry);
    return Handler::RunShort(entry, [&] { return m_impl->Facade(entry).GetTemplateLibraryPath(); });
}

void ManagedQRVDeviceGateway::FeedForward() {
    const wchar_t* entry = L"QRVDeviceGateway::FeedForward()";
    Log::LogInfo(entry);
    Handler::RunShort(entry, [&] { m_impl->Facade(entry).FeedForward(); });
}

void ManagedQRVDeviceGateway::CutLabel() {
    const wchar_t* entry = L"QRVDeviceGateway::CutLabel()";
    Log::LogInfo(entry);
    Handler::RunShort(entry, [&] { m_impl->Facade(entry).CutLabel(); });
}

void ManagedQRVDeviceGateway::SetCutterMode(host::TapeCutMode) {}

int32_t ManagedQRVDeviceGateway::GetFile(const std::wstring& printerPath, const std::wstring& fileName) {
    const wchar_t* entry = L"QRVDeviceGateway::GetFile()";
    Log::LogInfo(entry);
    return Handler::RunFile(entry, FileSubject::Path(printerPath), [&] {
        NativeQRVDevice& facade = m_impl->Facade(entry);
        return facade.GetFile(PathArgument(printerPath, entry), PathArgument(fileName, entry));
    });
}

int32_t ManagedQRVDeviceGateway::PutFile(const std::wstring& printerPath, const std::wstring& fileName) {
    const wchar_t* entry = L"QRVDeviceGateway::PutFile()";
    Log::LogInfo(entry);
    return Handler::RunFile(entry, FileSubject::Path(printerPath), [&] {
        NativeQRVDevice& facade = m_impl->Facade(entry);
        return facade.PutFile(PathArgument(printerPath, entry), PathArgument(fileName, entry));
    });
}

int32_t ManagedQRVDeviceGateway::RenameFile(const std::wstring& oldFileName,
                                            const std::wstring& newFileName) {
    const wchar_t* entry = L"QRVDeviceGateway::RenameFile()";
    Log::LogInfo(entry);
    return Handler::RunFile(entry, FileSubject::Rename(oldFileName, newFileName), [&] {
        NativeQRVDevice& facade = m_impl->Facade(entry);
        return facade.Rename(PathArgument(oldFileName, entry), PathArgument(newFileName, entry));
    });
}

int32_t ManagedQRVDeviceGateway::DeleteFile(const std::wstring& printerPath) {
    const wchar_t* entry = L"QRVDeviceGateway::DeleteFile()";
    Log::LogInfo(entry);
    return Handler::RunFile(entry, FileSubject::Path(printerPath), [&] {
        NativeQRVDevice& facade = m_impl->Facade(entry);
        return facade.Delete(PathArgument(printerPath, entry));
    });
}

std::vector<host::FileComponent> ManagedQRVDeviceGateway::GetFiles(const std::wstring& printerPath) {
    const wchar_t* entry = L"QRVDeviceGateway::GetFiles()";
    Log::LogInfo(entry);
    return Handler::RunDirectory(entry, &printerPath, [&] {
        NativeQRVDevice& facade = m_impl->Facade(entry);
        PathArgument(printerPath, entry);
        std::vector<std::unique_ptr<PathInfo>> content = facade.GetFolderContent(printerPath);
        std::vector<host::FileComponent> files;
        files.reserve(content.size());
        for (const auto& info : content) {
            host::FileType type = info->IsFile() ? host::FileType::file : host::FileType::directory;
            files.push_back(host::FileComponent(info->Name(), type, info->Size()));
        }
        return files;
    });
}

std::vector<std::wstring> ManagedQRVDeviceGateway::GetLogFiles() {
    const wchar_t* entry = L"QRVDeviceGateway::GetLogFiles()";
    Log::LogInfo(entry);
    return Handler::RunDirectory(entry, nullptr, [&] { return m_impl->Facade(entry).GetLogFileNameList(); });
}

void ManagedQRVDeviceGateway::GetDiskSpaceKB(uint64_t& freeDiskSpace, uint64_t& usedDiskSpace) {
    const wchar_t* entry = L"QRVDeviceGateway::GetDiskSpaceKB()";
    Log::LogInfo(entry);
    Handler::RunShort(entry, [&] {
        uint64_t first = 0;
        uint64_t second = 0;
        m_impl->Facade(entry).GetDiskSpace(first, second);
        freeDiskSpace = first >> 10;
        usedDiskSpace = second >> 10;
    });
}

std::vector<host::PrinterStatusItem> ManagedQRVDeviceGateway::GetPrinterStatus() {
    const wchar_t* entry = L"QRVDeviceGateway::GetPrinterStatus()";
    Log::LogInfo(entry);
    return Handler::RunShort(
        entry, [&] { return StatusConversion::AllItems(m_impl->Facade(entry).GetPrinterStatus()); });
}

std::vector<host::PrinterStatusItem> ManagedQRVDeviceGateway::GetFilteredPrinterErrorStatus() {
    const wchar_t* entry = L"QRVDeviceGateway::GetPrinterFilteredErrorStatus()";
    Log::LogInfo(entry);
    return Handler::RunShort(
        entry, [&] { return StatusConversion::ErrorItems(m_impl->Facade(entry).GetPrinterStatus()); });
}

std::vector<host::PrinterStatusItem>
ManagedQRVDeviceGateway::ErrorItemsOf(const std::vector<host::PrinterStatusItem>& all) {
    std::vector<host::PrinterStatusItem> errors;
    for (const host::PrinterStatusItem& item : all) {
        if (StatusConversion::IsError(item)) {
            errors.push_back(item);
        }
    }
    return errors;
}

uint32_t ManagedQRVDeviceGateway::GetBatteryChargedPercentage() {
    const wchar_t* entry = L"QRVDeviceGateway::GetBatteryChargedPercentage()";
    Log::LogInfo(entry);
    return Handler::RunShort(entry, [&] {
        return StatusConversion::BatteryChargedPercentage(m_impl->Facade(entry).GetBatteryStatus());
    });
}

host::EBatteryStatus ManagedQRVDeviceGateway::GetBatteryStatus() {
    const wchar_t* entry = L"QRVDeviceGateway::GetBatteryStatus()";
    Log::LogInfo(entry);
    return Handler::RunShort(entry, [&] {
        return StatusConversion::GetBatteryStatus(m_impl->Facade(entry).GetBatteryStatus())
            .As<host::EBatteryStatus>();
    });
}

host::EChargingStatus ManagedQRVDeviceGateway::GetChargingStatus() {
    const wchar_t* entry = L"QRVDeviceGateway::GetChargingStatus()";
    Log::LogInfo(entry);
    return Handler::RunShort(entry, [&] {
        return StatusConversion::GetChargingStatus(m_impl->Facade(entry).GetChargingStatus())
            .As<host::EChargingStatus>();
    });
}

host::EExternalPowerSupplyStatus ManagedQRVDeviceGateway::GetExternalPowerStatus() {
    const wchar_t* entry = L"QRVDeviceGateway::GetExternalPowerStatus()";
    Log::LogInfo(entry);
    return Handler::RunShort(entry, [&] {
        return StatusConversion::GetExternalPowerStatus(m_impl->Facade(entry).GetExternalPowerStatus())
            .As<host::EExternalPowerSupplyStatus>();
    });
}

std::wstring ManagedQRVDeviceGateway::GetCassetteIdentifier() {
    const wchar_t* entry = L"QRVDeviceGateway::GetCassetteIdentifier()";
    Log::LogInfo(entry);
    return Handler::RunShort(entry, [&] { return m_impl->Facade(entry).GetCassetteIdentifier(); });
}

void ManagedQRVDeviceGateway::ResumePrinting() {
    const wchar_t* entry = L"QRVDeviceGateway::ResumePrinting()";
    Log::LogInfo(entry);
    Handler::RunShort(entry, [&] { m_impl->Facade(entry).ResumePrinting(); });
}

void ManagedQRVDeviceGateway::ClearErrors() {
    const wchar_t* entry = L"QRVDeviceGateway::ClearErrors()";
    Log::LogInfo(entry);
    Handler::RunShort(entry, [&] { m_impl->Facade(entry).ClearError(); });
}

void ManagedQRVDeviceGateway::ClearCutterJamError() {
    const wchar_t* entry = L"QRVDeviceGateway::ClearCutterJamError()";
    Log::LogInfo(entry);
    Handler::RunShort(entry, [&] { m_impl->Facade(entry).ClearCutterJamError(); });
}

// --- events -----------------------------------------------------------------------------------

void ManagedQRVDeviceGateway::OnNativePrinterStatusChangedEvent(const PrinterStatus& status) {
    ThrowPrinterStatusChangedEvent(PrinterStatusEventArgs(StatusConversion::ChangedItems(status)));
}

void ManagedQRVDeviceGateway::OnNativePrinterInterruptEvent(uint32_t code, uint32_t value) {
    ThrowPrintInterruptEvent(InterruptArgs(code, value));
}

void ManagedQRVDeviceGateway::ThrowPrinterStatusChangedEvent(const PrinterStatusEventArgs& args) {
    m_onPrinterStatusChanged.Raise(args);
}

void ManagedQRVDeviceGateway::ThrowPrintInterruptEvent(const PrintInterruptEventArgs& args) {
    m_onPrintInterrupt.Raise(args);
}

} // namespace vela::kom
