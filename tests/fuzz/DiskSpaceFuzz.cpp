// The disk space reply; a failed query must leave the caller's counts as they were.

#include "FuzzSupport.h"

using namespace vela::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    uint64_t first = 0x1111, second = 0x2222;
    const bool ok = RunOperation(data, size, [&](FuzzDevice& device) { device.GetDiskSpace(first, second); });
    if (!ok) {
        Check(first == 0x1111 && second == 0x2222, "a failed disk space query changed the counts");
    }
    return 0;
}
