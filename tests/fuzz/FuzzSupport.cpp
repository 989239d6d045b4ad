#include "FuzzSupport.h"

#include "common/Log.h"
#include "common/Pause.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    vela::common::Log::SetLevel(-1);
    vela::common::SetPauseHandler([](uint32_t) { return vela::common::WaitResult::timeout; });
    return 0;
}
