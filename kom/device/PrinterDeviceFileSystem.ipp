// File-system half of PrinterDeviceBase: path rules, file transfer, listings, rename, delete,
// folder detail and disk space.
//
// Every operation that takes a printer path checks it before anything else, then takes the access
// lock and opens a fresh transport; both are released on every way out (they are scoped objects).
#pragma once

#include "kom/device/PrinterDeviceBase.h"

#include "common/Exception.h"
#include "common/HostFile.h"
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

// A put message is read from the host file in blocks of this size (a multiple of the chunk size),
// so a put holds one block, never the whole file.
constexpr size_t kPutBlock = 256 * 1024;

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

// The message goes out as it is read: the head, then the file's bytes read in large blocks, then
// the digest. Whole chunks leave straight from the block; what falls short of a chunk waits for
// the next block, so the chunks on the wire are those of one write of the whole message, and the
// last piece is written as one message tail, which gets the pad byte exactly when the whole
// message needs it (everything in front of it is whole chunks, a multiple of the packet size).
//
// The digest is a second, independent reading of the file, taken beside the sending and needed
// only for the last bytes. Once the head has gone out, the printer expects the whole announced
// message: a put that cannot go on (cancelled, or the file yields fewer bytes than its size
// promised) finishes it with zero bytes and an all-zero digest, which no data has, so the printer
// refuses the file and keeps its framing in step; the refusal is collected, so the next operation
// is answered at once. A file that changes between the two readings fails the same way, by the
// printer's own digest check ("'Wrong checksum'").
template <class T, class S, class C>
int32_t PrinterDeviceBase<T, S, C>::PutFile(const std::wstring& printerPath,
                                            const std::wstring& hostFileName) {
    namespace R = FileSystemRequests;
    using filesystem_detail::kPutBlock;
    constexpr size_t kChunk = vela::common::UsbPrintDevice::kChunkSize;
    const std::wstring source = L"PrinterDevice::PutFile()";
    vela::common::Log::LogInfo(source);
    CheckPath(printerPath);
    BeginCancellableTransfer();
    S lock(m_printer);
    std::unique_ptr<T> transport = OpenDevice();

    vela::common::HostFileReader file;
    const auto dataLength = static_cast<uint32_t>(
        OpenHostFile(hostFileName, file, std::numeric_limits<uint32_t>::max() - R::kPutOverhead));
    BackgroundFileDigest digest(hostFileName, source);

    vela::common::Log::LogInfo(L"PrinterDevice::WriteData()");
    const uint64_t total = R::kPutOverhead + dataLength;
    std::vector<uint8_t> block = R::PutRequestHead(C::ToUtf8(printerPath), dataLength);
    block.reserve(kPutBlock + kChunk + R::kDigestSize + 1);
    uint64_t sent = 0;   // message bytes handed to the channel
    uint64_t loaded = 0; // data bytes placed in the message
    bool cancelled = false;
    bool readFailed = false;
    auto reportProgress = [&] {
        if (m_progress && !cancelled && !readFailed) {
            const uint64_t done = sent > R::kPutDataOffset ? sent - R::kPutDataOffset : 0;
            m_progress(std::min<uint64_t>(done, dataLength), dataLength);
        }
    };
    auto sendWholeChunks = [&] {
        size_t at = 0;
        for (; block.size() - at >= kChunk; at += kChunk) {
            cancelled = cancelled || CancelRequested();
            const uint32_t written = transport->WriteBytes(block.data() + at, static_cast<uint32_t>(kChunk));
            sent += written;
            if (written != kChunk) {
                ThrowShortWrite(total, sent);
            }
            reportProgress();
        }
        block.erase(block.begin(), block.begin() + static_cast<ptrdiff_t>(at));
    };

    while (loaded < dataLength) {
        const size_t piece = static_cast<size_t>(std::min<uint64_t>(kPutBlock, dataLength - loaded));
        const size_t at = block.size();
        block.resize(at + piece); // zero bytes, unless the file's bytes replace them
        if (!cancelled && !readFailed && file.Read(block.data() + at, piece) != piece) {
            readFailed = true;
        }
        loaded += piece;
        sendWholeChunks();
    }

    cancelled = cancelled || CancelRequested(); // also for a message shorter than one chunk
    std::exception_ptr digestFailure;
    std::vector<uint8_t> value(R::kDigestSize, 0);
    if (!cancelled && !readFailed) {
        try {
            value = digest.Take();
        } catch (const vela::common::Exception&) {
            if (sent == 0) {
                throw; // nothing has gone out: the put simply fails
            }
            digestFailure = std::current_exception();
        }
    }
    const bool refused = cancelled || readFailed || digestFailure;
    if (refused && sent == 0) {
        // Nothing has gone out, so there is no message to finish.
        if (cancelled) {
            ThrowCancelled(source);
        }
        vela::common::LogAndThrow(IncompleteHostRead());
    }
    block.insert(block.end(), value.begin(), value.end());
    const uint32_t written = transport->Write(block);
    sent += written;
    if (sent != total) {
        ThrowShortWrite(total, sent);
    }
    reportProgress();
    std::vector<uint8_t>().swap(block); // not needed while the printer works on it

    if (!refused) {
        return WaitForCompletion(*transport);
    }
    try {
        (void)WaitForCompletion(*transport);
    } catch (const vela::common::Exception&) {
        // The refusal that was asked for.
    }
    if (cancelled) {
        ThrowCancelled(source);
    }
    if (readFailed) {
        vela::common::LogAndThrow(IncompleteHostRead());
    }
    std::rethrow_exception(digestFailure);
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
    BeginCancellableTransfer();
    S lock(m_printer);
    std::unique_ptr<T> transport = OpenDevice();

    std::vector<uint8_t> request = R::PathRequest(R::kPrepareGetFile, C::ToUtf8(printerPath));
    const int32_t result =
        RepeatingOnCorruptHeader(*transport, source.c_str(), [&](vela::common::IUsbPrintDevice& channel) {
            WriteData(channel, request);
            return WaitForCompletion(channel);
        });
    if (result != 0) {
        return result; // nothing is read and no host file is touched
    }
    if (CancelRequested()) {
        ThrowCancelled(source); // nothing has been asked for yet
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
            if (CancelRequested()) {
                // The rest of the reply is read and dropped, so that the channel is clean when the
                // lock goes to the next operation; the temporary host file goes with the saver.
                try {
                    discard(unread);
                } catch (const vela::common::Exception& e) {
                    vela::common::Log::LogWarning(L"PrinterDevice::GetFile - caught exception %s",
                                                  e.Message());
                }
                ThrowCancelled(source);
            }
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

    // The printer sends no digest to compare with; reading the saved file back through the digest
    // makes a file that cannot be read back fail the get instead of failing its user later. The
    // reading runs while the file is flushed to the disk, which is mostly a wait for the disk.
    saver.Commit([](const std::wstring& savedFile) {
        vela::common::MD5FileHash hash;
        std::vector<uint8_t> digest;
        hash.GetHash(savedFile, digest);
    });
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
    const std::string utf8Path = C::ToUtf8(path);
    std::vector<uint8_t> reply;
    const bool prepared =
        RepeatingOnCorruptHeader(*transport, source.c_str(), [&](vela::common::IUsbPrintDevice& channel) {
            std::vector<uint8_t> request = R::PathRequest(R::kPrepareFolderContent, utf8Path);
            WriteData(channel, request);
            if (WaitForCompletion(channel) != 0) {
                return false;
            }
            request[R::kCommandOffset] = R::kFolderContent;
            WriteData(channel, request);
            const uint32_t replySize = GetReplyDataLength(channel);
            ReadData(channel, reply, replySize);
            if (replySize < 256) {
                PergeQueue(channel);
                vela::common::LogAndThrow(ReplyException(L"'Wrong reply size'", source));
            }
            return true;
        });
    if (!prepared) {
        return content;
    }
    if (reply[1] != R::kFolderContent) {
        vela::common::LogAndThrow(ReplyException(L"'Wrong reply'", source));
    }

    constexpr size_t kListingOffset = 259;
    const size_t textSize = reply.size() > kListingOffset ? reply.size() - kListingOffset : 0;
    const uint8_t* text = textSize > 0 ? reply.data() + kListingOffset : nullptr;
    std::vector<FolderListingEntry> entries = ParseFolderListing(text, textSize, source);
    content.reserve(entries.size());
    for (FolderListingEntry& entry : entries) {
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
    return RepeatingOnCorruptHeader(*transport, source.c_str(), [&](vela::common::IUsbPrintDevice& channel) {
        WriteData(channel, FileSystemRequests::FolderDetailRequest(selector));
        const uint32_t replySize = GetReplyDataLength(channel);
        std::vector<uint8_t> reply;
        ReadData(channel, reply, replySize);
        return C::FromUtf8(DecodeFolderDetailReply(reply, source));
    });
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
    const DiskSpace space =
        RepeatingOnCorruptHeader(*transport, source.c_str(), [&](vela::common::IUsbPrintDevice& channel) {
            WriteData(channel, FileSystemRequests::DiskSpaceRequest());
            const uint32_t replySize = GetReplyDataLength(channel);
            std::vector<uint8_t> reply;
            ReadData(channel, reply, replySize);
            if (replySize != kDiskSpaceReplySize) {
                PergeQueue(channel);
            }
            return DecodeDiskSpaceReply(reply.data(), reply.size(), source);
        });
    first = space.first;
    second = space.second;
}

} // namespace vela::kom
