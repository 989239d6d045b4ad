// The updater's status report: the state stays one the update knows (0, 1, 4 or the initial 5).

#include "FuzzSupport.h"

#include "kom/protocol/ReplyParsers.h"

using namespace vela::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto checkReport = [](const vela::kom::DeviceManagerStatus& status) {
        Check(status.status == 0 || status.status == 1 || status.status == 4 || status.status == 5,
              "update state out of range");
        Check(status.value1 <= 0xFF && status.value2 <= 0xFF, "update values wider than a byte");
    };
    const ExactBytes payload = PayloadAfterHeader(data, size);
    RunParser([&] {
        checkReport(vela::kom::ParseUpdateStatusReply(vela::kom::ByteView(payload.data(), payload.size())));
    });
    RunOperation(data, size, [&](FuzzDevice& device) { checkReport(device.GetUpdateStatusReport()); });
    return 0;
}
