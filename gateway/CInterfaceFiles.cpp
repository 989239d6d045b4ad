// The C interface: file transfer and the printer's file system.
#include "common/StringConverter.h"
#include "gateway/CInterfaceBlock.h"
#include "gateway/CInterfaceCall.h"
#include "gateway/CPrinterHandle.h"

using vela::common::StringConverter;
using vela::kom::CInterfaceCall;
using vela::kom::RecordBlock;
namespace host = vela::printer::communication;

extern "C" {

qrv_result qrv_put(qrv_printer* printer, const char* host_path, const char* printer_path,
                   qrv_progress_fn progress, void* user) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(printer, "qrv_put", "printer");
        CInterfaceCall::Require(host_path, "qrv_put", "host_path");
        CInterfaceCall::Require(printer_path, "qrv_put", "printer_path");
        qrv_printer::CallbackScope scope({progress, nullptr, user});
        CInterfaceCall::RequireZero(printer->m_gateway.PutFile(StringConverter::FromUtf8(printer_path),
                                                               StringConverter::FromUtf8(host_path)),
                                    "QRVDeviceGateway::PutFile()");
        return QRV_OK;
    });
}

qrv_result qrv_get(qrv_printer* printer, const char* printer_path, const char* host_path,
                   qrv_progress_fn progress, void* user) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(printer, "qrv_get", "printer");
        CInterfaceCall::Require(printer_path, "qrv_get", "printer_path");
        CInterfaceCall::Require(host_path, "qrv_get", "host_path");
        qrv_printer::CallbackScope scope({progress, nullptr, user});
        CInterfaceCall::RequireZero(printer->m_gateway.GetFile(StringConverter::FromUtf8(printer_path),
                                                               StringConverter::FromUtf8(host_path)),
                                    "QRVDeviceGateway::GetFile()");
        return QRV_OK;
    });
}

qrv_result qrv_cancel(qrv_printer* printer) {
    // No CInterfaceCall frame: it may run in a signal handler, where the thread-local message
    // must not be touched.
    if (printer == nullptr) {
        return QRV_ERROR_NULL_ARGUMENT;
    }
    printer->m_gateway.CancelTransfer();
    return QRV_OK;
}

qrv_result qrv_rename(qrv_printer* printer, const char* old_path, const char* new_path) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(printer, "qrv_rename", "printer");
        CInterfaceCall::Require(old_path, "qrv_rename", "old_path");
        CInterfaceCall::Require(new_path, "qrv_rename", "new_path");
        CInterfaceCall::RequireZero(printer->m_gateway.RenameFile(StringConverter::FromUtf8(old_path),
                                                                  StringConverter::FromUtf8(new_path)),
                                    "QRVDeviceGateway::RenameFile()");
        return QRV_OK;
    });
}

qrv_result qrv_delete(qrv_printer* printer, const char* printer_path) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(printer, "qrv_delete", "printer");
        CInterfaceCall::Require(printer_path, "qrv_delete", "printer_path");
        CInterfaceCall::RequireZero(printer->m_gateway.DeleteFile(StringConverter::FromUtf8(printer_path)),
                                    "QRVDeviceGateway::DeleteFile()");
        return QRV_OK;
    });
}

qrv_result qrv_list_folder(qrv_printer* printer, const char* printer_path, qrv_file_entry** entries,
                           size_t* count) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(entries, "qrv_list_folder", "entries");
        CInterfaceCall::Require(count, "qrv_list_folder", "count");
        *entries = nullptr;
        *count = 0;
        CInterfaceCall::Require(printer, "qrv_list_folder", "printer");
        CInterfaceCall::Require(printer_path, "qrv_list_folder", "printer_path");
        const std::vector<host::FileComponent> files =
            printer->m_gateway.GetFiles(StringConverter::FromUtf8(printer_path));
        std::vector<std::string> names;
        names.reserve(files.size());
        for (const host::FileComponent& file : files) {
            names.push_back(StringConverter::ToUtf8(file.Name()));
        }
        RecordBlock<qrv_file_entry> block(files.size(), names);
        for (size_t i = 0; i < files.size(); ++i) {
            block[i].name = block.Text(i);
            block[i].is_directory = files[i].Type() == host::FileType::directory ? 1 : 0;
            block[i].size = files[i].Size();
        }
        *count = files.size();
        *entries = block.Release();
        return QRV_OK;
    });
}

qrv_result qrv_get_log_files(qrv_printer* printer, const char*** paths, size_t* count) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(paths, "qrv_get_log_files", "paths");
        CInterfaceCall::Require(count, "qrv_get_log_files", "count");
        *paths = nullptr;
        *count = 0;
        CInterfaceCall::Require(printer, "qrv_get_log_files", "printer");
        std::vector<std::string> texts;
        for (const std::wstring& path : printer->m_gateway.GetLogFiles()) {
            texts.push_back(StringConverter::ToUtf8(path));
        }
        RecordBlock<const char*> block(texts.size(), texts);
        for (size_t i = 0; i < texts.size(); ++i) {
            block[i] = block.Text(i);
        }
        *count = texts.size();
        *paths = block.Release();
        return QRV_OK;
    });
}

qrv_result qrv_get_disk_space(qrv_printer* printer, uint64_t* free_kib, uint64_t* used_kib) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(free_kib, "qrv_get_disk_space", "free_kib");
        CInterfaceCall::Require(used_kib, "qrv_get_disk_space", "used_kib");
        *free_kib = 0;
        *used_kib = 0;
        CInterfaceCall::Require(printer, "qrv_get_disk_space", "printer");
        uint64_t freeKiB = 0;
        uint64_t usedKiB = 0;
        printer->m_gateway.GetDiskSpaceKB(freeKiB, usedKiB);
        *free_kib = freeKiB;
        *used_kib = usedKiB;
        return QRV_OK;
    });
}

} // extern "C"
