// The C interface: finding, opening and closing printers.
#include "common/StringConverter.h"
#include "gateway/CInterfaceBlock.h"
#include "gateway/CInterfaceCall.h"
#include "gateway/CPrinterHandle.h"
#include "qrv/PrinterListing.h"

#include <memory>

using vela::common::StringConverter;
using vela::kom::CInterfaceCall;
using vela::kom::RecordBlock;
namespace host = vela::printer::communication;

extern "C" {

qrv_result qrv_list_printers(qrv_printer_info** printers, size_t* count) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(printers, "qrv_list_printers", "printers");
        CInterfaceCall::Require(count, "qrv_list_printers", "count");
        *printers = nullptr;
        *count = 0;
        const std::vector<host::PrinterInfo> found = host::ListPrinters();
        constexpr size_t kTexts = 5; // per printer
        std::vector<std::string> texts;
        texts.reserve(found.size() * kTexts);
        for (const host::PrinterInfo& info : found) {
            for (const std::wstring* text :
                 {&info.name, &info.model, &info.serial, &info.channelPath, &info.statusPath}) {
                texts.push_back(StringConverter::ToUtf8(*text));
            }
        }
        RecordBlock<qrv_printer_info> block(found.size(), texts);
        for (size_t i = 0; i < found.size(); ++i) {
            qrv_printer_info& record = block[i];
            record.name = block.Text(i * kTexts);
            record.model = block.Text(i * kTexts + 1);
            record.serial = block.Text(i * kTexts + 2);
            record.channel_path = block.Text(i * kTexts + 3);
            record.status_path = block.Text(i * kTexts + 4);
            record.vendor_id = found[i].vendorId;
            record.product_id = found[i].productId;
            record.is_queue_name = found[i].isQueueName ? 1 : 0;
            record.is_virtual = found[i].isVirtual ? 1 : 0;
        }
        *count = found.size();
        *printers = block.Release();
        return QRV_OK;
    });
}

qrv_result qrv_open(const char* name, qrv_printer** printer) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(printer, "qrv_open", "printer");
        *printer = nullptr;
        CInterfaceCall::Require(name, "qrv_open", "name");
        auto handle = std::make_unique<qrv_printer>();
        handle->m_gateway.Open(StringConverter::FromUtf8(name));
        *printer = handle.release();
        return QRV_OK;
    });
}

qrv_result qrv_close(qrv_printer* printer) {
    return CInterfaceCall::Run([&] {
        if (printer == nullptr) {
            return QRV_OK;
        }
        // Close refuses to run inside a subscriber of this printer; the handle then stays valid.
        printer->m_gateway.Close();
        std::unique_ptr<qrv_printer> owned(printer);
        return QRV_OK;
    });
}

} // extern "C"
