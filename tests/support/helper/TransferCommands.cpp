// Helper subcommand for the interrupted-transfer tests:
//
//   get-file CHANNEL NAME PRINTERPATH HOSTFILE
//       Prints "running" and gets PRINTERPATH from the printer at CHANNEL (queue name NAME) into
//       HOSTFILE; exits 0 when it succeeded. A process to kill in the middle of a get.

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
