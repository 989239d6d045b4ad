// The monitor's pure change computation over arbitrary records (not only decodable ones): the
// change record, the interrupt rules with their last-code memory, and the host conversions the
// gateway applies to both. Input: two records of 13 little-endian 32-bit fields, then a run of
// interrupt codes for the last-code memory.

#include "FuzzSupport.h"

#include "common/ByteOrder.h"
#include "gateway/StatusConversion.h"
#include "kom/connection/PrinterStatusThread.h"

using namespace vela::fuzz;
using vela::kom::PrinterStatus;
using vela::kom::PrinterStatusThread;
using vela::kom::StatusConversion;

namespace {

PrinterStatus RecordAt(const uint8_t* p) {
    uint32_t f[PrinterStatus::kFieldCount];
    for (size_t i = 0; i < PrinterStatus::kFieldCount; ++i) {
        f[i] = vela::common::ReadLittleEndian32(p + 4 * i);
    }
    return PrinterStatus(f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9], f[10], f[11], f[12]);
}

bool Same(const PrinterStatus& a, const PrinterStatus& b) {
    for (size_t i = 0; i < PrinterStatus::kFieldCount; ++i) {
        if (a.Field(i) != b.Field(i)) {
            return false;
        }
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Initialize();
    constexpr size_t kRecordBytes = 4 * PrinterStatus::kFieldCount;
    if (size < 2 * kRecordBytes) {
        return 0;
    }
    const ExactBytes bytes(data, size);
    const PrinterStatus before = RecordAt(bytes.Data());
    const PrinterStatus after = RecordAt(bytes.Data() + kRecordBytes);

    const PrinterStatus change = PrinterStatusThread::ChangeRecord(before, after);
    const PrinterStatus markers = PrinterStatusThread::UnchangedMarkers();
    for (size_t i = 0; i < PrinterStatus::kFieldCount; ++i) {
        Check(change.Field(i) == (before.Field(i) == after.Field(i) ? markers.Field(i) : after.Field(i)),
              "a change record field is neither the new value nor the marker");
    }
    Check(Same(PrinterStatusThread::ChangeRecord(after, after), markers),
          "an unchanged record is not all markers");

    const uint32_t code = PrinterStatusThread::InterruptCode(after);
    Check(code <= PrinterStatusThread::kNoInterruption, "an interrupt code outside 0..14");

    Check(StatusConversion::AllItems(after).size() == 11, "a full status without its eleven items");
    Check(StatusConversion::ChangedItems(change).size() <= 11, "more changed items than fields");
    Check(StatusConversion::ErrorItems(after).size() <= 11, "more error items than fields");
    for (uint32_t kind = 0; kind <= 10; ++kind) {
        const auto item = StatusConversion::ConvertField(
            static_cast<vela::printer::communication::EPrintStatusItem>(kind), after.Field(kind));
        Check(static_cast<uint32_t>(item.Kind()) == kind, "a converted item of another kind");
    }
    (void)StatusConversion::GetPrintInterruptIssue(before.Field(0));

    // The last-code memory: a code is reported when it differs from the last one and is not 14.
    uint32_t last = PrinterStatusThread::kNoInterruption;
    for (size_t i = 2 * kRecordBytes; i < bytes.Size(); ++i) {
        const uint32_t next = bytes.Data()[i] % 16;
        const uint32_t was = last;
        const bool reported = PrinterStatusThread::TakeInterrupt(last, next);
        Check(reported == (next != was && next != PrinterStatusThread::kNoInterruption),
              "last-code memory broken");
        Check(last == next, "the last code was not remembered");
    }
    return 0;
}
