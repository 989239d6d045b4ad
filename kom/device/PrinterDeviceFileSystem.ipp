// File-system half of PrinterDeviceBase: path rules, file transfer, listings, rename, delete,
// folder detail and disk space.
//
// Every operation that takes a printer path checks it before anything else, then takes the access
// lock and opens a fresh transport; both are released on every way out (they are scoped objects).
#pragma once

#include "kom/device/PrinterDeviceBase.h"

#include "common/Exception.h"
#include "common/Log.h"
#include "common/LogAndThrow.h"
#include "common/MD5FileHash.h"
#include "common/Pause.h"
#include "common/StringConverter.h"
#include "common/UsbPrintDevice.h"
#include "kom/filesystem/BackgroundFileDigest.h"
#include "kom/filesystem/DiskSpaceReply.h"
#include "kom/filesystem/FileDataReply.h"
#include "kom/filesystem/FileSystemRequests.h"
#include "kom/filesystem/FolderDetailReply.h"
#include "kom/filesystem/FolderListingParser.h"
#include "kom/filesystem/HostFileTransfer.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <limits>
#include <optional>

namespace vela::kom {

namespace filesystem_detail {

// Reply data is moved in slices of this size, so a get holds one slice, never the whole file.
constexpr uint32_t kReplySlice = 256 * 1024;
// Every listing starts with this pause, taken under the lock: the printer needs the time.
constexpr uint32_t kListingPauseMs = 1000;

// Reports put progress while the message goes out: the transport calls back before each chunk it
// hands to the channel. Removed again when the message is out (also on failure), so that the
// completion poll that follows reports nothing.
class PutProgressScope {
public:
    template <class Progress>
    PutProgressScope(vela::common::IUsbPrintDevice& transport, const Progress& progress, uint64_t total)
        : m_transport(transport) {
        if (!progress) {
            return;
        }
        m_installed = true;
        transport.SetWriteCallback([&progress, total, chunks = uint64_t{0}]() mutable {
            ++chunks;
            progress(std::min(chunks * vela::common::UsbPrintDevice::kChunkSize, total), total);
        });
    }
    ~PutProgressScope() {
        if (m_installed) {
            m_transport.ClearWriteCallback();
        }
    }
    PutProgressScope(const PutProgressScope&) = delete;
    PutProgressScope& operator=(const PutProgressScope&) = delete;

private:
    vela::common::IUsbPrintDevice& m_transport;
    bool m_installed = false;
};

} // namespace filesystem_detail

// ---- path rules -------------------------------------------------------------------------------

template <class T, class S, class C>
void PrinterDeviceBase<T, S, C>::CheckPath(const std::wstring& path) const {
    const std::wstring source = L"PrinterDevice::CheckPath()";
    // Counted in UTF-16 code units on every platform; the empty path wraps round and fails here.
    const size_t length = vela::common::StringConverter::Utf16Length(path);
    if (length - 1 > 255) {
        vela::common::LogAndThrow(PathException(L"'Invalid path length'", source));
    }
    if (path[0] != PATH_DELIMITER) {
        vela::common::LogAndThrow(PathSeparatorException(L"'PATH_DELIMITER not found'", source));
    }
    IsValidFileName(path);
}

template <class T, class S, class C>
bool PrinterDeviceBase<T, S, C>::IsValidFileName(const std::wstring& name) const {
    for (const std::wstring& forbidden : m_invalidPathChars) {
        if (name.find(forbidden) != std::wstring::npos) {
            vela::common::LogAndThrow(InvalidPathCharsException(L"'Invalid path characters found'",
                                                                L"PrinterDevice::IsValidFileName()"));
        }
    }
    return true;
}

// ---- file transfer ----------------------------------------------------------------------------

template <class T, class S, class C>
int32_t PrinterDeviceBase<T, S, C>::PutFile(const std::wstring& printerPath,
                                            const std::wstring& hostFileName) {
    namespace R = FileSystemRequests;
    const std::wstring source = L"PrinterDevice::PutFile()";
    vela::common::Log::LogInfo(source);
    CheckPath(printerPath);
    S lock(m_printer);
    std::unique_ptr<T> transport = OpenDevice();

    // The message is built in place: the file is read straight into it behind the path field, with
    // room for the digest, so the file is held in memory once.
    std::vector<uint8_t> message = R::BeginPutRequest(C::ToUtf8(printerPath));
    const uint64_t maxData = std::numeric_limits<uint32_t>::max() - R::kPutOverhead;
    const uint64_t dataLength = LoadHostFile(hostFileName, message, maxData, R::kDigestSize);

    // The digest comes from a second, independent reading of the host file. It is needed only for
    // the message's last bytes, so the reading runs while the rest goes out.
    BackgroundFileDigest digest(hostFileName, source);
    message.resize(message.size() + R::kDigestSize);
    R::FinishPutRequest(message, static_cast<uint32_t>(dataLength));

    std::exception_ptr digestFailure;
    {
        filesystem_detail::PutProgressScope progress(*transport, m_progress, message.size());
        WriteDataCompletingTail(*transport, message, R::kDigestSize, [&](uint8_t* tail, size_t written) {
            try {
                const std::vector<uint8_t> value = digest.Take();
                std::copy(value.begin(), value.end(), tail);
            } catch (const vela::common::Exception&) {
                if (written == 0) {
                    throw; // nothing has gone out: the put simply fails
                }
                // The printer already has the head of the message: it is finished with a digest
                // that no data of ours has (all zero), so that the printer's framing stays in
                // step and it refuses the file.
                digestFailure = std::current_exception();
                std::fill(tail, tail + R::kDigestSize, uint8_t{0});
            }
        });
    }
    // Not needed while the printer works on it.
    std::vector<uint8_t>().swap(message);
    if (digestFailure) {
        // The printer's refusal is collected, so that the next operation finds nothing waiting;
        // the caller learns why the put failed.
        try {
            (void)WaitForCompletion(*transport);
        } catch (const vela::common::Exception&) {
        }
        std::rethrow_exception(digestFailure);
    }
    return WaitForCompletion(*transport);
}

// The host file is complete or untouched: a get that fails part-way (a broken channel, a full
// disk) must not leave a truncated file where a good one was, and a failed write is reported
// instead of being lost. So the data goes to a temporary file beside the target, flushed and
// renamed over the target only once the whole reply has arrived.
//
// The reply is not held whole either: its 263-byte head is read and checked, then the data is
// streamed in bounded slices into that temporary file. The checks, their order and their
// exceptions are those of reading the whole reply first and saving it with SaveFile: every
// remaining reply byte is read (and dropped) before a check fails, so a transport failure still
// wins over a bad reply as it would there.
template <class T, class S, class C>
int32_t PrinterDeviceBase<T, S, C>::GetFile(const std::wstring& printerPath,
                                            const std::wstring& hostFileName) {
    namespace R = FileSystemRequests;
    using filesystem_detail::kReplySlice;
    const std::wstring source = L"PrinterDevice::GetFile()";
    const std::wstring saveSource = L"PrinterDevice::SaveFile()";
    vela::common::Log::LogInfo(source);
    CheckPath(printerPath);
    S lock(m_printer);
    std::unique_ptr<T> transport = OpenDevice();

    std::vector<uint8_t> request = R::PathRequest(R::kPrepareGetFile, C::ToUtf8(printerPath));
    WriteData(*transport, request);
    const int32_t result = WaitForCompletion(*transport);
    if (result != 0) {
        return result; // nothing is read and no host file is touched
    }

    request[R::kCommandOffset] = R::kGetFile;
    WriteData(*transport, request);
    const uint32_t replySize = GetReplyDataLength(*transport);
    std::vector<uint8_t> buffer;
    if (replySize < kFileReplyMinimumSize) {
        ReadData(*transport, buffer, replySize);
        PergeQueue(*transport);
        vela::common::LogAndThrow(ReplyException(L"'Wrong reply size'", source));
    }

    const uint32_t headSize = std::min<uint32_t>(replySize, kFileReplyDataOffset);
    ReadData(*transport, buffer, headSize);
    uint64_t unread = replySize - headSize;
    auto discard = [&](uint64_t count) {
        while (count > 0) {
            const uint32_t slice = static_cast<uint32_t>(std::min<uint64_t>(count, kReplySlice));
            ReadData(*transport, buffer, slice);
            count -= slice;
        }
    };

    if (buffer[1] != R::kGetFile) {
        discard(unread);
        vela::common::LogAndThrow(ReplyException(L"'Wrong reply'", source));
    }

    vela::common::Log::LogInfo(saveSource);
    const std::optional<uint32_t> dataLength = FileDataLength(buffer.data(), buffer.size(), replySize);
    if (!dataLength) {
        discard(unread);
        vela::common::LogAndThrow(DeviceException(L"'Corrupted data length'", saveSource));
    }
    HostFileSaver saver(saveSource);
    if (auto error = saver.Open(hostFileName)) {
        discard(unread);
        ThrowHostOpenFailure(error, saveSource);
    }

    uint64_t received = 0;
    try {
        while (received < *dataLength) {
            const uint32_t slice =
                static_cast<uint32_t>(std::min<uint64_t>(*dataLength - received, kReplySlice));
            ReadData(*transport, buffer, slice);
            unread -= slice;
            saver.Write(buffer.data(), slice);
            received += slice;
            if (m_progress) {
                m_progress(received, *dataLength);
            }
        }
    } catch (const QRVException&) {
        // The host file could not take the data. Drain the rest of the reply so that the printer is
        // left with nothing half-sent; the write failure is what the caller learns.
        try {
            discard(unread);
        } catch (const vela::common::Exception& e) {
            vela::common::Log::LogWarning(L"PrinterDevice::GetFile - caught exception %s", e.Message());
        }
        throw;
    }
    // Bytes after the declared data belong to the reply too; they are read before the file is
    // committed, as the whole reply would have been.
    discard(unread);
    saver.Commit();

    // The digest of the saved file is taken and not compared with anything: the printer sends
    // none. Kept so that a file that cannot be read back still fails the get.
    vela::common::MD5FileHash hash;
    std::vector<uint8_t> digest;
    hash.GetHash(hostFileName, digest);
    return result;
}

template <class T, class S, class C>
std::vector<uint8_t> PrinterDeviceBase<T, S, C>::LoadFile(const std::wstring& hostFileName) {
    std::vector<uint8_t> bytes;
    LoadHostFile(hostFileName, bytes, std::numeric_limits<uint64_t>::max());
    return bytes;
}

template <class T, class S, class C>
void PrinterDeviceBase<T, S, C>::SaveFile(const std::wstring& hostFileName, std::vector<uint8_t> reply) {
    const std::wstring source = L"PrinterDevice::SaveFile()";
    vela::common::Log::LogInfo(source);
    const std::optional<uint32_t> dataLength = FileDataLength(reply.data(), reply.size(), reply.size());
    if (!dataLength) {
        vela::common::LogAndThrow(DeviceException(L"'Corrupted data length'", source));
    }
    // Written to a temporary file and renamed over the target, so the target is never left half
    // written; write failures are reported instead of lost.
    HostFileSaver saver(source);
    if (auto error = saver.Open(hostFileName)) {
        ThrowHostOpenFailure(error, source);
    }
    saver.Write(reply.data() + kFileReplyDataOffset, *dataLength);
    saver.Commit();
}

// ---- folder listing and file management -------------------------------------------------------

template <class T, class S, class C>
std::vector<std::unique_ptr<PathInfo>>
PrinterDeviceBase<T, S, C>::GetFolderContent(const std::wstring& path) {
    namespace R = FileSystemRequests;
    const std::wstring source = L"PrinterDevice::GetFolderContent()";
    vela::common::Log::LogInfo(source);
    CheckPath(path);
    S lock(m_printer);
    std::unique_ptr<T> transport = OpenDevice();
    vela::common::Pause(filesystem_detail::kListingPauseMs);

    std::vector<std::unique_ptr<PathInfo>> content;
    std::vector<uint8_t> request = R::PathRequest(R::kPrepareFolderContent, C::ToUtf8(path));
    WriteData(*transport, request);
    if (WaitForCompletion(*transport) != 0) {
        return content;
    }

    request[R::kCommandOffset] = R::kFolderContent;
    WriteData(*transport, request);
    const uint32_t replySize = GetReplyDataLength(*transport);
    std::vector<uint8_t> reply;
    ReadData(*transport, reply, replySize);
    if (replySize < 256) {
        PergeQueue(*transport);
        vela::common::LogAndThrow(ReplyException(L"'Wrong reply size'", source));
    }
    if (reply[1] != R::kFolderContent) {
        vela::common::LogAndThrow(ReplyException(L"'Wrong reply'", source));
    }

    constexpr size_t kListingOffset = 259;
    const size_t textSize = reply.size() > kListingOffset ? reply.size() - kListingOffset : 0;
    const uint8_t* text = textSize > 0 ? reply.data() + kListingOffset : nullptr;
    for (FolderListingEntry& entry : ParseFolderListing(text, textSize, source)) {
        content.push_back(
            std::make_unique<PathInfo>(C::FromUtf8(entry.name), entry.isFile, !entry.isFile, entry.size));
    }
    return content;
}

template <class T, class S, class C>
int32_t PrinterDeviceBase<T, S, C>::DeleteFile(const std::wstring& path) {
    namespace R = FileSystemRequests;
    vela::common::Log::LogInfo(L"PrinterDevice::DeleteFile()");
    CheckPath(path);
    S lock(m_printer);
    std::unique_ptr<T> transport = OpenDevice();
    WriteData(*transport, R::PathRequest(R::kDeleteFile, C::ToUtf8(path)));
    return WaitForCompletion(*transport);
}

template <class T, class S, class C>
int32_t PrinterDeviceBase<T, S, C>::RenameFile(const std::wstring& oldPath, const std::wstring& newPath) {
    vela::common::Log::LogInfo(L"PrinterDevice::RenameFile()");
    CheckPath(oldPath);
    CheckPath(newPath);
    S lock(m_printer);
    std::unique_ptr<T> transport = OpenDevice();
    WriteData(*transport, FileSystemRequests::RenameRequest(C::ToUtf8(oldPath), C::ToUtf8(newPath)));
    return WaitForCompletion(*transport);
}

template <class T, class S, class C>
std::wstring PrinterDeviceBase<T, S, C>::GetFolderDetail(uint8_t selector) {
    const std::wstring source = L"PrinterDevice::GetFolderDetail()";
    vela::common::Log::LogInfo(source);
    S lock(m_printer);
    std::unique_ptr<T> transport = OpenDevice();
    WriteData(*transport, FileSystemRequests::FolderDetailRequest(selector));
    const uint32_t replySize = GetReplyDataLength(*transport);
    std::vector<uint8_t> reply;
    ReadData(*transport, reply, replySize);
    return C::FromUtf8(DecodeFolderDetailReply(reply, source));
}

template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetJobFileLibraryPath() {
    return GetFolderDetail(1);
}
template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetTemplateLibraryPath() {
    return GetFolderDetail(2);
}
template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetImageLibraryPath() {
    return GetFolderDetail(3);
}
template <class T, class S, class C> std::wstring PrinterDeviceBase<T, S, C>::GetUpdateLibraryPath() {
    return GetFolderDetail(4);
}

template <class T, class S, class C>
void PrinterDeviceBase<T, S, C>::GetDiskSpace(uint64_t& first, uint64_t& second) {
    const std::wstring source = L"PrinterDevice::GetDiskSpace()";
    vela::common::Log::LogInfo(source);
    S lock(m_printer);
    std::unique_ptr<T> transport = OpenDevice();
    WriteData(*transport, FileSystemRequests::DiskSpaceRequest());
    const uint32_t replySize = GetReplyDataLength(*transport);
    std::vector<uint8_t> reply;
    ReadData(*transport, reply, replySize);
    if (replySize != kDiskSpaceReplySize) {
        PergeQueue(*transport);
    }
    const DiskSpace space = DecodeDiskSpaceReply(reply.data(), reply.size(), source);
    first = space.first;
    second = space.second;
}

} // namespace vela::kom
