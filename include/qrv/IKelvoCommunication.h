#pragma once

#include "qrv/Delegates.h"
#include "qrv/FileComponent.h"
#include "qrv/HostEvent.h"
#include "qrv/PrintInterruptEventArgs.h"
#include "qrv/PrinterStatusEventArgs.h"
#include "qrv/PrinterStatusItem.h"
#include "qrv/StatusEnumerations.h"
#include "qrv/TapeCutMode.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vela::printer::communication {

// The host's interface to one label printer. Every operation throws a HostException kind (see
// HostException.h) when it fails; the kinds and their texts are those of the implementation.
// Events are raised on a library thread, not on the thread that opened the printer.
class IKelvoCommunication {
public:
    // The printer's version texts as (component, version), in the order the printer reports them.
    using VersionList = std::vector<std::pair<std::wstring, std::wstring>>;

    using StringEvent = HostEvent<const std::wstring&>;
    using UnsignedIntEvent = HostEvent<uint32_t>;
    using PrinterStatusChangedEvent = HostEvent<const PrinterStatusEventArgs&>;
    using PrintInterruptEvent = HostEvent<const PrintInterruptEventArgs&>;

    virtual ~IKelvoCommunication() = default;

    virtual void Open(const std::wstring& printerName) = 0;
    virtual void Close() = 0;

    virtual VersionList GetVersions() = 0;
    virtual int32_t ApplyUpdate(const std::wstring& fileName) = 0;
    virtual void Reboot() = 0;
    virtual std::wstring GetDeviceID() = 0;
    virtual std::wstring GetPrinterType() = 0;
    virtual std::wstring GetUpdateLibraryPath() = 0;
    virtual std::wstring GetImageLibraryPath() = 0;
    virtual std::wstring GetJobFileLibraryPath() = 0;
    virtual std::wstring GetTemplateLibraryPath() = 0;
    virtual void FeedForward() = 0;
    virtual void CutLabel() = 0;
    virtual void SetCutterMode(TapeCutMode mode) = 0;
    virtual int32_t GetFile(const std::wstring& printerPath, const std::wstring& fileName) = 0;
    virtual int32_t PutFile(const std::wstring& printerPath, const std::wstring& fileName) = 0;
    virtual int32_t RenameFile(const std::wstring& oldFileName, const std::wstring& newFileName) = 0;
    virtual int32_t DeleteFile(const std::wstring& printerPath) = 0;
    virtual std::vector<FileComponent> GetFiles(const std::wstring& printerPath) = 0;
    virtual std::vector<std::wstring> GetLogFiles() = 0;
    virtual void GetDiskSpaceKB(uint64_t& freeDiskSpace, uint64_t& usedDiskSpace) = 0;
    virtual std::vector<PrinterStatusItem> GetPrinterStatus() = 0;
    virtual std::vector<PrinterStatusItem> GetFilteredPrinterErrorStatus() = 0;
    virtual uint32_t GetBatteryChargedPercentage() = 0;
    virtual EBatteryStatus GetBatteryStatus() = 0;
    virtual EChargingStatus GetChargingStatus() = 0;
    virtual EExternalPowerSupplyStatus GetExternalPowerStatus() = 0;
    virtual std::wstring GetCassetteIdentifier() = 0;
    virtual void ResumePrinting() = 0;
    virtual void ClearErrors() = 0;
    virtual void ClearCutterJamError() = 0;

    // The events. Subscribe with Add (keep the token), unsubscribe with Remove.
    virtual StringEvent& OnUSBPrinterDisconnect() = 0;
    virtual StringEvent& OnCassetteIdentifierChanged() = 0;
    virtual StringEvent& OnPrinterException() = 0;
    virtual UnsignedIntEvent& OnBatteryStatusChanged() = 0;
    virtual UnsignedIntEvent& OnBatteryChargedPercentageChanged() = 0;
    virtual PrinterStatusChangedEvent& OnPrinterStatusChanged() = 0;
    virtual PrintInterruptEvent& OnPrintInterrupt() = 0;
};

} // namespace vela::printer::communication
