// The version reply's seven zero-terminated texts, split alone and through GetPrinterVersion.

#include "FuzzSupport.h"

#include "kom/protocol/ReplyParsers.h"

#include <cstring>

using namespace vela::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const ExactBytes payload = PayloadAfterHeader(data, size);
    RunParser([&] {
        const auto texts = vela::kom::ParseVersionReply(vela::kom::ByteView(payload.data(), payload.size()));
        size_t total = 0;
        for (const std::string& text : texts) {
            Check(text.find('\0') == std::string::npos, "a version text holds its terminator");
            total += text.size() + 1;
        }
        Check(total <= payload.size() - 2 + texts.size(), "version texts longer than the reply");
    });

    RunOperation(data, size, [](FuzzDevice& device) {
        const vela::kom::PrinterVersion version = device.GetPrinterVersion();
        (void)version.GetOSVersion();
        (void)version.GetRootFSVersion();
    });
    return 0;
}
