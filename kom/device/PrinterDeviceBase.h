#pragma once

#include "common/IUsbPrintDevice.h"
#include "kom/QRVException.h"
#include "kom/device/ConnectedPrinter.h"
#include "kom/filesystem/PathInfo.h"
#include "kom/protocol/PrinterStatus.h"
#include "kom/protocol/PrinterVersion.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vela::kom {

// The protocol with one printer, over three policies:
//   Transport    : derives from vela::common::IUsbPrintDevice; Transport(const std::wstring& path)
//                  opens the channel, the destructor closes it.
//   Synchronizer : Synchronizer(const ConnectedPrinter&) takes the machine-wide access lock and
//                  holds it until destruction.
//   Converter    : static ToUtf8(const std::wstring&) / FromUtf8(const std::string&).
//
// Every operation is one transaction: take the lock, open a fresh transport, write the request,
// read and check the reply (or poll for completion), close, release. Nothing stays open between
// operations, so the object itself holds no channel. Operations block the calling thread for the
// exchange (each transfer is limited to 3000 ms by the transport, the lock to 10000 ms) plus the
// fixed pauses named below. They throw the vela::kom exception kinds (ReplyException for bad
// replies, the completion-code kinds, path kinds) and the vela::common transport kinds.
// Calls may come from any thread; the access lock serialises them, also across processes.
//
// Log and exception texts name their origin "PrinterDevice::<operation>()".
//
// The bodies live in PrinterDeviceProtocol.ipp and PrinterDeviceFileSystem.ipp; a translation
// unit that instantiates the template includes both (QRVDevice.cpp does so once for production).
template <class Transport, class Synchronizer, class Converter> class PrinterDeviceBase {
public:
    using ProgressCallback = std::function<void(uint64_t done, uint64_t total)>;

    explicit PrinterDeviceBase(const ConnectedPrinter& printer); // no I/O
    virtual ~PrinterDeviceBase();

    // ---- the virtual operations, in slot order -------------------------------------------
    virtual std::wstring GetPrinterType(); // not implemented by the printer: "Not implemented yet!"
    virtual PrinterStatus GetStatus();
    virtual std::wstring GetSkuNumber(); // NoCassettePresentException without a cassette
    // Print control orders: each holds the lock and the channel for a 5000 ms pause afterwards.
    virtual void ResumePrinting();
    virtual void ClearError();
    virtual void ClearCutterJamError();
    virtual void FeedForward();
    virtual void CutLabel();
    virtual PrinterVersion GetPrinterVersion();
    virtual DeviceManagerStatus GetUpdateStatusReport();
    // Device control orders: no reply is awaited.
    virtual void Reboot();
    virtual void StartUpdate();
    virtual void GetDiskSpace(uint64_t& first, uint64_t& second);
    virtual std::wstring GetFolderDetail(uint8_t selector);
    virtual std::wstring GetJobFileLibraryPath();  // folder detail 1
    virtual std::wstring GetTemplateLibraryPath(); // folder detail 2
    virtual std::wstring GetImageLibraryPath();    // folder detail 3
    virtual std::wstring GetUpdateLibraryPath();   // folder detail 4
    // File transfer. The host file written by GetFile is complete or untouched.
    virtual int32_t GetFile(const std::wstring& printerPath, const std::wstring& hostFileName);
    virtual int32_t PutFile(const std::wstring& printerPath, const std::wstring& hostFileName);
    virtual int32_t RenameFile(const std::wstring& oldPath, const std::wstring& newPath);
    virtual int32_t DeleteFile(const std::wstring& path);
    // Starts with a fixed 1000 ms pause under the lock.
    virtual std::vector<std::unique_ptr<PathInfo>> GetFolderContent(const std::wstring& path);
    virtual std::wstring GetPrinterModel(); // not implemented by the printer: "Not implemented yet!"
    // The per-device monitor's two start modes; only QRVDevice has a monitor (here: -1).
    virtual int32_t StartMonitor(std::function<void(int32_t)> callback);
    virtual int32_t StartMonitorExclusive(std::function<void(int32_t)> callback);
    virtual std::vector<uint8_t> GetStatusInternal();
    virtual bool IsCassettePresent();
    virtual EepromData GetCassetteEepromData();
    virtual void PrintControlCommand(uint8_t code);
    virtual void DeviceControlCommand(uint8_t code);
    // Reads the next reply header (one retry when the transport fails) and returns the payload
    // length, leaving the payload unread. ReplyException "'Header corrupted'" for a wrong start
    // byte. A total length below 7 wraps around and is returned as it is.
    virtual uint32_t GetReplyDataLength(vela::common::IUsbPrintDevice& transport);
    virtual std::unique_ptr<Transport> OpenDevice();
    // Polls until the operation the caller started has finished: 250 ms first, then 500 ms
    // between polls (about 5.25 s for a printer that stays busy). Returns the result code (0 on
    // success, 8 to 255 as they come) or -1 when the poll gave up; codes 1 to 7 throw their kinds.
    virtual int32_t WaitForCompletion(vela::common::IUsbPrintDevice& transport);
    virtual std::vector<uint8_t> LoadFile(const std::wstring& hostFileName);
    virtual void SaveFile(const std::wstring& hostFileName, std::vector<uint8_t> reply);

    // ---- framing primitives ----------------------------------------------------------------
    // Writes the whole request in one Write. Throws QRVException on a short write and the
    // transport's write exceptions.
    void WriteData(vela::common::IUsbPrintDevice& transport, const std::vector<uint8_t>& bytes);
    // Empties `buffer` and reads until it holds `count` bytes (the transport is asked at least
    // once, even for 0). The buffer grows only as bytes arrive, so a hostile or wrapped-around
    // count costs no memory up front; the transport's read time-out ends a reply that stops.
    // Throws the transport's read exceptions; `buffer` then holds what had arrived.
    void ReadData(vela::common::IUsbPrintDevice& transport, std::vector<uint8_t>& buffer, uint32_t count);
    // The same, calling progress(held, count) on the calling thread after each Read that added
    // bytes. An empty callback is allowed.
    void ReadData(vela::common::IUsbPrintDevice& transport, std::vector<uint8_t>& buffer, uint32_t count,
                  const ProgressCallback& progress);
    // Reads and drops one whole message; failures of the library's kinds are logged, not thrown.
    void PergeQueue(vela::common::IUsbPrintDevice& transport);

    // ---- path rules -------------------------------------------------------------------------
    void CheckPath(const std::wstring& path) const;
    bool IsValidFileName(const std::wstring& name) const;

    // Optional progress of puts and gets, in bytes of the host file (done, file size). Called on
    // the calling thread during the transfer; without one, nothing changes.
    void SetProgressCallback(ProgressCallback callback) { m_progress = std::move(callback); }
    // The flag a host sets, from any thread, to stop the running put or get at its next chunk; the
    // transfer then throws vela::common::OperationCancelledException. Each transfer clears it when
    // it starts. Not owned: it must outlive this object (null: transfers cannot be cancelled).
    void SetCancelFlag(std::atomic<bool>* flag) { m_cancel = flag; }

    const ConnectedPrinter& Printer() const { return m_printer; }

    const wchar_t PATH_DELIMITER = L'/';

protected:
    // Writes a two-byte information query (0x01, command) to `unit` and returns the reply payload
    // after checking its announced length with `isValidSize` (ReplyException "'Wrong reply size'"
    // with `origin` after draining the payload and purging). The caller holds lock and transport.
    std::vector<uint8_t> ExchangeInformationQuery(vela::common::IUsbPrintDevice& transport, uint32_t unit,
                                                  uint8_t command, bool (*isValidSize)(uint32_t),
                                                  const wchar_t* origin);

    // Runs `exchange(transport)`, a transaction that may safely be repeated (a query, the prepare
    // step of a get). When its reply header turns out corrupt, the channel is drained until quiet
    // (one warning with the byte count, under `origin`) and the exchange runs once more; a second
    // corrupt header leaves as ReplyException "'Header corrupted'".
    template <class Exchange>
    auto RepeatingOnCorruptHeader(vela::common::IUsbPrintDevice& transport, const wchar_t* origin,
                                  Exchange&& exchange) -> decltype(exchange(transport));
    // Clears the cancel flag (a transfer starts) / tells whether it is set.
    void BeginCancellableTransfer();
    bool CancelRequested() const { return m_cancel != nullptr && m_cancel->load(); }
    [[noreturn]] void ThrowCancelled(const std::wstring& source) const;
    // QRVException "could not write <expected> bytes; only <written> bytes were written".
    [[noreturn]] static void ThrowShortWrite(uint64_t expected, uint64_t written);

    ConnectedPrinter m_printer;
    std::vector<std::wstring> m_invalidPathChars;
    ProgressCallback m_progress;
    std::atomic<bool>* m_cancel = nullptr;
};

} // namespace vela::kom
