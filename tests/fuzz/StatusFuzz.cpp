// The status reply and block, parsed alone and through GetStatus.

#include "FuzzSupport.h"

#include "kom/protocol/PrinterStatus.h"
#include "kom/protocol/ReplyParsers.h"

using namespace vela::fuzz;
using vela::kom::PrinterStatus;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ExactBytes payload = PayloadAfterHeader(data, size);
    RunParser([&] {
        const std::vector<uint8_t> block =
            vela::kom::ParseStatusReply(vela::kom::ByteView(payload.data(), payload.size()));
        Check(block.size() == 8, "a status block that is not 8 bytes");
    });
    // The decoder takes blocks of any length (only 8 bytes are decoded).
    (void)PrinterStatus(AfterControlByte(data, size));

    RunOperation(data, size, [](FuzzDevice& device) { (void)device.GetStatus(); });
    return 0;
}
