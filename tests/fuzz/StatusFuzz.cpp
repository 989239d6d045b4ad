// The status reply and the 8-byte status block: the pure reply check and decoder, and GetStatus
// over the channel. Every decoded field must be one of its enumeration's values, whatever the
// printer sent: the host conversions index tables with them.

#include "FuzzSupport.h"

#include "kom/protocol/PrinterStatus.h"
#include "kom/protocol/ReplyParsers.h"

using namespace vela::fuzz;
using vela::kom::PrinterStatus;

namespace {

bool OneOf(uint32_t value, std::initializer_list<uint32_t> allowed) {
    for (uint32_t a : allowed) {
        if (a == value) {
            return true;
        }
    }
    return false;
}

void CheckDecoded(const PrinterStatus& s) {
    Check(s.GetPowerStatus() <= 3, "power status out of range");
    Check(OneOf(s.GetCassetteDoorStatus(), {0, 1, 3, 4}), "door status out of range");
    Check(s.GetCassettePresence() <= 3, "cassette presence out of range");
    Check(s.GetTphStatus() <= 3, "print head status out of range");
    Check(OneOf(s.GetCutterStatus(), {0, 1, 2, 6, 7, 8}), "cutter status out of range");
    Check(OneOf(s.GetLabelStatus(), {0, 1, 2, 3, 6, 7, 8}), "label status out of range");
    Check(OneOf(s.GetCassetteMemoryStatus(), {0, 1, 3, 4}), "cassette memory status out of range");
    Check(OneOf(s.GetPrintStatus(), {0, 1, 2, 3, 4, 7, 8}), "print status out of range");
    Check(OneOf(s.GetExternalPowerStatus(), {0, 1, 3, 4}), "external power status out of range");
    Check(OneOf(s.GetBatteryStatus(), {0, 1, 2, 3, 4, 5, 7, 8}), "battery status out of range");
    Check(OneOf(s.GetChargingStatus(), {0, 1, 3, 4}), "charging status out of range");
    Check(OneOf(s.GetOperatingStatus(), {0, 2}), "operating status out of range");
    Check(s.Field(12) <= 0xFFFF, "16-bit value out of range");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Initialize();
    const ExactBytes payload = PayloadAfterHeader(data, size);
    RunParser([&] {
        const std::vector<uint8_t> block =
            vela::kom::ParseStatusReply(vela::kom::ByteView(payload.Data(), payload.Size()));
        Check(block.size() == 8, "a status block that is not 8 bytes");
    });
    // The decoder takes blocks of any length (only 8 bytes are decoded).
    CheckDecoded(PrinterStatus(ExactBytes(size ? data + 1 : data, size ? size - 1 : 0).ToVector()));

    RunOperation(data, size, [](FuzzDevice& device) { CheckDecoded(device.GetStatus()); });
    return 0;
}
