// The cassette memory reply and the SKU taken from it, parsed alone and through GetSkuNumber.

#include "FuzzSupport.h"

#include "kom/protocol/ReplyParsers.h"

using namespace vela::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ExactBytes payload = PayloadAfterHeader(data, size);
    RunParser([&] {
        const vela::kom::EepromData memory =
            vela::kom::ParseCassetteMemoryReply(vela::kom::ByteView(payload.data(), payload.size()));
        Check(memory.empty() || memory.size() >= 88, "a cassette memory shorter than 88 bytes kept");
        Check(vela::kom::SkuFromCassetteMemory(memory).size() <= 7, "an SKU longer than 7 bytes");
    });
    // The SKU reader on its own, over a memory of any length.
    const ExactBytes memory = AfterControlByte(data, size);
    Check(vela::kom::SkuFromCassetteMemory(memory).size() <= 7, "an SKU longer than 7 bytes");

    RunOperation(data, size, [](FuzzDevice& device) {
        Check(device.GetSkuNumber().size() <= 7, "an SKU longer than 7 characters");
    });
    return 0;
}
