// The C interface: subscriptions to the printer's status changes and print interrupts.
#include "gateway/CInterfaceCall.h"
#include "gateway/CPrinterHandle.h"

using vela::kom::CInterfaceCall;
namespace host = vela::printer::communication;

namespace {

// A subscription names its event in the lowest bit and the event's own token above it, so one
// number identifies it across both events (each event counts its tokens from 1).
constexpr qrv_subscription kStatusChanged = 0;
constexpr qrv_subscription kPrintInterrupt = 1;

qrv_subscription Subscription(uint64_t token, qrv_subscription event) {
    return token << 1 | event;
}

} // namespace

extern "C" {

qrv_result qrv_on_status_changed(qrv_printer* printer, qrv_status_changed_fn callback, void* user,
                                 qrv_subscription* subscription) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(subscription, "qrv_on_status_changed", "subscription");
        *subscription = 0;
        CInterfaceCall::Require(printer, "qrv_on_status_changed", "printer");
        CInterfaceCall::Require(reinterpret_cast<const void*>(callback), "qrv_on_status_changed", "callback");
        const uint64_t token = printer->m_gateway.OnPrinterStatusChanged().Add(
            [callback, user](const host::PrinterStatusEventArgs& args) {
                qrv_status_item items[QRV_STATUS_ITEM_COUNT];
                size_t count = 0;
                for (const host::PrinterStatusItem& item : args.Items()) {
                    if (count < QRV_STATUS_ITEM_COUNT) {
                        items[count++] = qrv_status_item{static_cast<uint32_t>(item.Kind()), item.Value()};
                    }
                }
                callback(items, count, user);
            });
        *subscription = Subscription(token, kStatusChanged);
        return QRV_OK;
    });
}

qrv_result qrv_on_print_interrupt(qrv_printer* printer, qrv_print_interrupt_fn callback, void* user,
                                  qrv_subscription* subscription) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(printer, "qrv_on_print_interrupt", "printer");
        CInterfaceCall::Require(reinterpret_cast<const void*>(callback), "qrv_on_print_interrupt",
                                "callback");
        CInterfaceCall::Require(subscription, "qrv_on_print_interrupt", "subscription");
        *subscription = 0;
        const uint64_t token = printer->m_gateway.OnPrintInterrupt().Add(
            [callback, user](const host::PrintInterruptEventArgs& args) {
                callback(static_cast<uint32_t>(args.Issue()), args.Code(), args.Value(), user);
            });
        *subscription = Subscription(token, kPrintInterrupt);
        return QRV_OK;
    });
}

qrv_result qrv_unsubscribe(qrv_printer* printer, qrv_subscription subscription) {
    return CInterfaceCall::Run([&] {
        CInterfaceCall::Require(printer, "qrv_unsubscribe", "printer");
        const uint64_t token = subscription >> 1;
        const bool removed = (subscription & 1) == kStatusChanged
                                 ? printer->m_gateway.OnPrinterStatusChanged().Remove(token)
                                 : printer->m_gateway.OnPrintInterrupt().Remove(token);
        if (!removed) {
            CInterfaceCall::InvalidArgument("qrv_unsubscribe",
                                            "no subscription " + std::to_string(subscription));
        }
        return QRV_OK;
    });
}

} // extern "C"
