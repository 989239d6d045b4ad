// A get to kill midway: "running", then "receiving" once the first bytes are in; exit 0 on success.
#include "support/helper/HelperCommand.h"

#include "common/Log.h"
#include "common/StringConverter.h"
#include "kom/connection/QRVDevice.h"

namespace {

using vela::common::StringConverter;

vela::test::HelperCommand
    getFile("get-file CHANNEL NAME PRINTERPATH HOSTFILE", [](const std::vector<std::string>& args) -> int {
        vela::common::Log::SetLevel(-1);
        vela::kom::QRVDevice device(vela::kom::ConnectedPrinter{
            0x0922, 0x0025, StringConverter::FromUtf8(args[0]), StringConverter::FromUtf8(args[1])});
        vela::test::Say("running");
        bool said = false;
        device.SetProgressCallback([&said](uint64_t done, uint64_t) {
            if (done > 0 && !said) {
                said = true;
                vela::test::Say("receiving");
            }
        });
        return device.GetFile(StringConverter::FromUtf8(args[2]), StringConverter::FromUtf8(args[3])) == 0
                   ? 0
                   : 1;
    });

} // namespace
