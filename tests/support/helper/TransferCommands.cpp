// A get to kill midway: "running", then "receiving" once the first bytes are in; exit 0 on success.
#include "support/helper/HelperCommand.h"

#include "common/Exception.h"
#include "common/Log.h"
#include "common/StringConverter.h"
#include "kom/connection/QRVDevice.h"

#include <cstdio>

namespace {

using vela::common::StringConverter;

vela::test::HelperCommand
    getFile("get-file CHANNEL NAME PRINTERPATH HOSTFILE", [](const std::vector<std::string>& args) -> int {
        vela::common::Log::SetLevel(-1);
        vela::kom::QRVDevice device(vela::kom::ConnectedPrinter{
            0x0922, 0x0025, StringConverter::FromUtf8(args[0]), StringConverter::FromUtf8(args[1])});
        std::printf("running\n");
        std::fflush(stdout);
        bool said = false;
        device.SetProgressCallback([&said](uint64_t done, uint64_t) {
            if (done > 0 && !said) {
                said = true;
                std::printf("receiving\n");
                std::fflush(stdout);
            }
        });
        try {
            return device.GetFile(StringConverter::FromUtf8(args[2]), StringConverter::FromUtf8(args[3])) == 0
                       ? 0
                       : 1;
        } catch (const vela::common::Exception& e) {
            std::fprintf(stderr, "failed: %ls\n", e.Message().c_str());
            return 1;
        }
    });

} // namespace
