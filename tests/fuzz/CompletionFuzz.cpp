// The completion poll ends with a result, -1 or a typed failure, within its tick budget.

#include "FuzzSupport.h"

#include "common/Pause.h"

using namespace vela::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Count the pauses: 250 ms once, then one 500 ms pause per answer that did not finish it.
    uint32_t pauses = 0;
    const auto previous = vela::common::SetPauseHandler([&pauses](uint32_t) {
        ++pauses;
        return vela::common::WaitResult::timeout;
    });
    int32_t result = 0;
    const bool finished = RunOperation(data, size, [&](FuzzDevice& device) {
        vela::test::FakeTransport transport(L"fuzz-channel");
        result = device.WaitForCompletion(transport);
    });
    vela::common::SetPauseHandler(previous);
    Check(pauses <= 11, "the completion poll paused more than ten times after its first wait");
    if (finished) {
        Check(result == -1 || result == 0 || (result >= 8 && result <= 255),
              "completion result out of range");
    }
    return 0;
}
