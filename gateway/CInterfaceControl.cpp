// The C interface: print and device control orders, and the firmware update.
#include "common/StringConverter.h"
#include "gateway/CInterfaceCall.h"
#include "gateway/CPrinterHandle.h"

using vela::common::StringConverter;
using vela::kom::CInterfaceCall;
using vela::kom::ManagedQRVDeviceGateway;

namespace {

qrv_result Order(const char* function, qrv_printer* printer, void (ManagedQRVDeviceGateway::*order)()) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(printer, function, "printer");
        (printer->m_gateway.*order)();
        return QRV_OK;
    });
}

} // namespace

extern "C" {

qrv_result qrv_feed(qrv_printer* printer) {
    return Order("qrv_feed", printer, &ManagedQRVDeviceGateway::FeedForward);
}

qrv_result qrv_cut(qrv_printer* printer) {
    return Order("qrv_cut", printer, &ManagedQRVDeviceGateway::CutLabel);
}

qrv_result qrv_resume(qrv_printer* printer) {
    return Order("qrv_resume", printer, &ManagedQRVDeviceGateway::ResumePrinting);
}

qrv_result qrv_clear_errors(qrv_printer* printer) {
    return Order("qrv_clear_errors", printer, &ManagedQRVDeviceGateway::ClearErrors);
}

qrv_result qrv_clear_cutter_jam(qrv_printer* printer) {
    return Order("qrv_clear_cutter_jam", printer, &ManagedQRVDeviceGateway::ClearCutterJamError);
}

qrv_result qrv_reboot(qrv_printer* printer) {
    return Order("qrv_reboot", printer, &ManagedQRVDeviceGateway::Reboot);
}

qrv_result qrv_set_cutter_mode(qrv_printer* printer, int32_t mode) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(printer, "qrv_set_cutter_mode", "printer");
        if (mode < QRV_CUT_EACH_LABEL || mode > QRV_CUT_NONE) {
            CInterfaceCall::InvalidArgument("qrv_set_cutter_mode",
                                            "mode " + std::to_string(mode) + " is not one of 0..2");
        }
        printer->m_gateway.SetCutterMode(static_cast<vela::printer::communication::TapeCutMode>(mode));
        return QRV_OK;
    });
}

qrv_result qrv_update(qrv_printer* printer, const char* package_path, qrv_update_phase_fn phase,
                      qrv_progress_fn progress, void* user) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(printer, "qrv_update", "printer");
        CInterfaceCall::Require(package_path, "qrv_update", "package_path");
        qrv_printer::CallbackScope scope({progress, phase, user});
        CInterfaceCall::RequireZero(printer->m_gateway.ApplyUpdate(StringConverter::FromUtf8(package_path)),
                                    "QRVDeviceGateway::ApplyUpdate()");
        return QRV_OK;
    });
}

} // extern "C"
