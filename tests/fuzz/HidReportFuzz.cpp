// 8-byte HID status reports as the monitor thread handles them, told to a converting listener.

#include "FuzzSupport.h"

#include "gateway/StatusConversion.h"
#include "kom/connection/PrinterStatusThread.h"
#include "kom/connection/StatusMonitorState.h"

#include <cstring>

using namespace vela::fuzz;
using vela::kom::PrinterStatus;
using vela::kom::PrinterStatusThread;

namespace {

class ConvertingListener : public vela::kom::INativeQRVListener {
public:
    void OnPrinterStatusChangedEvent(const PrinterStatus& status) override {
        ++changes;
        const auto items = vela::kom::StatusConversion::ChangedItems(status);
        Check(items.size() <= 11, "more changed items than status fields");
    }
    void OnPrinterInterruptEvent(uint32_t code, uint32_t value) override {
        Check(code <= 13, "an interrupt code outside 0..13 reported");
        Check(value <= 0xFFFF, "an interrupt value wider than 16 bits");
        (void)vela::kom::StatusConversion::GetPrintInterruptIssue(code);
    }
    int changes = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static ConvertingListener listener;
    const auto state = vela::kom::StatusMonitorState::Instance();
    if (!state->ContainsListener(&listener)) {
        state->AppendListener(&listener);
    }
    state->lastInterruptCode = PrinterStatusThread::kNoInterruption;

    PrinterStatusThread::Report previous{};
    for (size_t offset = 0; offset + 8 <= size; offset += 8) {
        const ExactBytes bytes(data + offset, data + offset + 8);
        PrinterStatusThread::Report report;
        std::memcpy(report.data(), bytes.data(), 8);
        const bool repeated = report == previous && report[PrinterStatusThread::kFirmwareMarkerIndex] !=
                                                        PrinterStatusThread::kFirmwareMarker;
        const int changesBefore = listener.changes;
        Check(PrinterStatusThread::HandleReport(previous, report),
              "the monitor gave up with a listener registered");
        Check(repeated ? listener.changes == changesBefore : listener.changes == changesBefore + 1,
              "a report was told zero or twice, or a repeated report was told again");
    }
    return 0;
}
