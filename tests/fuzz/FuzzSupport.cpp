#include "FuzzSupport.h"

#include "common/Log.h"
#include "common/Pause.h"

#include <cstdio>
#include <cstdlib>

namespace vela::fuzz {

ExactBytes AfterControlByte(const uint8_t* data, size_t size) {
    return size > 1 ? ExactBytes(data + 1, data + size) : ExactBytes();
}

ExactBytes PayloadAfterHeader(const uint8_t* data, size_t size) {
    return size > 8 ? ExactBytes(data + 8, data + size) : ExactBytes();
}

FuzzDevice& Device() {
    static FuzzDevice device(vela::kom::ConnectedPrinter{0x0922, 0x0025, L"fuzz-channel", L"Fuzz Printer"});
    return device;
}

void Fail(const char* what) {
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
}

} // namespace vela::fuzz

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vela::common::Log::SetLevel(-1);
    vela::common::SetPauseHandler([](uint32_t) { return vela::common::WaitResult::timeout; });
    return 0;
}
